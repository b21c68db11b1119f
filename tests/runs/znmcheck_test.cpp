// Whole runs of tarvelcheck.exe: what it says before a move and after one, however it ended.
#include "checked.h"

using testing::HasSubstr;

namespace
{
struct Case
{
    std::string strDone = "", strSays = ""; // see Installation::Do
    DWORD nStatus = 1;
    int nRemovals = 0; // how many trees are named for deletion
    const char* pszFault = "";
    // Words, after a move instead of the record or the old places; the destinations below the root.
    const wchar_t *pszMore = L"", *pszData = L"newdata", *pszLog = L"newlog";
};

void Look(bool fAfter, const std::vector<Case>& cases)
{
    for (const Case& c : cases)
    {
        Checked zn;
        zn.Do(c.strDone);
        zn.strMove = zn.MoveWords(L"QM1", c.pszData, c.pszLog);
        if (*c.pszMore != L'\0')
            zn.strOldPlaces = c.pszMore;
        const Snapshot before = TakeSnapshot(zn.root);
        const RunResult said =
            fAfter ? zn.After(c.pszFault) : zn.Look(L"before " + zn.strMove + c.pszMore, c.pszFault);
        int nRemovals = 0;
        for (size_t n = 0; (n = said.strOut.find("rmdir", n)) != std::string::npos; ++n)
            ++nRemovals;
        EXPECT_THAT(said.strOut, HasSubstr(c.strSays)) << c.strDone;
        EXPECT_EQ(said.nStatus, c.nStatus) << c.strDone << "\n" << said.strOut;
        EXPECT_EQ(nRemovals, c.nRemovals) << said.strOut;
        EXPECT_EQ(fs::remove(zn.root / "r"), c.pszMore == std::wstring(L" /record r") && c.nStatus == 0);
        EXPECT_EQ(TakeSnapshot(zn.root), before);
        if (!fAfter || c.nStatus != 2 || nRemovals == 1) // one tree stays, tied to something
            continue;
        EXPECT_TRUE(zn.Recover(FINISH) || zn.Recover(TAKE_BACK)) << c.strDone << zn.After().strOut;
        const Snapshot recovered = TakeSnapshot(zn.root);
        for (const auto& [strName, strContent] : before) // but for what the library left beside a qm.ini
            EXPECT_TRUE(!strName.starts_with(L"old") || strName.ends_with(L"qm.ini") ||
                        strName == L"olddata\\qmgrs\\QM!1\\ZN0123456789ABCDEF.tmp" ||
                        std::ranges::any_of(recovered,
                                            [&, &strOld = strContent](const auto& now) {
                                                return now.second.starts_with(strOld);
                                            }))
                << c.strDone << fs::path(strName);
    }
}
} // namespace

TEST(CheckBefore, FindsWhatStopsAMove)
{
    const std::string strLong =
        "write OL\\" + std::string(230 - fs::temp_directory_path().string().size(), 'n');
    Look(
        false,
        {{"", "Nothing stops the move", 0},
         {"", "8 files, 9,", 0, 0, "", L" /record r"},
         {.strSays = "would end with: " + Message(42, CP_UTF8), .pszData = L"olddata"},
         {.strSays = "is the old directory", .pszData = L"OLDDATA"},
         {.strSays = "lies in an old tree", .pszLog = L"olddata\\qmgrs\\QM!1\\x"},
         {.strSays = "both destinations are one directory", .pszData = L"one", .pszLog = L"one\\qmgrs"},
         {.strDone = "write OD\\s\\QM!1\\x x", .strSays = "both trees", .pszLog = L"newdata\\qmgrs\\QM!1\\s"},
         {.strSays = "reserved name", .pszData = L"a\\con"},
         {.strSays = "the volume of Y:\\x", .pszData = L"Y:\\x"},
         {"write R\\newdata x", "is a file or cannot"},
         {"write NL\\ctl x", "that the old tree does not have. The"},
         {"write NL\\ctl x", "record: not written", 1, 0, "", L" /record r"},
         {"write NL\\ctl lll", "it will be overwritten", 0},
         {"protect OD\\qm.ini", "is read-only"},
         {"write OD\\qm.ini x", "LogPath is missing"},
         {"zns Name=QM1 Name=QM1\n   MultiInstance=Yes", "multi-instance"},
         {"link OL\\l R\\bystander", "links: "},
         {"link R\\other\\qmgrs\\QM0 OD\\s", "manager QM0 lies in"},
         {"write NL\\x x;link R\\other\\qmgrs\\QM0 R\\newlog", "directory of the queue manager QM0"},
         {.strDone = strLong, .strSays = "too long in the new place", .pszLog = L"much-longer-than-before"},
         {"hold OD\\a", "file cannot be read: "},
         {"", "was not written. The file", 1, 0, "ReadFile:9:o:0:5", L" /record r"},
         {"", "cannot be made anew", 1, 0, "", L" /record bystander\\file"},
         {"", "lie in a tree that moves", 1, 0, "", L" /record oldlog\\QM!1\\r"},
         {"", "does not run elevated", 0, 0, "OpenProcessToken:1:o:0:5"},
         {"", "net localgroup znm /add", 1, 0, "LookupAccountNameW:1:o:0:534"},
         {"", "not of level", 1, 0, "xcsCheckConsistency:1:o:1:0"},
         {"", "they do not start", 1, 0, "xcsInitializeEx:1:o:1:0"},
         {"", "ends with status 71", 1, 0, "xcsCheckAuthorization:1:o:40806177:0"},
         {"", "ends with status 119", 1, 0, "xcsCheckAuthorization:1:o:40806178:0"},
         {"", "keeps no access lists", 1, 0, "xcsVolumeSupportsSecurity:1:o:40806178:0"},
         {"", "have named streams, which", 0, 0, "GetVolumeInformationW:1:o:1:0;FindFirstStreamW:1:o:10:0"},
         {"", "make room, or", 1, 0, "GetDiskFreeSpaceExW:1:o:1:0"}});
}

TEST(CheckAfter, SaysWhatItKnows)
{
    const std::string strPassing = "ZN0123456789ABCDEF.tmp x";
    Look(true, {{"record;moved", ", as recorded", 0},
                {"record;moved;write NL\\ctl zeroed", "Only if the queue manager ran", 3},
                {"record;moved;remove ND\\a", "missing: ", 3},
                {"copied", "cannot be used: it is no record", 3, 0, "", L" /record bystander\\file"},
                {.strDone = "record;copied", .strSays = "of other dest", .nStatus = 3, .pszData = L"x"},
                {.strDone = "record;copied", .strSays = "of other dest", .nStatus = 3, .pszLog = L"x"},
                {"moved;remove NL", "is not there", 3},
                {"moved;link NL\\l R\\bystander", "is a link; ", 0},
                {"moved;zns newdata NEWDATA", "another spelling", 3},
                {"moved;copy R\\c R\\newdata;zns newdata c", "no step of this move", 3},
                {"moved", "services of level", 3, 0, "xcsInitializeEx:1:o:1:0"},
                {"moved", "counts cannot be read. ", 3, 0, "FindFirstFileExW:1:o:ffffffffffffffff:5"},
                {"moved", "old places are not known", 3, 0, "", L" "},
                {"moved", "cannot be seen", 3, 0, "", L" /od Y:\\x\\qmgrs\\QM!1 /ol Y:\\l"},
                {"moved", "must end in", 3, 0, "", L" /od C:\\x /ol C:\\l"},
                {"left", "A deletion is valid now", 2, 2},
                {"left;write OL\\ctl x", "another content", 3},
                {"left;append OL\\ctl x", "newer ones", 2},
                {"left;append ND\\a x;zeros NL\\ctl", "old log tree is the newer one", 2},
                {"left;write OD\\s\\" + strPassing, "newer ones", 2},
                {"left;write OL\\" + strPassing, "newer one", 2},
                {"left;write OD\\" + strPassing, "is left", 2, 2},
                {"left;remove NL\\ctl;link NL\\ctl OL\\ctl", "directory or file of an old tree", 2, 1},
                {"left;hard R\\bystander\\ctl OL\\ctl", "ren ", 2, 1},
                {"left;link OL\\l R\\bystander;copy NL\\l R\\bystander", "ren ", 2, 1},
                {"left;link NL\\l OL\\active", "leads to a directory", 2, 1},
                {"left;link R\\other\\qmgrs\\QM0 OD\\s", "another queue manager", 2, 1},
                {"left;remove OD\\qm.ini;zns newdata olddata", "is not there, or has no", 2},
                {"left;append NL\\ctl x;zns newdata olddata", "all of the old ones and more", 2},
                {"between;remove ND\\a", "missing", 2},
                {"between;append NL\\ctl x", "LogPath=", 2},
                {"between;write NL\\ctl lll", "xcopy ", 2},
                {"copied", "tarvel.exe", 1, 2},
                {"copied;zeros NL\\ctl", "but for zeros", 1, 2},
                {"copied;write NL\\ctl x", "did not run from", 3}});
}

TEST(CheckWords, AreThoseOfTheCommand)
{
    using Words = std::tuple<const wchar_t*, DWORD, const char*>;
    Checked zn;
    for (const auto& [pszWords, nStatus, pszSays] :
         {Words{L"", 5, "One of the words"},
          {L"after /m QM1 /dd C:\\a", 5, "is missing: /ld"},
          {L"after /m QM1 /m QM1 /dd C:\\a /ld C:\\b", 5, "not expected: /m"},
          {L"after /m /dd C:\\a /ld C:\\b", 5, "after /m"},
          {L"after /m QM1 /dd C:\\a /ld C:\\b /od x", 5, "below a root: x"},
          {L"before /m QM1 /dd C:\\a /ld C:\\b /od C:\\x", 5, "are for after"},
          {L"before /m QM9 /dd C:\\a /ld C:\\b", 1, "zns.ini has none named QM9"},
          {L"-LD C:/b/ -m QM9 AFTER -dd C:\\a", 3, "no queue manager of this name"},
          {L"watch /m QM1 --HELP", 0, "Usage: tarvelcheck before"}})
    {
        const RunResult said = zn.Look(pszWords);
        EXPECT_EQ(said.nStatus, nStatus) << said.strOut;
        EXPECT_THAT(said.strOut, HasSubstr(pszSays));
    }
    const std::string strOut = zn.Look(L"watch " + zn.MoveWords()).strOut;
    const std::regex head("^tarvelcheck [0-9.]+, 20.{17} UTC, 20.{17} local time, machine .+, user .+\r\n"
                          "Words: watch /m QM1.*\r\nNo move is under way");
    EXPECT_TRUE(std::regex_search(strOut, head)) << strOut;
}

// The only copy of a file is in the old tree. Whatever the look fails to see, it names no deletion.
TEST(CheckAfter, FailingCallsLeadToNoDeletion)
{
    Checked zn;
    zn.Do("record;left;remove ND\\s\\t\\c");
    zn.After("xcsTerminate:0:o:0:0"); // counts
    std::vector<std::string> faults = {"", ""};
    for (const std::string strFunction :
         {"CreateFileW", "FindFirstFileExW", "GetFileAttributesW", "FindNextFileW", "ReadFile",
          "GetFileInformationByHandleEx", "BCryptHashData", "xcsGetQMDetails", "xcsIniUtilRead"})
    {
        const bool fFalse = strFunction == "FindNextFileW" || strFunction == "ReadFile" ||
                            strFunction.starts_with("GetFileI");
        const long nCalls = zn.Calls(strFunction);
        ASSERT_GT(nCalls, 0) << strFunction;
        for (long nCall = 1; nCall <= nCalls; nCall += 1 + nCalls / 5)
            faults.push_back(Fault(strFunction, nCall, nCall % 3 == 0 ? "a:" : "o:") +
                             (fFalse ? "0:5" : "ffffffffffffffff:5"));
    }
    for (const std::string& strFault : faults)
    {
        zn.fRecord = !zn.fRecord;
        const RunResult said = zn.After(strFault);
        EXPECT_THAT(said.strOut, Not(HasSubstr("rmdir"))) << strFault;
        EXPECT_GT(said.nStatus, 1u) << strFault;
    }
}

TEST(CheckAfter, LooksAgainAtTheEnd)
{
    Checked zn;
    zn.Do("left");
    zn.After("xcsTerminate:0:o:0:0");
    const RunResult said = zn.After(Fault("ReadFile", zn.Calls("ReadFile") - 4, "w:0:0"), // none of the last
                                    [&] { zn.Run(zn.MoveWords(L"QM1", "third", "fourth")); });
    EXPECT_EQ(said.nStatus, 3u) << said.strOut;
    EXPECT_THAT(said.strOut, AllOf(HasSubstr("while it was looked at"), Not(HasSubstr("rmdir"))));
}

TEST(CheckAfter, CanBeRunWhileTheQueueManagerRuns)
{
    Checked zn;
    RunProgram(ProgramFolder() / "sampleqm.exe",
               L"create QM2 /dd " + Quoted(zn.root / "q") + L" /ld " + Quoted(zn.root / "l") + L" /files 20",
               zn.root);
    EXPECT_EQ(RunProgram(ProgramFolder() / "sampleqm.exe", L"start QM2", zn.root).nStatus, 0u);
    const std::wstring strWords = zn.MoveWords(L"QM2") + L" /record r";
    const RunResult before = zn.Look(L"before " + strWords);
    zn.Do("append R\\q\\qmgrs\\QM2\\qm.ini # went on");
    const RunResult after = zn.Look(L"after " + strWords);
    EXPECT_EQ(RunProgram(ProgramFolder() / "endznm.exe", L"-i QM2", zn.root).nStatus, 0u);
    EXPECT_THAT(before.strOut, HasSubstr("was written while the queue manager runs"));
    EXPECT_EQ(before.nStatus, 0u) << before.strOut;
    EXPECT_THAT(after.strOut, AllOf(HasSubstr("endznm -w"), HasSubstr("but for what was added since")));
    EXPECT_EQ(after.nStatus, 1u) << after.strOut;
}

TEST(CheckWatch, TellsThePhaseOfAMove)
{
    for (const auto& [pszPause, pszPhase] :
         {std::pair("SHFileOperationW:1:w:0:0", "copying data: 5 of 5 files, "),
          {"SHFileOperationW:2:w:0:0", "copying the log: 3 of 3 files, 9,027 of 9,027 bytes, 100%"},
          {"DeleteFileW:1:w:0:0", "deleting the old trees"}})
    {
        Checked zn;
        const fs::path output = zn.root / "watched";
        KernelHandle watch;
        zn.Run(zn.strMove, pszPause, [&] {
            EXPECT_THAT(zn.Look(L"before " + zn.strMove).strOut, HasSubstr("STOP  other moves: "));
            EXPECT_THAT(zn.After().strOut, HasSubstr("olddata\\qmgrs\\QM!1: not looked at"));
            watch = StartProgram(L"C:\\windows\\system32\\cmd.exe",
                                 L"/c \"" + Quoted(ProgramFolder() / "tarvelcheck.exe") + L" watch " +
                                     zn.strMove + L" >watched\"",
                                 zn.root);
            for (int n = 0; n < 500 && ReadAll(output).find("watched") == std::string::npos; ++n)
                Sleep(20);
        });
        EXPECT_EQ(WaitForSingleObject(watch.Get(), 20'000), DWORD{WAIT_OBJECT_0});
        EXPECT_THAT(ReadAll(output), AllOf(HasSubstr(pszPhase), HasSubstr("The move is over"),
                                           HasSubstr("tarvelcheck.exe\" after /m \"QM1\" /dd")));
    }
}
