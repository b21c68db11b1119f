// Whole runs of the shipped program where the platform's copy, a link, a path or another program would cost
// data.
#include <gmock/gmock.h>

#include <algorithm>
#include <atomic>
#include <memory>
#include <thread>

#include "installation.h"
#include "messagetexts.h"
#include "owner.h"

namespace
{
constexpr char UNCHANGED[] = "data +- log +- zns old qm old";

// Holds a file open for itself alone.
class HeldFile
{
  public:
    explicit HeldFile(const fs::path& path)
        : m_h(CreateFileW(path.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr))
    {
        EXPECT_NE(m_h, INVALID_HANDLE_VALUE) << path;
    }
    ~HeldFile() { CloseHandle(m_h); }
    HeldFile(const HeldFile&) = delete;
    HeldFile& operator=(const HeldFile&) = delete;

  private:
    HANDLE m_h;
};

void Append(const fs::path& path, const char* pszText)
{
    std::ofstream(path, std::ios::binary | std::ios::app) << pszText;
}

// Every file that the queue manager had is somewhere below the root, with the same content.
bool IsEveryFileThere(const Installation& zn)
{
    const Snapshot all = TakeSnapshot(zn.root);
    for (const Snapshot* pTree : {&zn.data, &zn.log})
        for (const auto& file : *pTree)
            if (std::ranges::none_of(all, [&](const auto& entry) {
                    return entry.first.ends_with(file.first) &&
                           (entry.second == file.second || file.first == L"qm.ini");
                }))
                return false;
    return true;
}
} // namespace

// The shell returns 0 and has not copied everything, or the sources change meanwhile: the old places count.
TEST(Safety, CopyThatIsNotWholeEndsTheMove)
{
    using Damage = void (*)(const Installation&);
    const struct
    {
        const char* pszWhat;
        const char* pszFaults;
        Damage damage;
        const char* pszReason; // in the trace
    } cases[] = {
        {"first file left out", "SHFileOperationW:1:w:0:0",
         [](const Installation& zn) { fs::remove(zn.newData / "a"); },
         "The copy is not whole. The file or directory is missing: "},
        {"last file left out", "SHFileOperationW:2:w:0:0",
         [](const Installation& zn) { fs::remove(zn.newLog / "ctl"); },
         "The copy is not whole. The file or directory is missing: "},
        {"directory left out", "SHFileOperationW:1:w:0:0",
         [](const Installation& zn) { fs::remove_all(zn.newData / "s\\t"); },
         "The copy is not whole. The file or directory is missing: "},
        {"empty directory left out", "SHFileOperationW:2:w:0:0",
         [](const Installation& zn) { fs::remove(zn.newLog / "active\\empty"); },
         "The copy is not whole. The file or directory is missing: "},
        {"file cut off", "SHFileOperationW:2:w:0:0",
         [](const Installation& zn) {
             const auto time = fs::last_write_time(zn.newLog / "active\\log1");
             fs::resize_file(zn.newLog / "active\\log1", 1);
             fs::last_write_time(zn.newLog / "active\\log1", time);
         },
         "The copy is not whole. The file has another size: "},
        {"older file of the same size not replaced", "SHFileOperationW:1:w:0:0",
         [](const Installation& zn) {
             fs::last_write_time(zn.newData / "a",
                                 fs::last_write_time(zn.oldData / "a") - std::chrono::hours(1));
         },
         "The copy is not whole. The file has another time of its last write: "},
        {"directory for a file", "SHFileOperationW:1:w:0:0",
         [](const Installation& zn) {
             fs::remove(zn.newData / "a");
             fs::create_directory(zn.newData / "a");
         },
         "The copy is not whole. A directory stands in the place of a file"},
        {"source grows", "SHFileOperationW:1:w:0:0",
         [](const Installation& zn) { Append(zn.oldData / "s\\t\\c", "acknowledged"); },
         "The source changed while it was copied. The file has another size: "},
        {"file appears in the source", "SHFileOperationW:2:w:0:0",
         [](const Installation& zn) { WriteAll(zn.oldLog / "active\\log9", "acknowledged"); },
         "The source changed while it was copied. The file or directory was not there before: "},
        {"file vanishes from the source", "SHFileOperationW:1:w:0:0",
         [](const Installation& zn) { fs::remove(zn.oldData / "s\\t\\c"); },
         "The source changed while it was copied. The file or directory is missing: "},
    };
    for (const auto& c : cases)
    {
        Installation zn;
        fs::create_directory(zn.oldLog / "active\\empty");
        Snapshot data, log;
        const RunResult result = zn.Traced(zn.MoveWords(), c.pszFaults, [&] {
            c.damage(zn);
            data = TakeSnapshot(zn.oldData);
            log = TakeSnapshot(zn.oldLog);
        });
        EXPECT_EQ(result.strErr, Message(38) + USAGE) << c.pszWhat;
        EXPECT_EQ(TakeSnapshot(zn.oldData), data) << c.pszWhat;
        EXPECT_EQ(TakeSnapshot(zn.oldLog), log) << c.pszWhat;
        EXPECT_THAT(zn.State(), testing::EndsWith("zns old qm old")) << c.pszWhat;
        EXPECT_THAT(zn.strTrace, testing::HasSubstr(c.pszReason)) << c.pszWhat;
    }
}

// A tree that changed after it was copied is not deleted, and what was written to it stays.
TEST(Safety, TreeThatChangedIsNotDeleted)
{
    const struct
    {
        const char* pszFaults;
        bool fLog; // which tree is written to
        const char* pszState;
    } cases[] = {
        {"xcsIniUtilWrite:1:w:0:0", false, "data ~+ log ++ zns new qm new"},
        {"xcsIniUtilWrite:2:w:0:0", false, "data ~+ log ++ zns new qm new"},
        {"xcsIniUtilWrite:2:w:0:0", true, "data ++ log ~+ zns new qm new"},
        {"RemoveDirectoryW:3:w:0:0", true, "data -+ log ~+ zns new qm new"}, // the data tree is gone
    };
    for (const auto& c : cases)
    {
        Installation zn;
        const fs::path file = c.fLog ? zn.oldLog / "active\\log1" : zn.oldData / "a";
        const RunResult result =
            zn.Traced(zn.MoveWords(), c.pszFaults, [&] { Append(file, "acknowledged"); });
        EXPECT_EQ(result.strErr, Message(40) + USAGE) << c.pszFaults;
        EXPECT_EQ(zn.State(), c.pszState) << c.pszFaults;
        EXPECT_THAT(ReadAll(file), testing::EndsWith("acknowledged"));
        EXPECT_THAT(zn.strTrace, testing::HasSubstr("The file has another size: '" + file.string() + "'"));
    }
}

TEST(Safety, FilesThatAreHeldOrInTheWayEndTheMove)
{
    using Make = std::unique_ptr<HeldFile> (*)(const Installation&);
    const std::pair<const char*, Make> cases[] = {
        {"held source", [](const Installation& zn) { return std::make_unique<HeldFile>(zn.oldData / "a"); }},
        {"held destination",
         [](const Installation& zn) {
             WriteAll(zn.newLog / "ctl", "older");
             return std::make_unique<HeldFile>(zn.newLog / "ctl");
         }},
        {"directory for a file",
         [](const Installation& zn) {
             fs::create_directories(zn.newData / "a");
             return std::unique_ptr<HeldFile>();
         }},
        {"file for a directory",
         [](const Installation& zn) {
             WriteAll(zn.newData / "s", "in the way");
             return std::unique_ptr<HeldFile>();
         }},
    };
    for (const auto& [pszWhat, make] : cases)
    {
        Installation zn;
        RunResult result;
        {
            const auto held = make(zn);
            result = zn.Run(zn.MoveWords());
        }
        EXPECT_EQ(result.strErr, Message(38) + USAGE) << pszWhat;
        EXPECT_THAT(zn.State(), testing::MatchesRegex("data \\+. log \\+. zns old qm old")) << pszWhat;
    }
}

// Found before anything is copied.
TEST(Safety, LookAtTheSourcesRefuses)
{
    using Prepare = std::string (*)(Installation&); // returns words instead of the usual ones, or nothing
    const auto words = [](const Installation& zn, const char* pszData, const char* pszLog) {
        const std::wstring strWords = zn.MoveWords(L"QM1", pszData, pszLog);
        return std::string(strWords.begin(), strWords.end());
    };
    static const auto s_words = words;
    const struct
    {
        Prepare prepare;
        const char* pszReason;
    } cases[] = {
        {[](Installation& zn) { return s_words(zn, "OLDDATA", "newlog"); }, "is a new directory"},
        {[](Installation& zn) { return s_words(zn, "newdata", "OldLog"); }, "is a new directory"},
        {[](Installation& zn) { return s_words(zn, "olddata\\qmgrs\\QM!1\\s", "newlog"); },
         "is a new directory"},
        {[](Installation& zn) { return s_words(zn, "newdata", "olddata\\qmgrs"); }, "is a new directory"},
        {[](Installation& zn) { // a link into a subdirectory of the old data
             MakeLink(zn.root / "link", zn.oldData / "s");
             return s_words(zn, "newdata", "link");
         },
         "is a new directory"},
        {[](Installation& zn) { // an old tree leads to the new place
             fs::create_directories(zn.newData);
             MakeLink(zn.oldLog / "link", zn.newData);
             return std::string();
         },
         "is a new directory"},
        {[](Installation& zn) { // both destinations are one
             fs::create_directories(zn.root / "newdata\\qmgrs");
             MakeLink(zn.root / "newlog", zn.root / "newdata\\qmgrs");
             return std::string();
         },
         "Two directories would be copied into this one"},
        {[](Installation& zn) { // in the destinations two directories are one
             fs::create_directories(zn.newLog / "active");
             MakeLink(zn.newData / "s", zn.newLog / "active");
             return std::string();
         },
         "Two directories would be copied into this one"},
        {[](Installation& zn) { // the copy would go into an old tree
             MakeLink(zn.newData / "s", zn.oldLog / "active");
             return std::string();
         },
         "The copy would write into this directory of an old tree"},
        {[](Installation& zn) {
             MakeLink(zn.oldData / "s\\up", zn.oldData);
             return std::string();
         },
         "A link leads back"},
        {[](Installation& zn) { // zns.ini in a tree that is to be deleted
             fs::copy(zn.work, zn.oldData / "s\\work");
             SetEnvironmentVariableW(L"ZN_WORK_PATH", (zn.oldData / "s\\work").c_str());
             return std::string();
         },
         "is the directory of zns.ini"},
        {[](Installation& zn) {
             fs::remove_all(zn.oldLog);
             return std::string();
         },
         "cannot be listed"},
        {[](Installation& zn) {
             fs::remove_all(zn.oldLog);
             WriteAll(zn.oldLog, "a file");
             return std::string();
         },
         "cannot be listed"},
        {[](Installation& zn) { // files may have 259 characters
             const size_t nLength = 258 - (zn.root / "newlongerlog\\QM!1").wstring().size();
             WriteAll(L"\\\\?\\" + (zn.oldLog / std::string(nLength, 'f')).wstring(), "fits");
             WriteAll(L"\\\\?\\" + (zn.oldLog / std::string(nLength + 1, 'g')).wstring(), "does not");
             return s_words(zn, "newdata", "newlongerlog");
         },
         "too long in the new place: "},
        {[](Installation& zn) { // directories 247
             const size_t nLength = 247 - (zn.root / "newlongerdata\\qmgrs\\QM!1").wstring().size();
             fs::create_directory(zn.oldData / std::string(nLength, 'd'));
             return s_words(zn, "newlongerdata", "newlog");
         },
         "too long in the new place: "},
        {[](Installation& zn) { // and so in the old place
             const size_t nLength = 247 - zn.oldData.wstring().size();
             fs::create_directory(L"\\\\?\\" + (zn.oldData / std::string(nLength, 'd')).wstring());
             return s_words(zn, "n", "newlog");
         },
         "The path is too long to be copied: "},
    };
    for (const auto& c : cases)
    {
        Installation zn;
        const std::string strWords = c.prepare(zn);
        const Snapshot data = TakeSnapshot(zn.oldData), log = TakeSnapshot(zn.oldLog);
        const RunResult result =
            zn.Traced(strWords.empty() ? zn.MoveWords() : std::wstring(strWords.begin(), strWords.end()));
        EXPECT_EQ(result.strErr, Message(38) + USAGE) << &c - cases;
        EXPECT_THAT(zn.strTrace, testing::HasSubstr(c.pszReason)) << &c - cases;
        EXPECT_THAT(zn.strTrace, testing::Not(testing::HasSubstr("Copying '"))) << &c - cases;
        for (const auto& [before, path] : {std::pair(&data, zn.oldData), std::pair(&log, zn.oldLog)})
            EXPECT_TRUE(std::ranges::includes(TakeSnapshot(path), *before))
                << &c - cases; // and new directories
        EXPECT_EQ(ReadAll(zn.work / "zns.ini"), zn.strZnsIni);
    }
}

// One look or listing that fails is never taken for an empty or an unchanged directory.
TEST(Safety, LookThatFailsLosesNothing)
{
    const std::pair<const char*, const char*> functions[] = {{"FindFirstFileExW", ":o:ffffffffffffffff:5"},
                                                             {"CreateFileW", ":o:ffffffffffffffff:5"},
                                                             {"FindNextFileW", ":o:0:12"},
                                                             {"GetFileAttributesExW", ":o:0:5"}};
    for (const auto& [pszFunction, pszFailure] : functions)
        for (const char chCall : std::string_view("123456789abcdef"))
        {
            Installation zn;
            const std::string strFaults = std::string(pszFunction) + ":" + chCall + pszFailure;
            const RunResult result = zn.Run(zn.MoveWords(), strFaults);
            if (zn.State() == "data -+ log -+ zns new qm new")
                continue; // a call of the required steps, for which a failure ends the list
            EXPECT_THAT(result.strErr, testing::AnyOf(Message(38) + USAGE, Message(40) + USAGE)) << strFaults;
            EXPECT_TRUE(IsEveryFileThere(zn)) << strFaults;
        }
}

// What worked before the looks were added.
TEST(Safety, TreesInOneAnotherAndLeftoversStillMove)
{
    const auto setLogPath = [](Installation& zn, const fs::path& path) {
        WriteAll(zn.oldData / "qm.ini", "Log:\n   LogPath=" + path.string() + "\\\n# kept");
        zn.data = TakeSnapshot(zn.oldData);
    };
    for (const char* pszNewLog : {"newlog", "newdata\\qmgrs\\QM!1"}) // apart, or in the new data tree again
    {
        Installation zn;
        fs::rename(zn.oldLog, zn.oldData / "QM!1"); // the log in the data tree
        setLogPath(zn, zn.oldData / "QM!1");
        WriteAll(zn.newData / "leftover", "of an earlier run");
        WriteAll(zn.newData / "a", "of an earlier run");
        ASSERT_EQ(zn.Run(zn.MoveWords(L"QM1", "newdata", pszNewLog)).nStatus, 0u) << pszNewLog;
        EXPECT_FALSE(fs::exists(zn.oldData));
        EXPECT_EQ(TakeSnapshot(zn.root / pszNewLog / "QM!1"), zn.log);
        EXPECT_EQ(ReadAll(zn.newData / "a"), zn.data.at(L"a"));
        EXPECT_EQ(ReadAll(zn.newData / "leftover"), "of an earlier run");
    }
    Installation zn; // one directory for both
    for (const char* psz : {"ctl", "active"})
        fs::rename(zn.oldLog / psz, zn.oldData / psz);
    setLogPath(zn, zn.oldData);
    ASSERT_EQ(zn.Run(zn.MoveWords()).nStatus, 0u);
    EXPECT_FALSE(fs::exists(zn.oldData));
    for (const fs::path& path : {zn.newData, zn.newLog})
        EXPECT_TRUE(std::ranges::includes(TakeSnapshot(path), zn.log)) << path;
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
    EXPECT_EQ(zn.State(), "data -+ log -+ zns new qm new");
    EXPECT_FALSE(fs::exists(zn.root / "third"));
}

// Until the configuration is changed the process ends at once; from then on the move is finished.
TEST(Safety, ControlCEndsTheMoveOrIsIgnored)
{
    const std::tuple<const char*, DWORD, const char*> cases[] = {
        {"xcsGetQMDetails:1:c:0:0", FAILED, UNCHANGED},
        {"SHFileOperationW:1:c:0:0", FAILED, "data ++ log +~ zns old qm old"},
        {"SHFileOperationW:2:c:0:0", FAILED, "data ++ log ++ zns old qm old"},
        {"xcsIniUtilWrite:1:c:0:0", 0, "data -+ log -+ zns new qm new"},
        {"DeleteFileW:1:c:0:0", 0, "data -+ log -+ zns new qm new"},
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

// Somebody who reads zns.ini, again and again, sharing everything, neither hides the queue manager nor ends a
// move.
TEST(Safety, ReaderOfTheConfigurationDoesNoHarm)
{
    for (int i = 0; i < 5; ++i)
    {
        Installation zn;
        std::atomic<bool> fEnd = false;
        std::thread reader([&] {
            for (; !fEnd; Sleep(1))
            {
                // By hand: the library's streams hand their open file down to the program that is run.
                const FileHandle file(CreateFileW((zn.work / "zns.ini").c_str(), GENERIC_READ,
                                                  FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                                  nullptr, OPEN_EXISTING, 0, nullptr));
                char szStart[64];
                DWORD nRead = 0;
                ReadFile(file.Get(), szStart, sizeof szStart, &nRead, nullptr);
            }
        });
        const RunResult result = zn.Run(zn.MoveWords());
        EXPECT_EQ(result.nStatus, 0u) << result.strErr;
        fEnd = true;
        reader.join();
        EXPECT_EQ(zn.State(), "data -+ log -+ zns new qm new");
    }
}

// The directory that the console remembers for a drive is no part of any path.
TEST(Safety, RememberedDirectoryOfADriveDoesNotMatter)
{
    Installation zn;
    wchar_t szRemembered[] = L"=C:", szOtherDrive[] = L"A:\\";
    szRemembered[1] = zn.root.wstring()[0];
    while (szOtherDrive[0] <= L'Z' && (szOtherDrive[0] == szRemembered[1] || !fs::exists(szOtherDrive)))
        ++szOtherDrive[0];
    if (szOtherDrive[0] > L'Z')
        GTEST_SKIP() << "there is one drive only";
    SetEnvironmentVariableW(szRemembered, zn.oldData.c_str());
    EXPECT_EQ(RunProgram(ProgramFolder() / "tarvel.exe", zn.MoveWords(), szOtherDrive).nStatus, 0u);
    SetEnvironmentVariableW(szRemembered, nullptr);
    EXPECT_EQ(zn.State(), "data -+ log -+ zns new qm new");
}
