// Whole runs of tarvelcheck.exe after a move, however it ended: what it says, and whether its advice brings
// the queue manager back together with every byte.
#include "checked.h"

#include <random>

using testing::HasSubstr;
using testing::Not;

namespace
{
// A queue manager that is moved to and fro, and what it has written since.
class Chain : public Checked
{
  public:
    explicit Chain(unsigned nSeed) : m_random(nSeed) {}

    // What went wrong.
    std::string Run()
    {
        size_t nFrom = 0, nTo = 1;
        for (int nLeg = 0; nLeg < 2; ++nLeg)
        {
            Go(PLACES[nFrom], PLACES[nTo]);
            for (size_t n = 2 + Any(4); n > 0; --n)
                Disturb(PLACES[nTo]);
            const Goal eGoal = Any(2) == 0 ? FINISH : TAKE_BACK;
            std::string strWrong = Recover(eGoal);
            if (!strWrong.empty())
                strWrong += Recover(eGoal == FINISH ? TAKE_BACK : FINISH);
            if (!strWrong.empty() && strWrong.find("bytes") == std::string::npos)
                return strStory + strWrong;
            if (!IsWhole(Named().first, data) || !IsWhole(Named().second, log))
                return strStory + strWrong + "bytes are missing";
            if (Named().first == Dir(PLACES[nTo], true))
                nFrom = std::exchange(nTo, 3 - nFrom - nTo);
        }
        return "";
    }

  private:
    static constexpr const wchar_t* PLACES[] = {L"old", L"new", L"third"};
    // See faults/faults.cpp.
    static constexpr const char* FAULTS[] = {
        "xcsGetQMDetails:1:a:1:0",       "xcsCreateDirectory:2:o:1:0",
        "SHFileOperationW:1:o:7c:0",     "SHFileOperationW:2:o:7c:0",
        "SetNamedSecurityInfoW:3:a:5:5", "xcsIniUtilWrite:1:o:1:0",
        "xcsGetIniFilename:3:o:1:0",     "xcsIniUtilWrite:2:o:1:0",
        "xcsIniUtilWrite:2:o:1:0",       "DeleteFileW:1:o:0:20",
        "DeleteFileW:7:o:0:20",          "RemoveDirectoryW:1:o:0:91",
        "RemoveDirectoryW:4:o:0:91",     "FindFirstFileW:1:a:ffffffffffffffff:5"};

    size_t Any(size_t nBelow) { return m_random() % nBelow; }
    fs::path Dir(const std::wstring& strPlace, bool fData) const
    {
        return fData ? root / (strPlace + L"data\\qmgrs\\QM!1") : root / (strPlace + L"log\\QM!1");
    }

    // The directories that the files name.
    std::pair<fs::path, fs::path> Named() const
    {
        const auto value = [](const std::string& strText, const char* pszName) {
            const size_t n = strText.find(pszName) + std::string_view(pszName).size();
            return strText.substr(n, strText.find_first_of("\r\n", n) - n);
        };
        const std::string strZns = ReadAll(work / "zns.ini");
        const fs::path dataDir =
            fs::path(value(strZns.substr(strZns.find("Name=QM1")), "Prefix=")) / "qmgrs\\QM!1";
        return {dataDir, fs::path(value(ReadAll(dataDir / "qm.ini"), "LogPath=")).parent_path()};
    }
    static bool IsWhole(const fs::path& dir, const Snapshot& written)
    {
        const Snapshot now = TakeSnapshot(dir);
        return std::ranges::all_of(written, [&](const auto& entry) {
            return entry.first == L"qm.ini" ||
                   (now.contains(entry.first) && now.at(entry.first) == entry.second);
        });
    }

    void Go(const std::wstring& strFrom, const std::wstring& strTo)
    {
        strMove = MoveWords(L"QM1", strTo + L"data", strTo + L"log");
        strOldPlaces = L" /od " + Quoted(Dir(strFrom, true)) + L" /ol " + Quoted(Dir(strFrom, false));
        ran.clear();
        fRan = fRecord = false;
        if (Any(2) == 0)
            MakeRecord();
        strStory += std::string(strMove.begin(), strMove.end()) + "\n";
    }

    // The queue manager runs: it adds to files, makes one and writes over one.
    void Write(const fs::path& dataDir, const fs::path& logDir)
    {
        ran.insert({dataDir.string(), logDir.string()});
        fRan = true;
        const std::string strMore = "went on " + std::to_string(Any(1000));
        data[L"a"] += strMore;
        log[L"ctl"] += strMore;
        log[L"active\\" + std::to_wstring(Any(1000))] = strMore;
        if (Any(3) == 0)
            log[L"active\\log1"].replace(0, strMore.size(), strMore);
        WriteAll(dataDir / "a", data[L"a"]);
        for (const auto& [strName, strContent] : log)
            if (strContent != "<dir>")
                WriteAll(logDir / strName, strContent);
        strStory += "ran\n";
    }

    void Disturb(const std::wstring& strTo)
    {
        const RunResult said = Look(AfterWords());
        strStory += said.strOut;
        std::ostringstream fault;
        const fs::path copied = Dir(strTo, false) / "active\\log1";
        const auto says = [&](const char* psz) { return said.strOut.find(psz) != std::string::npos; };
        if (says("in between") && Any(2) == 0)
            return Write(Named().first, Named().second);
        switch (Any(8))
        {
        case 0:
        case 1:
            fault << "*:" << std::hex << 1 + Any(900) << ":k:0:0";
            break;
        case 2:
        case 3:
        case 4:
            fault << FAULTS[Any(std::size(FAULTS))];
            break;
        case 5:
            Follow(said.strOut, Any(2) == 0 ? FINISH : TAKE_BACK, static_cast<int>(Any(4)));
            if (Any(2) == 0 && fs::exists(copied) && Named().second != Dir(strTo, false) &&
                !ran.contains(copied.parent_path().parent_path().string()))
                WriteAll(copied, std::string(99, 'l') + std::string(Any(2) * 200, '\0')); // cut off
            return;
        default:
            if (says("manager: yes") || says("in between"))
                Write(Named().first, Named().second);
            return;
        }
        strStory += fault.str() + "\n";
        if (Named().first != Dir(strTo, true)) // otherwise it refuses
            ran.clear();
        Installation::Run(strMove, fault.str());
    }

    std::mt19937 m_random;
    std::string strStory;
};
} // namespace

// What is said of a state, its status, and how many trees are named for deletion.
TEST(CheckAfter, SaysWhatItKnows)
{
    struct Case
    {
        Checked::End eEnd;
        const char* pszSays;
        Change change = {}; // after the move
        DWORD nStatus = 3;
        int nRemovals = 0;
        std::wstring strWords = L""; // instead of the old places; or:
        bool fRecord = false;
        const char* pszLookFault = "";
    };
    const std::string strGrown = std::string(3000, 'l') + "ctl and more";
    const char* const pszGrown = strGrown.c_str();
    const char* const pszRecord = "QM1 before.txt";
    const auto COPIED = Checked::COPIED, BETWEEN = Checked::BETWEEN, LEFT = Checked::LEFT,
               MOVED = Checked::MOVED;
    const Case cases[] = {
        {MOVED, ", as recorded", {}, 0, 0, L"", true},
        {MOVED, "Only if the queue manager ran", {"", "newlog\\QM!1\\ctl", "zeroed"}, 3, 0, L"", true},
        {MOVED, "missing: ", {"newdata\\qmgrs\\QM!1\\a"}, 3, 0, L"", true},
        {MOVED, "but for what was added", {"", "newdata\\qmgrs\\QM!1\\more"}, 0, 0, L"", true},
        {MOVED, "but for what was added", {"", "newlog\\QM!1\\ctl", pszGrown}, 0, 0, L"", true},
        {COPIED, "cannot be used", {"", pszRecord}, 3, 0, L"", true},
        {COPIED, "cannot be used: error 2", {pszRecord}, 3, 0, L"", true},
        {COPIED, "of other destinations", {.pszInZnsIni = "!1", .pszInstead = "!2"}, 3, 0, L"", true},
        {MOVED, "is not there", {"newlog\\QM!1"}},
        {MOVED, "is a link; ", {.pszLink = "newlog\\QM!1\\l", .pszTarget = "bystander"}, 0},
        {MOVED, "another spelling", {.pszInZnsIni = "newdata", .pszInstead = "NEWDATA"}},
        {MOVED,
         "no step of this move",
         {"", "c\\qmgrs\\QM!1\\qm.ini", "Log:\n LogPath=C:\\l\\", 0, "", "", "newdata", "c"}},
        {MOVED, "has no LogPath", {"", "newdata\\qmgrs\\QM!1\\qm.ini", "Log:\n"}, 2},
        {MOVED, "services of level", {}, 3, 0, L"", false, "xcsInitializeEx:1:o:1:0"},
        {MOVED, "cannot be listed", {}, 3, 0, L"", false, "FindFirstFileExW:1:o:ffffffffffffffff:5"},
        {MOVED, "old places are not known", {}, 3, 0, L" "},
        {MOVED, "cannot be seen", {}, 3, 0, L" /od Y:\\x\\qmgrs\\QM!1 /ol Y:\\l"},
        {MOVED, "must end in", {}, 3, 0, L" /od C:\\x /ol C:\\l"},
        {LEFT, "A deletion is valid now", {}, 2, 2},
        {LEFT, "another content", {"", "oldlog\\QM!1\\ctl"}},
        {LEFT, "newer ones", {"", "oldlog\\QM!1\\ctl", pszGrown}, 2},
        {LEFT, "newer ones", {"", "newlog\\QM!1\\ctl", "zeros"}, 2},
        {LEFT, "newer ones", {"", "olddata\\qmgrs\\QM!1\\ZNpayments-2026-11.tmp"}, 2},
        {LEFT, "newer ones", {"", "olddata\\qmgrs\\QM!1\\s\\ZN0123456789ABCDEF.tmp"}, 2},
        {LEFT, "is left", {"", "olddata\\qmgrs\\QM!1\\ZN0123456789ABCDEF.tmp"}, 2, 2},
        {LEFT, "newer ones", {"", "oldlog\\QM!1\\ZN0123456789ABCDEF.tmp"}, 2},
        {LEFT, "directory or file of an old tree", {"newlog\\QM!1\\ctl", "", "link"}, 2, 1},
        {LEFT, "ren ", {"", "", "hard link"}, 2, 1},
        {LEFT, "another content", {"", "newdata\\qmgrs\\QM!1\\a"}},
        {LEFT,
         "leads to a directory",
         {.pszLink = "newlog\\QM!1\\l", .pszTarget = "oldlog\\QM!1\\active"},
         2,
         1},
        {LEFT,
         "another queue manager",
         {.pszLink = "other\\qmgrs\\QM0", .pszTarget = "olddata\\qmgrs\\QM!1\\s"},
         2,
         1},
        {LEFT, "is a link; ", {.pszLink = "oldlog\\QM!1\\l", .pszTarget = "bystander"}, 2},
        {LEFT,
         "is not there, or has no",
         {"olddata\\qmgrs\\QM!1\\qm.ini", "", "", 0, "", "", "newdata", "olddata"},
         2},
        {LEFT,
         "all of the old ones and more",
         {"olddata\\qmgrs\\QM!1\\a", "", "", 0, "", "", "newdata", "olddata"},
         2},
        {LEFT,
         "all of the old ones and more",
         {"", "newlog\\QM!1\\ctl", pszGrown, 0, "", "", "newdata", "olddata"},
         2},
        {BETWEEN, "missing", {"newdata\\qmgrs\\QM!1\\a"}, 2},
        {BETWEEN, "LogPath=", {"", "newlog\\QM!1\\ctl", pszGrown}, 2},
        {BETWEEN, "xcopy ", {"", "newlog\\QM!1\\ctl", "lll"}, 2},
        {BETWEEN, "another content", {"", "newlog\\QM!1\\ctl", "other"}},
        {COPIED, "tarvel.exe", {}, 1, 2},
        {COPIED, "but for zeros", {"", "newlog\\QM!1\\ctl", "zeros"}, 1, 2},
        {COPIED, "all of the old ones and more", {"", "newdata\\qmgrs\\QM!1\\theirs"}, 2},
        {COPIED, "another content", {"", "newlog\\QM!1\\ctl", "last year"}},
        {COPIED, "all of the old ones and more", {"olddata\\qmgrs\\QM!1\\a"}, 2},
        {COPIED, "no queue manager", {"", "work\\zns.ini"}},
    };
    for (const Case& c : cases)
    {
        Checked zn;
        if (c.fRecord)
            zn.MakeRecord();
        zn.Leave(c.eEnd);
        zn.Apply(c.change);
        const std::string strText = c.change.pszText;
        if (strText == "link")
            MakeLink(zn.newLog / "ctl", zn.oldLog / "ctl");
        if (strText == "hard link")
            fs::create_hard_link(zn.oldLog / "ctl", zn.root / "bystander\\ctl");
        if (strText == "zeros") // as after a power failure
            WriteAll(zn.root / c.change.pszWrite, std::string(fs::file_size(zn.oldLog / "ctl"), '\0'));
        const Snapshot before = TakeSnapshot(zn.root);
        const RunResult said = zn.Look(L"after " + zn.MoveWords() +
                                           (c.fRecord            ? zn.Record()
                                            : c.strWords.empty() ? zn.strOldPlaces
                                                                 : c.strWords),
                                       c.pszLookFault);
        int nRemovals = 0;
        for (size_t n = 0; (n = said.strOut.find("rmdir", n)) != std::string::npos; ++n)
            ++nRemovals;
        EXPECT_EQ(said.nStatus, c.nStatus) << &c - cases << said.strOut;
        EXPECT_EQ(nRemovals, c.nRemovals) << said.strOut;
        EXPECT_THAT(said.strOut, HasSubstr(c.pszSays));
        EXPECT_EQ(TakeSnapshot(zn.root), before);
    }
}

// The only copy of a file is in the old tree. Whatever the look fails to see, it names no deletion.
TEST(CheckAfter, FailingCallsLeadToNoDeletion)
{
    Checked zn;
    zn.MakeRecord();
    zn.Leave(Checked::LEFT);
    fs::remove(zn.newData / "s\\t\\c");
    const auto look = [&](const std::string& strFaults) {
        zn.fRecord = !zn.fRecord;
        const RunResult said = zn.After(strFaults);
        EXPECT_THAT(said.strOut, Not(HasSubstr("rmdir"))) << strFaults;
        EXPECT_GT(said.nStatus, 1u) << strFaults;
    };
    for (int n = 0; n < 2; ++n)
        look("xcsTerminate:0:o:0:0"); // counts
    std::map<std::string, long> calls;
    for (const char* psz : {"CreateFileW", "FindFirstFileExW", "GetFileAttributesW", "FindNextFileW",
                            "ReadFile", "GetFileInformationByHandleEx", "BCryptHashData", "BCryptFinishHash",
                            "xcsGetQMDetails", "xcsIniUtilRead"})
        calls[psz] = zn.Calls(psz);
    for (const auto& [strFunction, nCalls] : calls)
    {
        const bool fFalse = strFunction == "FindNextFileW" || strFunction == "ReadFile" ||
                            strFunction.starts_with("GetFileI");
        ASSERT_GT(nCalls, 0) << strFunction;
        for (long nCall = 1; nCall <= nCalls; nCall += 1 + nCalls / 5)
        {
            std::ostringstream fault;
            fault << strFunction << ":" << std::hex << nCall << (nCall % 3 == 0 ? ":a" : ":o")
                  << (fFalse ? ":0:5" : ":ffffffffffffffff:5");
            look(fault.str());
        }
    }
}

TEST(CheckAfter, LooksAgainAtTheEnd)
{
    Checked zn;
    zn.Leave(Checked::LEFT);
    zn.After("xcsTerminate:0:o:0:0");
    std::ostringstream last;
    last << "ReadFile:" << std::hex << zn.Calls("ReadFile") - 4 << ":w:0:0"; // not one of the last questions
    const RunResult said = zn.After(last.str(), [&] { zn.Run(zn.MoveWords(L"QM1", "third", "fourth")); });
    EXPECT_EQ(said.nStatus, 3u) << said.strOut;
    EXPECT_THAT(said.strOut, HasSubstr("while it was looked at"));
    EXPECT_THAT(said.strOut, Not(HasSubstr("rmdir")));
}

TEST(CheckAfter, CanBeRunWhileTheQueueManagerRuns)
{
    Checked zn;
    RunProgram(ProgramFolder() / "sampleqm.exe",
               L"create QM2 /dd " + Quoted(zn.root / "q") + L" /ld " + Quoted(zn.root / "l") + L" /files 20",
               zn.root);
    RefusingQueueManager running(L"QM2");
    ASSERT_TRUE(running.fRuns);
    const std::wstring strWords = zn.MoveWords(L"QM2") + L" /record r";
    const RunResult before = zn.Look(L"before " + strWords);
    std::ofstream(zn.root / "q\\qmgrs\\QM2\\qm.ini", std::ios::app) << "# went on";
    const RunResult after = zn.Look(L"after " + strWords);
    EXPECT_THAT(before.strOut, HasSubstr("was written while the queue manager runs"));
    EXPECT_EQ(before.nStatus, 0u) << before.strOut;
    EXPECT_THAT(after.strOut, HasSubstr("endznm -w"));
    EXPECT_THAT(after.strOut, HasSubstr("but for what was added since"));
    EXPECT_EQ(after.nStatus, 1u) << after.strOut;
}

TEST(CheckWatch, TellsThePhaseOfAMove)
{
    Checked zn;
    EXPECT_THAT(zn.Look(L"watch " + zn.MoveWords()).strOut, HasSubstr("No move is under way"));
    const struct
    {
        const char *pszPause, *pszPhase;
    } cases[] = {
        {"SHFileOperationW:1:w:0:0", "copying data: 5 of 5 files, 9"},
        {"SHFileOperationW:2:w:0:0", "copying the log: 3 of 3 files, 9,027 of 9,027 bytes, 100%"},
        {"DeleteFileW:1:w:0:0", "deleting the old trees"},
    };
    for (const auto& c : cases)
    {
        Checked moved;
        const fs::path output = moved.root / "watched";
        KernelHandle watch;
        moved.Run(moved.MoveWords(), c.pszPause, [&] {
            EXPECT_THAT(moved.Look(L"before " + moved.MoveWords()).strOut, HasSubstr("STOP  other moves: "));
            const RunResult said = moved.After();
            EXPECT_EQ(said.nStatus, 4u) << said.strOut;
            EXPECT_THAT(said.strOut, HasSubstr("olddata\\qmgrs\\QM!1: not looked at"));
            SECURITY_ATTRIBUTES inherit = {sizeof inherit, nullptr, TRUE};
            const FileHandle file(CreateFileW(output.c_str(), GENERIC_WRITE, FILE_SHARE_READ, &inherit,
                                              CREATE_ALWAYS, 0, nullptr));
            STARTUPINFOW startup = {};
            startup.dwFlags = STARTF_USESTDHANDLES;
            startup.hStdOutput = file.Get();
            watch = StartProgram(ProgramFolder() / "tarvelcheck.exe", L"watch " + moved.MoveWords(),
                                 moved.root, startup);
            for (int n = 0; n < 500 && ReadAll(output).find("watched") == std::string::npos; ++n)
                Sleep(20);
        });
        EXPECT_EQ(WaitForSingleObject(watch.Get(), 20'000), DWORD{WAIT_OBJECT_0});
        EXPECT_THAT(ReadAll(output), HasSubstr(c.pszPhase));
        EXPECT_THAT(ReadAll(output), HasSubstr("The move is over"));
        EXPECT_THAT(ReadAll(output), HasSubstr("tarvelcheck.exe\" after /m \"QM1\" /dd"));
    }
}

// Moves that fail or are killed, advice that is followed in part, copies that are cut off, runs in between
// and a third place: nothing gets lost, and there is always a way on. ZN_CHAINS: the first chain and how
// many.
TEST(CheckAfter, ChainsEndWithEveryByte)
{
    unsigned nFirst = 1, nChains = 12;
    if (const char* const pszChains = std::getenv("ZN_CHAINS"))
        std::sscanf(pszChains, "%u %u", &nFirst, &nChains);
    for (unsigned n = nFirst; n < nFirst + nChains; ++n)
        EXPECT_EQ(Chain(n).Run(), "") << "chain " << n;
}
