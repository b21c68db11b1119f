// Whole runs of the shipped program: exit status, both streams, both configuration files and all trees.
#include <gmock/gmock.h>

#include <algorithm>
#include <cstring>

#include "installation.h"
#include "messagetexts.h"

namespace
{
constexpr char UNCHANGED[] = "data +- log +- zns old qm old";
constexpr char MOVED[] = "data -+ log -+ zns new qm new";

} // namespace

TEST(Runs, WholeMoveIsSilentAndChangesTwoLines)
{
    Installation zn;
    const RunResult result = zn.Run(zn.MoveWords());
    EXPECT_EQ(result.nStatus, 0u);
    EXPECT_EQ(result.strOut + result.strErr, "");
    EXPECT_EQ(zn.State(), MOVED);
    EXPECT_TRUE(zn.IsRestUntouched());
    // And again, to a third place, from where it is now.
    EXPECT_EQ(zn.Run(L"-LD " + (zn.root / "oldlog").wstring() + L"\\ -dd " +
                     (zn.root / "olddata").generic_wstring() + L" -M QM1")
                  .nStatus,
              0u);
    EXPECT_EQ(zn.State(), UNCHANGED);
}

TEST(Runs, RunningQueueManagerIsStoppedUnlessItRefuses)
{
    Installation zn;
    for (const char* psz : {"endznm.exe", "tovxcs2.dll", "tovxzu.dll"})
    {
        fs::create_directories(zn.root / "inst\\bin64");
        fs::copy_file(ProgramFolder() / psz, zn.root / "inst\\bin64" / psz);
    }
    const auto sample = [&](const std::wstring& strWords) {
        return RunProgram(ProgramFolder() / "sampleqm.exe", strWords, zn.root).nStatus;
    };
    const auto end = [&] { return RunProgram(ProgramFolder() / "endznm.exe", L"-w QM2", zn.root).nStatus; };
    ASSERT_EQ(sample(L"create QM2 /files 20 /dd " + (zn.root / "d").wstring() + L" /ld " +
                     (zn.root / "l").wstring()),
              0u);
    ASSERT_EQ(sample(L"start QM2"), 0u);
    const RunResult result = zn.Run(zn.MoveWords(L"QM2"));
    EXPECT_EQ(result.nStatus, 0u);
    EXPECT_EQ(result.strOut + result.strErr, "");
    EXPECT_FALSE(fs::exists(zn.root / "d\\qmgrs\\QM2"));
    EXPECT_EQ(sample(L"verify QM2"), 0u);
    EXPECT_EQ(end(), 3u); // not started again
    EXPECT_EQ(sample(L"start QM2"), 0u);
    EXPECT_EQ(end(), 0u);

    const RefusingQueueManager refusing(L"QM2");
    ASSERT_TRUE(refusing.fRuns);
    const Snapshot before = TakeSnapshot(zn.root / "d");
    EXPECT_EQ(zn.Run(zn.MoveWords(L"QM2", "d", "l")).strErr, Message(33) + USAGE);
    EXPECT_EQ(TakeSnapshot(zn.root / "d"), before);
}

TEST(Runs, StartUpFailuresEndTheRunBeforeAnythingIsAsked)
{
    const std::string strMfc = "Fatal Error: MFC initialization failed.\r\n",
                      strServices = "Fatal Error: Vantor ZN Common Services initialization failed.\r\n";
    const std::tuple<const char*, DWORD, std::string, long> cases[] = {
        // fault, status, what standard error begins with, terminated
        {"GetModuleHandleW:1:o:0:7e", FAILED, strMfc, 0},
        {"GetCommandLineW:1:o:0:8", FAILED, strMfc, 0},
        {"xcsCheckConsistency:1:o:20006110:0", 0x10, "", 0},
        {"xcsInitializeEx:1:o:20006110:0", FAILED, strServices, 0},
        {"xcsCheckAuthorization:1:o:40806178:0", 119, "User '", 1},
        {"xcsCheckAuthorization:1:o:40806177:0", 71, "User '", 1}};
    for (const auto& [pszFaults, nStatus, strErr, nTerminated] : cases)
    {
        Installation zn;
        const RunResult result = zn.Run(zn.MoveWords(), pszFaults);
        EXPECT_EQ(result.nStatus, nStatus) << pszFaults;
        EXPECT_EQ(result.strOut, "");
        EXPECT_EQ(result.strErr.substr(0, nTerminated != 0 ? strErr.size() : std::string::npos), strErr);
        EXPECT_EQ(zn.Calls("xcsTerminate"), nTerminated) << pszFaults;
        EXPECT_EQ(zn.Calls("xcsGetQMDetails"), 0);
        EXPECT_EQ(zn.State(), UNCHANGED);
    }
    Installation zn;
    fs::remove(zn.work / "zns.ini");
    EXPECT_EQ(zn.Run(zn.MoveWords()).strErr, strServices);
}

TEST(Runs, WrongCommandLinesShowTheUsageLine)
{
    Installation zn;
    for (const wchar_t* psz :
         {L"", L"/m QM1", L"/m QM1 /dd E:\\a /ld F:\\b /x", L"/?", L"/%s%n%s QM1 /dd E:\\a /ld F:\\b",
          L"/m \"\" /dd E:\\a /ld F:\\b \"\"", L"QM1 E:\\a F:\\b 1 2 3"})
    {
        const RunResult result = zn.Run(psz);
        EXPECT_EQ(result.nStatus, FAILED);
        EXPECT_EQ(result.strOut, "");
        EXPECT_EQ(result.strErr, USAGE) << psz;
    }
    EXPECT_EQ(zn.State(), UNCHANGED);
}

TEST(Runs, RefusalsChangeNothing)
{
    const struct
    {
        const char *pszInZnsIni, *pszInstead; // what the configuration says otherwise
        const wchar_t* pszFileInTheWay;
        std::wstring strQueueManager, strData, strLog; // destinations below the root
        unsigned nMessage;
    } cases[] = {
        {"", "", L"", L"QM9", L"newdata", L"newlog", 32},
        {"", "", L"", L"qm1", L"newdata", L"newlog", 32},
        {"", "", L"", std::wstring(300, L'Q'), L"newdata", L"newlog", 32},
        {"", "", L"", L"\xD800%n", L"newdata", L"newlog", 32},
        {"Name=QM1", "Name=QM1\r\n   MultiInstance=Yes", L"", L"QM1", L"newdata", L"newlog", 47},
        {"Directory=QM!1", "Directory=..", L"", L"QM1", L"newdata", L"newlog", 32},
        {"Name=Inst1", "Name=Inst2", L"", L"QM1", L"newdata", L"newlog", 32},
        {"", "", L"", L"QM1", L"olddata", L"newlog", 42},
        {"", "", L"", L"QM1", L"newdata\\", L"oldlog", 42},
        {"", "", L"", L"QM1", L"newlog", L"NewLog\\qmgrs", 42},
        {"", "", L"newdata", L"QM1", L"newdata", L"newlog", 37},
        {"", "", L"newdata\\qmgrs\\QM!1", L"QM1", L"newdata", L"newlog", 37},
        {"", "", L"newlog", L"QM1", L"newdata", L"newlog", 37},
    };
    for (const auto& c : cases)
    {
        Installation zn;
        if (*c.pszInZnsIni != '\0')
        {
            zn.strZnsIni.replace(zn.strZnsIni.find(c.pszInZnsIni), std::strlen(c.pszInZnsIni), c.pszInstead);
            WriteAll(zn.work / "zns.ini", zn.strZnsIni);
        }
        if (*c.pszFileInTheWay != L'\0')
            WriteAll(zn.root / c.pszFileInTheWay, "in the way");
        const RunResult result =
            zn.Run(L"/m " + c.strQueueManager + L" /dd " + (zn.root / c.strData).wstring() + L" /ld " +
                   (zn.root / c.strLog).wstring());
        EXPECT_EQ(result.nStatus, FAILED) << &c - cases;
        EXPECT_EQ(result.strErr, Message(c.nMessage) + USAGE) << &c - cases;
        EXPECT_TRUE(zn.State().starts_with("data +") && zn.State().find("log +") != std::string::npos)
            << zn.State();
        EXPECT_EQ(ReadAll(zn.work / "zns.ini"), zn.strZnsIni);
        if (*c.pszFileInTheWay != L'\0')
            EXPECT_EQ(ReadAll(zn.root / c.pszFileInTheWay), "in the way");
        EXPECT_TRUE(zn.IsRestUntouched()) << &c - cases;
    }
}

TEST(Runs, NewTreesThatOverlapOldOnesAreNotDeletedWithThem)
{
    const std::pair<const char*, const char*> cases[] = {{"OLDDATA", "newlog"},
                                                         {"newdata", "OldLog"},
                                                         {"newdata", "x\\..\\oldlog"},
                                                         {"newdata", "oldlog\\QM!1\\in"},
                                                         {"olddata\\qmgrs\\QM!1", "newlog"},
                                                         {"newdata", "olddata\\qmgrs"},
                                                         {"newdata", ".\\\\oldlog"}};
    for (const auto& [pszData, pszLog] : cases)
    {
        Installation zn;
        const RunResult result = zn.Run(zn.MoveWords(L"QM1", pszData, pszLog));
        EXPECT_EQ(result.nStatus, FAILED) << pszData << pszLog;
        EXPECT_NE(result.strErr,
                  Message(42) + USAGE); // "the same place" is narrow: letter for letter, data with data
        Snapshot all = TakeSnapshot(zn.root);
        for (const Snapshot* pTree : {&zn.data, &zn.log})
            for (const auto& old : *pTree)
                EXPECT_TRUE(std::any_of(all.begin(), all.end(),
                                        [&](const auto& entry) {
                                            return entry.first.ends_with(old.first) &&
                                                   (entry.second == old.second || old.first == L"qm.ini");
                                        }))
                    << pszData << pszLog;
    }
}

TEST(Runs, PlacesThatCannotBeNamedOrReachedAreRefused)
{
    const std::string strNoCopy =
        "SHFileOperationW:1:a:7c:0"; // whole drives are at stake where one is not refused
    const std::wstring strLong(248, L'l');
    for (const std::wstring& strLog : std::vector<std::wstring>{
             L"C:newlog", L"newlog", L"\\newlog", L"..", L"C:\\n\x0101", L"C:\\n\xD800", L"C:\\a?b",
             L"C:\\a|b", L"C:\\" + strLong, L"1:\\x", L"\\", L"C:\\n:stream", L"C:\\n::$INDEX_ALLOCATION",
             L"\\\\?\\" + fs::temp_directory_path().wstring()})
    {
        Installation zn;
        EXPECT_EQ(
            zn.Run(zn.MoveWords().substr(0, zn.MoveWords().find(L" /ld")) + L" /ld " + strLog, strNoCopy)
                .strErr,
            Message(37) + USAGE);
        EXPECT_TRUE(zn.State().starts_with("data +")) << zn.State();
    }
    for (const std::string& strLogPath : std::vector<std::string>{
             "C:", "C:\\", "..", ".", "relative\\log", "\\\\srv\\share\\", "", "C:\\.", "C:\\znm\\..",
             "C:\\\\\\\\", "\\\\?\\C:\\.", "C:\\" + std::string(259, 'l'), "C:\\" + std::string(4997, 'l')})
    {
        Installation zn;
        WriteAll(zn.oldData / "qm.ini", "Log:\n   LogPath=" + strLogPath);
        EXPECT_EQ(zn.Run(zn.MoveWords(), strNoCopy).strErr, USAGE) << strLogPath;
    }
    Installation zn; // a file whose new path the shell would not take
    WriteAll(zn.oldLog / std::string(240 - zn.newLog.wstring().size() / 2, 'f'), "long");
    EXPECT_EQ(zn.Run(zn.MoveWords()).strErr, Message(38) + USAGE);
}

TEST(Runs, EveryFailingStepLeavesWhatTheGuideSays)
{
    const struct
    {
        const char* pszFaults;
        unsigned nMessage;
        std::string strState;
    } cases[] = {
        {"xcsGetQMDetails:1:a:1:0", 32, UNCHANGED},
        {"xcsGetQMDetails:6:o:1:0", 32,
         UNCHANGED}, // deleted while its directory name, then its data directory, is asked for
        {"xcsGetQMDetails:7:o:1:0", 32, UNCHANGED},
        {"xcsGetInstallationDetails:1:a:10006164:0", 32, UNCHANGED},
        {"xcsIsSubpoolActive:1:a:0:0;xcsExecProgramHandle:1:o:1:0", 33, UNCHANGED},
        {"xcsIsSubpoolActive:1:a:0:0", 33, UNCHANGED}, // there is no end command to run
        {"xcsGetIniFilename:1:o:1:0", 0, UNCHANGED},
        {"xcsGetIniFilename:2:o:1:0", 0, UNCHANGED},
        {"xcsIniUtilRead:1:o:1:0", 0, UNCHANGED},
        {"SHFileOperationW:1:o:7c:0", 38, "data +~ log +~ zns old qm old"},
        {"SHFileOperationW:2:o:7c:0", 38, "data ++ log +~ zns old qm old"},
        {"SetNamedSecurityInfoW:1:a:5:5", 38, "data ++ log +~ zns old qm old"},
        {"LookupAccountNameW:1:a:0:534", 38, "data ++ log +~ zns old qm old"},
        {"xcsIniUtilWrite:1:o:1:0", 39, "data ++ log ++ zns old qm old"},
        {"xcsGetIniFilename:3:o:1:0", 0, "data ++ log ++ zns new qm old"},
        {"xcsIniUtilWrite:2:o:1:0", 39, "data ++ log ++ zns new qm old"},
        {"DeleteFileW:2:o:0:20", 40, "data ~+ log ++ zns new qm new"},
        {"RemoveDirectoryW:1:o:0:91", 40, "data ~+ log ++ zns new qm new"},
        {"DeleteFileW:6:a:0:20", 40, "data -+ log ++ zns new qm new"},
        {"DeleteFileW:7:a:0:20", 40, "data -+ log ~+ zns new qm new"},
    };
    for (const auto& c : cases)
    {
        Installation zn;
        const RunResult result = zn.Run(zn.MoveWords(), c.pszFaults);
        EXPECT_EQ(result.nStatus, FAILED) << c.pszFaults;
        EXPECT_EQ(result.strOut, "");
        EXPECT_EQ(result.strErr, Message(c.nMessage) + USAGE) << c.pszFaults;
        EXPECT_EQ(zn.State(), c.strState) << c.pszFaults;
        EXPECT_TRUE(zn.IsRestUntouched()) << c.pszFaults;
        EXPECT_EQ(zn.Calls("xcsTerminate"), 1);
        EXPECT_EQ(zn.strReport.find("held"), std::string::npos) << c.pszFaults << "\n" << zn.strReport;
    }
}
