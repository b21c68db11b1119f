// Whole runs of the shipped program where the platform's copy, a link, a path or another program would cost
// data.
#include <thread>

#include "refusal.h"

using testing::HasSubstr;

namespace
{
// A file, or a directory, whose path has that length.
void MakeLong(const fs::path& dir, size_t nLength, bool fFile)
{
    const std::wstring strName(nLength - dir.wstring().size() - 1, L'n');
    const fs::path path = L"\\\\?\\" + (dir / strName).wstring();
    if (fFile)
        std::ofstream{path};
    else
        CreateDirectoryW(path.c_str(), nullptr); // the runtime's own refuse the prefix
}
} // namespace

// Before the copy: what lies in a destination, and what a destination is. Nothing is copied.
TEST(Safety, LeftoversThatLeadElsewhereEndTheMoveBeforeTheCopy)
{
    const auto hardLink = [](const fs::path& link, const fs::path& file) {
        fs::create_directories(link.parent_path());
        ASSERT_TRUE(CreateHardLinkW(link.c_str(), file.c_str(), nullptr));
    };
    const char *const pszNames = "has other names", *const pszOld = "leads to a directory or file of an old";
    const struct
    {
        std::function<void(Installation&)> prepare;
        const char* pszFinding;
        bool fLink = false; // which the platform may show by its tag instead
        const wchar_t* pszNewLog = L"newlog";
    } cases[] = {
        {[&](Installation& zn) { // one file in both destinations
             for (const fs::path& dir : {zn.oldData, zn.oldLog, zn.newData})
                 WriteAll(dir / "lock.dat", dir.string());
             hardLink(zn.newLog / "lock.dat", zn.newData / "lock.dat");
         },
         pszNames},
        {[&](Installation& zn) { // one file twice in one destination
             WriteAll(zn.newLog / "active\\log1", "");
             hardLink(zn.newLog / "active\\x\\log2", zn.newLog / "active\\log1");
         },
         pszNames},
        {[&](Installation& zn) { hardLink(zn.newData / "a", zn.oldData / "s\\t\\c"); }, pszNames},
        {[&](Installation& zn) { hardLink(zn.newLog / "ctl", zn.oldData / "a"); }, pszNames},
        {[&](Installation& zn) { MakeLink(zn.newData / "a", zn.oldData / "s\\t\\c"); }, pszOld, true},
        {[&](Installation& zn) { MakeLink(zn.newLog / "ctl", zn.oldData / "a"); }, pszOld, true},
        {[&](Installation& zn) { MakeLink(zn.newData / "a", zn.oldData / "a"); }, pszOld, true},
        {[&](Installation& zn) { // another queue manager's directory
             WriteAll(zn.newData / "qm.ini", "Log:\n   LogPath=C:\\other\n# kept");
         },
         "belongs to another queue manager"},
        {[&](Installation& zn) {
             WriteAll(zn.newData / "qm.ini", ReadAll(zn.oldData / "qm.ini") + "\nChannels:\n");
         },
         "belongs to another queue manager"},
        {[&](Installation& zn) { // likewise, whose qm.ini could be this one's
             const std::string strRoot = zn.root.string();
             zn.strZnsIni += "QueueManager:\r\n   Name=qm1\r\n   Prefix=" + strRoot +
                             "\\NewData\r\n   Directory=qm!1\r\n   InstallationName=Inst1\r\n";
             WriteAll(zn.work / "zns.ini", zn.strZnsIni);
             WriteAll(zn.newData / "qm.ini", "Log:\n   LogPath=" + strRoot + "\\newlog\\qm!1\\\n# kept");
         },
         "belongs to another queue manager"},
        {[&](Installation& zn) { // the new log directory is the work path
             fs::rename(zn.work, zn.root / "QM!1");
             MakeLink(zn.work, zn.root / "QM!1");
             WriteAll(zn.oldLog / "zns.ini", "of the log");
             SetEnvironmentVariableW(L"ZN_WORK_PATH", (zn.root / "QM!1").c_str());
         },
         "is the directory of zns.ini", false, L""},
        {[&](Installation& zn) {
             MakeLink(zn.newData / "s", zn.work);
             WriteAll(zn.oldData / "s\\zns.ini", "of the data");
         },
         "is the directory of zns.ini"},
    };
    for (const auto& c : cases)
    {
        SCOPED_TRACE(&c - cases);
        Installation zn;
        c.prepare(zn);
        zn.Remember();
        const Snapshot data = TakeSnapshot(zn.newData), log = TakeSnapshot(zn.newLog);
        ExpectRefusal(zn, zn.Traced(zn.MoveWords(L"QM1", L"newdata", c.pszNewLog)), 38, NOTHING_LOST);
        EXPECT_EQ(TakeSnapshot(zn.newData), data);
        EXPECT_EQ(TakeSnapshot(zn.newLog), log);
        EXPECT_TRUE(zn.strTrace.find(c.pszFinding) != std::string::npos ||
                    (c.fLink && zn.strTrace.find("through a link") != std::string::npos));
    }
}

// While the move goes on somebody changes a tree or a copy, or swaps a directory for a link: everything is
// still in one whole tree, and nothing is deleted that is not in the other one.
TEST(Safety, TreeOrCopyThatChangesOnTheWayEndsTheMove)
{
    const char *const pszCopied = "SHFileOperationW:1:w:0:0",      // data copied, not yet compared
        *const pszBothCopied = "SHFileOperationW:2:w:0:0",         // and the log
            *const pszSecured = "SetCurrentDirectoryW:4:w:0:0",    // both compared, rights set
                *const pszBetween = "xcsIniUtilWrite:1:w:0:0",     // between the two changes
                    *const pszChanged = "xcsIniUtilWrite:2:w:0:0"; // before the deletion
    const auto swap = [](const fs::path& dir, const fs::path& target) {
        fs::rename(dir, dir.string() + ".aside");
        MakeLink(dir, target);
    };
    using Act = std::function<void(Installation&)>;
    const Act rewriteCopy = [](Installation&zn) { WriteAll(zn.newData / "a", "DATA a"); },
              linkCopy = [&](Installation&zn) { swap(zn.newData / "s", zn.oldData / "s"); },
              linkDeepCopy = [&](Installation&zn) { swap(zn.newData / "s\\t\\u", zn.oldData / "s\\t\\u"); },
              linkLogCopy = [&](Installation&zn) { swap(zn.newLog, zn.oldLog); },
              linkOld = [&](Installation&zn) { swap(zn.oldData / "s", zn.newData / "s"); },
              linkOldLog = [&](Installation&zn) { swap(zn.oldLog, zn.newLog); },
              cutCopy = [](Installation&zn) { fs::resize_file(zn.newData / "a", 1); },
              cutLogCopy = [](Installation&zn) { fs::resize_file(zn.newLog / "active\\x\\log2", 1); },
              removeCopy = [](Installation&zn) { fs::remove(zn.newData / "a"); },
              removeLogCopy = [](Installation&zn) { fs::remove(zn.newLog / "active\\x\\log2"); },
              removeDisk = [](Installation&zn) { fs::rename(zn.root / "newlog", zn.root / "newlog.gone"); },
              addFirst = [](Installation&zn) { WriteAll(zn.oldData / "0", "new"); },
              addLast = [](Installation&zn) { WriteAll(zn.oldLog / "z", "new"); },
              hideOld = [](Installation&zn) { fs::rename(zn.oldLog, zn.root / "oldlog\\aside"); },
              replaceOld = [](Installation&zn) {
                  fs::rename(zn.oldData / "s", zn.root / "bystander\\s");
                  fs::copy(zn.root / "bystander\\s", zn.oldData / "s", fs::copy_options::recursive);
              };
    const std::tuple<const char*, const Act*, unsigned> cases[] = {
        {pszCopied, &cutCopy, 38},         {pszCopied, &removeCopy, 38},
        {pszBothCopied, &cutLogCopy, 38},  {pszBothCopied, &removeLogCopy, 38},
        {pszCopied, &linkCopy, 38},        {pszCopied, &linkDeepCopy, 38},
        {pszBothCopied, &rewriteCopy, 38}, {pszBothCopied, &linkLogCopy, 38},
        {pszSecured, &linkCopy, 38},       {pszSecured, &linkOld, 38},
        {pszSecured, &linkOldLog, 38},     {pszSecured, &removeCopy, 38},
        {pszSecured, &removeLogCopy, 38},  {pszSecured, &replaceOld, 38},
        {pszSecured, &addFirst, 38},       {pszSecured, &addLast, 38},
        {pszSecured, &hideOld, 38},        {pszBetween, &linkCopy, 40},
        {pszBetween, &linkLogCopy, 40},    {pszBetween, &linkOld, 40},
        {pszBetween, &linkOldLog, 40},     {pszBetween, &rewriteCopy, 40},
        {pszChanged, &removeCopy, 40},     {pszChanged, &removeLogCopy, 40},
        {pszChanged, &removeDisk, 40},     {pszChanged, &replaceOld, 40},
    };
    for (const auto& [pszMoment, pAct, nMessage] : cases)
    {
        SCOPED_TRACE(testing::Message() << pszMoment << " case " << (&pszMoment - &std::get<0>(cases[0])));
        Installation zn;
        const RunResult result = zn.Run(zn.MoveWords(), pszMoment, [&, p = pAct] { (*p)(zn); });
        EXPECT_EQ(result.nStatus, FAILED);
        EXPECT_EQ(result.strErr, Message(nMessage) + USAGE);
        // Each file by its bytes, wherever the swap has put it.
        Snapshot all = TakeSnapshot(zn.root);
        for (const Snapshot* const pTree : {&zn.data, &zn.log})
            for (const auto& [strName, strContent] : *pTree)
                EXPECT_TRUE(strContent == "<dir>" ||
                            std::ranges::any_of(
                                all, [&, &str = strContent](auto& entry) { return entry.second == str; }))
                    << fs::path(strName);
        EXPECT_EQ(zn.State().find("zns old") != std::string::npos, nMessage == 38);
    }
}

// Two moves at a time: not of one queue manager, not of two with the same directory name into one directory,
// in whatever spelling, but of these into two.
TEST(Safety, TwoMovesNeverShareATree)
{
    const std::tuple<const wchar_t*, const wchar_t*, unsigned> cases[] = {
        {L"QM1", L"third", 33}, {L"QM2", L"NEWDATA", 38}, {L"QM2", L"third", 0}};
    for (const auto& [pszName, pszNewData, nMessage] : cases)
    {
        Installation zn;
        zn.strZnsIni += "QueueManager:\r\n   Name=QM2\r\n   Prefix=" + zn.root.string() +
                        "\\second\r\n   Directory=QM!1\r\n   InstallationName=Inst1\r\n";
        WriteAll(zn.work / "zns.ini", zn.strZnsIni);
        WriteAll(zn.root / "second\\qmgrs\\QM!1\\qm.ini",
                 "Log:\n   LogPath=" + zn.root.string() + "\\secondlog\\QM!1\n");
        WriteAll(zn.root / "secondlog\\QM!1\\ctl", "second");
        RunResult second;
        const RunResult first =
            zn.Run(zn.MoveWords(), "SHFileOperationW:2:w:0:0", [&, p = pszName, pszTo = pszNewData] {
                const std::wstring strWords = zn.MoveWords(p, pszTo, "thirdlog");
                second = RunProgram(ProgramFolder() / "tarvel.exe", strWords, zn.root);
            });
        EXPECT_EQ(first.nStatus, 0u);
        EXPECT_EQ(second.strErr, nMessage != 0 ? Message(nMessage) + USAGE : "");
        EXPECT_EQ(zn.State().substr(0, 14), "data -+ log -+");
        EXPECT_EQ(ReadAll(zn.root / (nMessage != 0 ? "secondlog" : "thirdlog") / "QM!1\\ctl"), "second");
        EXPECT_EQ(fs::exists(zn.root / "second\\qmgrs\\QM!1"), nMessage != 0);
    }
}

// Names and volumes that look odd, and lose nothing.
TEST(Safety, MovesThatLoseNothingAreNotRefused)
{
    const struct
    {
        const char *pszPrefix = "olddata", *pszLogPath = "oldlog\\QM!1\\"; // behind the root
        const wchar_t* pszNewData = L"newdata";
        const char *pszVolume = "", *pszFaults = "xcsTerminate:0:o:0:0";
    } cases[] = {
        {.pszNewData = L"newdata\\\\x"},
        {.pszNewData = L"newdata//x//y"},
        {.pszPrefix = "\\olddata"},
        {.pszPrefix = ".\\olddata"},
        {.pszPrefix = "bystander/../olddata"},
        {.pszLogPath = "oldlog\\\\QM!1"},
        {.pszLogPath = ".\\oldlog/QM!1/"},
        {.pszFaults = "xcsGetQMDetails:3:o:1:0"}, // one failing query, and the next one answers again
        {.pszFaults = "CreateMutexW:1:a:0:8"},
        {.pszVolume = "zns.ini"},
        {.pszVolume = "Y:\\nowhere\\zns.ini"},
        {.pszVolume = "C:/zns.ini"},
        {.pszVolume = "behind"},
        {.pszVolume = "changing"},
        {.pszVolume = "template"},
    };
    for (const auto& c : cases)
    {
        SCOPED_TRACE(&c - cases);
        Installation zn;
        const std::string strRoot = zn.root.string() + "\\";
        zn.strZnsIni.replace(zn.strZnsIni.find(strRoot + "olddata"), strRoot.size() + 7,
                             strRoot + c.pszPrefix);
        WriteAll(zn.work / "zns.ini", zn.strZnsIni);
        WriteAll(zn.oldData / "qm.ini", "Log:\n   LogPath=" + strRoot + c.pszLogPath + "\n# kept");
        zn.Remember();
        fs::create_directories(zn.newLog / "active"); // a leftover
        SetEnvironmentVariableA("ZN_FAULTS_VOLUME", *c.pszVolume != '\0' ? c.pszVolume : nullptr);
        const RunResult result = zn.Traced(zn.MoveWords(L"QM1", c.pszNewData), c.pszFaults);
        SetEnvironmentVariableW(L"ZN_FAULTS_VOLUME", nullptr);
        EXPECT_EQ(result.nStatus, 0u)
            << result.strErr << zn.strTrace.substr(zn.strTrace.rfind("Nothing is") % zn.strTrace.size(), 200);
        EXPECT_FALSE(fs::exists(zn.oldData));
        EXPECT_FALSE(fs::exists(zn.oldLog));
        Snapshot moved = TakeSnapshot(zn.root / c.pszNewData / "qmgrs\\QM!1");
        EXPECT_THAT(moved[L"qm.ini"], HasSubstr("\\newlog\\QM!1\\\n# kept"));
        moved[L"qm.ini"] = zn.data[L"qm.ini"];
        EXPECT_EQ(moved, zn.data);
        EXPECT_EQ(TakeSnapshot(zn.newLog), zn.log);
    }
}

// A volume that keeps whole seconds is asked what it makes of a time; a leftover that a program holds is no
// copy, however near its time is.
TEST(Safety, TimesAreThoseThatTheVolumeKeeps)
{
    for (const bool fKeepsSeconds : {true, false})
    {
        Installation zn;
        SetEnvironmentVariableW(L"ZN_FAULTS_VOLUME", fKeepsSeconds ? L"seconds" : nullptr);
        FileHandle held;
        const auto round = [&](const fs::path& dir) {
            for (const auto& entry : fs::recursive_directory_iterator(dir))
                if (const DWORD n = GetFileAttributesW(entry.path().c_str());
                    (n & FILE_ATTRIBUTE_DIRECTORY) == 0)
                {
                    SetFileAttributesW(entry.path().c_str(), FILE_ATTRIBUTE_NORMAL);
                    fs::last_write_time(entry, fs::file_time_type(std::chrono::floor<std::chrono::seconds>(
                                                   fs::last_write_time(entry).time_since_epoch())));
                    SetFileAttributesW(entry.path().c_str(), n);
                }
        };
        const RunResult result =
            zn.Run(zn.MoveWords(), "SHFileOperationW:1:w:0:0", [&] { round(zn.newData); });
        SetEnvironmentVariableW(L"ZN_FAULTS_VOLUME", nullptr);
        EXPECT_EQ(result.strErr, fKeepsSeconds ? "" : Message(38) + USAGE);
        EXPECT_EQ(zn.State().substr(0, 7), fKeepsSeconds ? "data -+" : "data ++");
    }
}

// Over what a first run left the same command completes the move; also after the configuration was set back.
TEST(Safety, SameCommandCompletesTheMoveOverWhatAnEarlierRunLeft)
{
    for (const char* pszFaults :
         {"xcsCreateDirectory:2:o:1:0", "SHFileOperationW:1:o:7c:0", "SHFileOperationW:2:k:0:0",
          "SetNamedSecurityInfoW:9:a:5:5", "xcsIniUtilWrite:1:o:1:0", "xcsIniUtilWrite:1:k:0:0",
          "DeleteFileW:1:o:0:20"})
    {
        SCOPED_TRACE(pszFaults);
        Installation zn;
        zn.Run(zn.MoveWords(), pszFaults);
        const std::string strBegin = ReadAll(zn.newData / "qm.ini").substr(0, 9);
        if (pszFaults == std::string("SHFileOperationW:2:k:0:0")) // a copy that was cut off
            WriteAll(zn.newData / "qm.ini", strBegin + std::string(20, '\0'));
        WriteAll(zn.work / "zns.ini", zn.strZnsIni);
        EXPECT_EQ(zn.Run(zn.MoveWords()).nStatus, 0u);
        EXPECT_EQ(zn.State(), MOVED);
    }
}

// The platform's copy says nothing of these.
TEST(Safety, FilesThatAreHeldOrInTheWayEndTheMove)
{
    const std::pair<const wchar_t*, bool> cases[] = {
        {L"olddata\\qmgrs\\QM!1\\a", true},
        {L"newlog\\QM!1\\ctl", true},
        {L"newdata\\qmgrs\\QM!1\\a\\x", false}, // a directory in the place of a file
        {L"newdata\\qmgrs\\QM!1\\s", false},    // a file in the place of a directory
    };
    for (const auto& [pszFile, fHeld] : cases)
    {
        SCOPED_TRACE(pszFile);
        Installation zn;
        WriteAll(zn.root / pszFile, "in the way");
        zn.Remember();
        FileHandle held = fHeld ? Hold(zn.root / pszFile) : FileHandle();
        const RunResult result = zn.Run(zn.MoveWords());
        held.Close();
        ExpectRefusal(zn, result, 38, NOTHING_LOST);
    }
}

// Found before anything is copied.
TEST(Safety, LookAtTheSourcesRefuses)
{
    struct Case
    {
        const char* pszFinding;
        const wchar_t *pszNewData = L"newdata", *pszNewLog = L"newlog"; // below the root
        Change change = {};
        void (*prepare)(const Installation&) = [](const Installation&) {};
        const char* pszFaults = "";
    };
    const char *const pszNewDirectory = "is a new directory",
                      *const pszShared = "Two directories would be copied",
                      *const pszTooLong = "too long in the new place: ";
    const Case cases[] = {
        {pszNewDirectory, L"OLDDATA"},
        {pszNewDirectory, L"newdata", L"OldLog"},
        {pszNewDirectory, L"olddata\\qmgrs\\QM!1\\s"},
        {pszNewDirectory, L"newdata", L"olddata\\qmgrs"},
        {pszNewDirectory, L"newdata", L"link", {.pszLink = "link", .pszTarget = "olddata\\qmgrs\\QM!1\\s"}},
        {.pszFinding = pszNewDirectory,
         .change = {.pszLink = "oldlog\\QM!1\\link", .pszTarget = "newdata\\qmgrs\\QM!1"}},
        {.pszFinding = pszShared, .change = {.pszLink = "newlog", .pszTarget = "newdata\\qmgrs"}},
        {.pszFinding = pszShared,
         .change = {.pszLink = "newdata\\qmgrs\\QM!1\\s", .pszTarget = "newlog\\QM!1\\active"}},
        {.pszFinding = "The new place leads to a directory or file of an old tree",
         .change = {.pszLink = "newdata\\qmgrs\\QM!1\\s", .pszTarget = "oldlog\\QM!1\\active"}},
        {.pszFinding = "A link leads back",
         .change = {.pszLink = "olddata\\qmgrs\\QM!1\\s\\up", .pszTarget = "olddata\\qmgrs\\QM!1"}},
        {.pszFinding = "is the directory of zns.ini",
         .change = {.pszLink = "olddata\\qmgrs\\QM!1\\link", .pszTarget = "work"}},
        {.pszFinding = "cannot be listed", .change = {.pszRemove = "oldlog\\QM!1"}},
        {.pszFinding = "cannot be listed",
         .change = {.pszRemove = "oldlog\\QM!1", .pszWrite = "oldlog\\QM!1"}},
        // A directory that may not be read, and one that cannot be read to its end.
        {.pszFinding = "cannot be listed", .pszFaults = "FindFirstFileExW:2:o:ffffffffffffffff:5"},
        {.pszFinding = "cannot be listed", .pszFaults = "FindNextFileW:3:o:0:5"},
        // Files may have 259 characters, directories 247.
        {pszTooLong,
         L"newdata",
         L"newlogs",
         {},
         [](const Installation& zn) { MakeLong(zn.oldLog, 259, true); }},
        {pszTooLong,
         L"newdatas",
         L"newlog",
         {},
         [](const Installation& zn) { MakeLong(zn.oldData, 247, false); }},
        {"The path is too long to be copied: ",
         L"n",
         L"newlog",
         {},
         [](const Installation& zn) { MakeLong(zn.oldData, 248, false); }},
    };
    for (const Case& c : cases)
    {
        SCOPED_TRACE(&c - cases);
        Installation zn;
        zn.Apply(c.change);
        c.prepare(zn);
        fs::create_directories(zn.root / c.pszNewData / "qmgrs\\QM!1");
        fs::create_directories(zn.root / c.pszNewLog / "QM!1");
        zn.Remember();
        ExpectRefusal(zn, zn.Traced(zn.MoveWords(L"QM1", c.pszNewData, c.pszNewLog), c.pszFaults), 38,
                      "data +? log ?? zns old qm old");
        EXPECT_EQ(TakeSnapshot(zn.oldLog), zn.log);
        EXPECT_THAT(zn.strTrace, HasSubstr(c.pszFinding));
        EXPECT_THAT(zn.strTrace, testing::Not(HasSubstr("Copying '")));
    }
}

TEST(Safety, TreesInOneAnotherAndLeftoversStillMove)
{
    const std::pair<const char*, const char*> cases[] = {
        // the old log directory below the old data directory; the new place of logs
        {"\\QM!1", "newlog"},
        {"\\QM!1", "newdata\\qmgrs\\QM!1"}, // in the new data tree again
        {"", "newlog"},                     // one directory for both
    };
    for (const auto& [pszOldLog, pszNewLog] : cases)
    {
        SCOPED_TRACE(testing::Message() << pszOldLog << " " << pszNewLog);
        Installation zn;
        const fs::path oldLog = zn.oldData.string() + pszOldLog;
        fs::create_directories(oldLog);
        for (const char* psz : {"ctl", "active"})
            fs::rename(zn.oldLog / psz, oldLog / psz);
        WriteAll(zn.oldData / "qm.ini", "Log:\n   LogPath=" + oldLog.string() + "\\\n# kept");
        for (const char* psz : {"leftover", "a"})
            WriteAll(zn.newData / psz, "of an earlier run");
        ASSERT_EQ(zn.Run(zn.MoveWords(L"QM1", "newdata", pszNewLog)).nStatus, 0u);
        EXPECT_FALSE(fs::exists(zn.oldData));
        EXPECT_TRUE(std::ranges::includes(TakeSnapshot(zn.root / pszNewLog / "QM!1"), zn.log));
        EXPECT_EQ(ReadAll(zn.newData / "a"), zn.data.at(L"a"));
        EXPECT_EQ(ReadAll(zn.newData / "leftover"), "of an earlier run");
    }
}

// Until the configuration is changed the process ends at once; from then on the move is finished.
TEST(Safety, ControlCEndsTheMoveOrIsIgnored)
{
    const std::tuple<const char*, DWORD, const char*> cases[] = {
        {"xcsGetQMDetails:1:c:0:0", FAILED, UNCHANGED},
        {"SHFileOperationW:2:c:0:0", FAILED, "data ++ log ++ zns old qm old"},
        {"xcsIniUtilWrite:1:c:0:0", 0, MOVED},
        {"DeleteFileW:1:c:0:0", 0, MOVED},
    };
    for (const auto& [pszFaults, nStatus, pszState] : cases)
    {
        Installation zn;
        const RunResult result = zn.Run(zn.MoveWords(), pszFaults);
        EXPECT_EQ(result.nStatus, nStatus) << pszFaults;
        EXPECT_EQ(result.strErr, "") << pszFaults;
        EXPECT_EQ(zn.State(), pszState) << pszFaults;
    }
}

// Somebody who has a configuration file open for a moment, when it is read, looked at or replaced, neither
// hides the queue manager nor ends a move; a new qm.ini that is read-only ends it before zns.ini is changed.
TEST(Safety, ConfigurationFileThatIsHeldOrReadOnly)
{
    const char* const pszSecured = "SetCurrentDirectoryW:4:w:0:0";
    const std::tuple<const char*, const char*, DWORD, bool> cases[] = {
        {"xcsInitializeEx:1:w:0:0", "work\\zns.ini", 0, false},
        {"xcsGetQMDetails:2:w:0:0", "work\\zns.ini", 0, false},
        {"SHFileOperationW:2:w:0:0", "work\\zns.ini", FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
         false},
        {pszSecured, "newdata\\qmgrs\\QM!1\\qm.ini", 0, false},
        {pszSecured, "newdata\\qmgrs\\QM!1\\qm.ini", 0, true},
    };
    for (const auto& [pszFaults, pszFile, nShare, fReadOnly] : cases)
    {
        Installation zn;
        const fs::path file = zn.root / pszFile;
        std::jthread release;
        const RunResult result = zn.Traced(zn.MoveWords(), pszFaults, [&, n = nShare, f = fReadOnly] {
            if (f)
                SetFileAttributesW(file.c_str(), FILE_ATTRIBUTE_READONLY);
            else
                release = std::jthread([held = Hold(file, n)] { Sleep(300); });
        });
        EXPECT_EQ(result.strErr, fReadOnly ? Message(39) + USAGE : "") << pszFaults;
        EXPECT_EQ(zn.State(), fReadOnly ? "data ++ log ++ zns old qm old" : MOVED);
        EXPECT_EQ(zn.strTrace.find("attrib -r \"" + file.string()) != std::string::npos, fReadOnly);
    }
}

// The directory that the console remembers for a drive is no part of any path.
TEST(Safety, RememberedDirectoryOfADriveDoesNotMatter)
{
    Installation zn;
    const std::wstring strDrive = zn.root.root_name(), strOther = strDrive == L"C:" ? L"Z:\\" : L"C:\\";
    if (!fs::exists(strOther))
        GTEST_SKIP() << "there is no drive " << fs::path(strOther);
    SetEnvironmentVariableW((L"=" + strDrive).c_str(), zn.oldData.c_str());
    EXPECT_EQ(RunProgram(ProgramFolder() / "tarvel.exe", zn.MoveWords(), strOther).nStatus, 0u);
    SetEnvironmentVariableW((L"=" + strDrive).c_str(), nullptr);
    EXPECT_EQ(zn.State(), MOVED);
}
