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

// The shell returns 0 and has left something out, as a file that may not be read, or not copied all of it:
// each file and directory of both trees, one at a time.
TEST(Safety, CopyThatIsNotWholeEndsTheMove)
{
    const struct
    {
        bool fOfDirectories;
        void (*change)(const fs::path&);
        std::chrono::seconds older; // than the source
        const char* pszFinding;
    } damages[] = {
        {true,
         [](const fs::path& path) { fs::rename(path, path.string() + ".out"); },
         {},
         "The file or directory is missing: "},
        {false, [](const fs::path& path) { fs::resize_file(path, 1); }, {}, "The file has another size: "},
        {false, [](const fs::path&) {}, std::chrono::seconds(2), "The file has another time of its last"},
    };
    for (const bool fLog : {false, true})
        for (const auto& [strName, strContent] : Snapshot(fLog ? Installation().log : Installation().data))
            for (const auto& c : damages)
            {
                if (strContent == "<dir>" && !c.fOfDirectories)
                    continue;
                SCOPED_TRACE(testing::Message() << fs::path(strName) << ": " << c.pszFinding);
                Installation zn;
                const char* const pszFaults = fLog ? "SHFileOperationW:2:w:0:0" : "SHFileOperationW:1:w:0:0";
                const RunResult result = zn.Traced(zn.MoveWords(), pszFaults, [&, &name = strName] {
                    const fs::path copied = (fLog ? zn.newLog : zn.newData) / name;
                    const auto time = fs::last_write_time(copied);
                    SetFileAttributesW(copied.c_str(), FILE_ATTRIBUTE_NORMAL);
                    c.change(copied);
                    std::error_code removed;
                    fs::last_write_time(copied, time - c.older, removed);
                });
                ExpectRefusal(zn, result, 38, NOTHING_LOST);
                EXPECT_THAT(zn.strTrace, HasSubstr(c.pszFinding));
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

TEST(Safety, SecondMoveOfOneQueueManagerIsRefused)
{
    Installation zn;
    RunResult second;
    const RunResult first = zn.Run(zn.MoveWords(), "SHFileOperationW:1:w:0:0", [&] {
        second =
            RunProgram(ProgramFolder() / "tarvel.exe", zn.MoveWords(L"QM1", "third", "thirdlog"), zn.root);
    });
    EXPECT_EQ(first.nStatus, 0u);
    EXPECT_EQ(second.strErr, Message(33) + USAGE);
    EXPECT_EQ(zn.State(), MOVED);
    EXPECT_FALSE(fs::exists(zn.root / "third"));
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

// Somebody who has zns.ini open for a moment, when it is read or when it is replaced, neither hides the queue
// manager nor ends a move.
TEST(Safety, FileThatIsHeldForAMomentDoesNoHarm)
{
    const std::pair<const char*, DWORD> cases[] = {
        {"xcsInitializeEx:1:w:0:0", 0},
        {"xcsGetQMDetails:2:w:0:0", 0},
        {"SHFileOperationW:2:w:0:0", FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE},
    };
    for (const auto& [pszFaults, nShare] : cases)
    {
        Installation zn;
        std::jthread release;
        const RunResult result = zn.Run(zn.MoveWords(), pszFaults, [&, n = nShare] {
            release = std::jthread([held = Hold(zn.work / "zns.ini", n)] { Sleep(300); });
        });
        EXPECT_EQ(result.nStatus, 0u) << pszFaults << result.strErr;
        EXPECT_EQ(zn.State(), MOVED);
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
