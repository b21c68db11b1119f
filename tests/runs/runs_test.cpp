// Whole runs of the shipped program: exit status, both streams, both configuration files and all trees.
#include "refusal.h"

TEST(Runs, WholeMoveIsSilentAndChangesTwoLines)
{
    Installation zn;
    const RunResult result = zn.Run(zn.MoveWords());
    EXPECT_EQ(result.nStatus, 0u);
    EXPECT_EQ(result.strOut + result.strErr, "");
    EXPECT_EQ(zn.State(), MOVED);
    EXPECT_TRUE(zn.IsRestUntouched());
    // And again, to a third place, from where it is now.
    EXPECT_EQ(zn.Run(L"-LD " + Quoted(zn.root / "oldlog\\") + L" -dd " +
                     Quoted((zn.root / "olddata").generic_wstring()) + L" -M QM1")
                  .nStatus,
              0u);
    EXPECT_EQ(zn.State(), UNCHANGED);
}

TEST(Runs, RunningQueueManagerIsStoppedUnlessItRefuses)
{
    Installation zn;
    fs::create_directories(zn.root / "inst\\bin64");
    for (const char* psz : {"endznm.exe", "tovxcs2.dll", "tovxzu.dll"})
        fs::copy_file(ProgramFolder() / psz, zn.root / "inst\\bin64" / psz);
    const auto sample = [&](const std::wstring& strWords) {
        return RunProgram(ProgramFolder() / "sampleqm.exe", strWords, zn.root).nStatus;
    };
    const auto end = [&] { return RunProgram(ProgramFolder() / "endznm.exe", L"-w QM2", zn.root).nStatus; };
    ASSERT_EQ(sample(L"create QM2 /files 20 /dd " + Quoted(zn.root / "d") + L" /ld " + Quoted(zn.root / "l")),
              0u);
    ASSERT_EQ(sample(L"start QM2"), 0u);
    const RunResult result = zn.Run(zn.MoveWords(L"QM2"));
    EXPECT_EQ(result.nStatus, 0u);
    EXPECT_EQ(result.strOut + result.strErr, "");
    EXPECT_FALSE(fs::exists(zn.root / "d\\qmgrs\\QM2"));
    EXPECT_EQ(sample(L"verify QM2"), 0u);
    const fs::path file = zn.newLog.parent_path() / "QM2\\file00001.rec";
    std::string strWhole = ReadAll(file), strDamaged = strWhole;
    strDamaged[strDamaged.find("message")] ^= 1;
    WriteAll(file, strDamaged);
    EXPECT_EQ(sample(L"verify QM2"), 3u);
    WriteAll(file, strWhole);
    EXPECT_EQ(end(), 3u); // not started again

    const RefusingQueueManager refusing(L"QM2");
    ASSERT_TRUE(refusing.fRuns);
    EXPECT_EQ(zn.Run(zn.MoveWords(L"QM2", "d", "l")).strErr, Message(33) + USAGE);
    EXPECT_FALSE(fs::exists(zn.root / "d\\qmgrs\\QM2"));
}

TEST(Runs, RefusalsChangeNothing)
{
    const struct
    {
        std::wstring strQueueManager, strData, strLog; // destinations below the root
        unsigned nMessage;
        std::string strInZnsIni = "", strInstead = ""; // what the configuration says otherwise
    } cases[] = {
        {L"qm1", L"newdata", L"newlog", 32},
        {std::wstring(300, L'Q'), L"newdata", L"newlog", 32},
        {L"\xD800%n", L"newdata", L"newlog", 32},
        {L"QM1", L"newdata", L"newlog", 32, "Directory=QM!1", "Directory=.."},
        {L"QM1", L"newdata", L"newlog", 32, "Name=Inst1", "Name=Inst2"},
        {L"QM1", L"newdata\\", L"oldlog", 42},
        {L"QM1", L"newdata", L"newlog:stream", 37},
        {L"QM1", L"newdata::$INDEX_ALLOCATION", L"newlog", 37},
        {L"QM1", L"newdata", L"x\\..\\oldlog", 37},
        {L"\"\"", L"newdata", L"newlog\" \"", 0},
    };
    for (const auto& c : cases)
    {
        SCOPED_TRACE(&c - cases);
        Installation zn;
        zn.strZnsIni.replace(zn.strZnsIni.find(c.strInZnsIni), c.strInZnsIni.size(), c.strInstead);
        WriteAll(zn.work / "zns.ini", zn.strZnsIni);
        const RunResult result = zn.Run(zn.MoveWords(c.strQueueManager, c.strData, c.strLog));
        ExpectRefusal(zn, result, c.nMessage, NOTHING_LOST);
        EXPECT_TRUE(zn.IsRestUntouched());
    }
}

// Whole drives are at stake where one of these is not refused.
TEST(Runs, PlacesThatCannotBeNamedAreRefused)
{
    const char* const pszNoCopy = "SHFileOperationW:1:a:7c:0";
    Installation prefixed;
    ExpectRefusal(prefixed, prefixed.Run(L"/m QM1 /dd C:\\a /ld \\\\?\\C:\\b", pszNoCopy), 37, UNCHANGED);
    const std::string strLongest = "D:\\" + std::string(128, 'l') + "\\" + std::string(129, 'm');
    Installation longest;
    WriteAll(longest.oldData / "qm.ini", "Log:\n   LogPath=" + strLongest);
    EXPECT_EQ(longest.Run(longest.MoveWords(), pszNoCopy).strErr, Message(38) + USAGE); // it is not there
    for (const std::string& strLogPath : std::vector<std::string>{
             strLongest + "x", "C:", "C:\\", "..", "", "C:\\.", "C:\\znm\\..", "C:\\\\\\\\", "\\\\?\\C:\\."})
    {
        SCOPED_TRACE(strLogPath);
        Installation zn;
        WriteAll(zn.oldData / "qm.ini", "Log:\n   LogPath=" + strLogPath);
        const Snapshot before = TakeSnapshot(zn.root);
        EXPECT_EQ(zn.Run(zn.MoveWords(), pszNoCopy).strErr, USAGE);
        EXPECT_EQ(TakeSnapshot(zn.root), before);
    }
}

TEST(Runs, FailingStepLeavesTheStateOfItsRow)
{
    const struct
    {
        const char* pszFaults;
        unsigned nMessage;
        std::string strState;
    } cases[] = {
        {"xcsGetQMDetails:6:o:1:0", 32, UNCHANGED},
        {"xcsGetQMDetails:7:o:1:0", 32, UNCHANGED},
        {"xcsIsSubpoolActive:1:a:0:0", 33, UNCHANGED}, // there is no end command to run
        {"CreateMutexW:1:o:0:5", 33, UNCHANGED},
        {"SHFileOperationW:2:o:7c:0", 38, "data ++ log +~ zns old qm old"},
        {"DeleteFileW:2:o:0:20", 40, "data ~+ log ++ zns new qm new"},
        {"DeleteFileW:6:a:0:20", 40, "data -+ log ++ zns new qm new"},
        {"DeleteFileW:7:a:0:20", 40, "data -+ log ~+ zns new qm new"},
    };
    for (const auto& c : cases)
    {
        SCOPED_TRACE(c.pszFaults);
        Installation zn;
        ExpectRefusal(zn, zn.Run(zn.MoveWords(), c.pszFaults), c.nMessage, c.strState);
        EXPECT_TRUE(zn.IsRestUntouched());
        EXPECT_EQ(zn.Calls("xcsTerminate"), 1);
    }
}
