// Fails calls of every function that the shipped program imports, one at a time or all from one on: some of
// them, or with ZN_SWEEP_ALL each one. Ends the program at calls spread over the run; changes an old tree at
// them. Whatever happens, every byte of the queue manager must be in a whole tree that the configuration
// names, and what was borrowed must have been given back.
#include <set>
#include <sstream>

#include "hook.h"
#include "refusal.h"

namespace
{
// How a function fails: what it returns and the last error that it leaves.
struct Failure
{
    uint64_t nReturn;
    DWORD nError;
};
constexpr uint64_t INVALID = ~uint64_t{0};

// None for what cannot fail, or not in a way that the program could be told, and for what an almost empty
// program imports too, for the language's runtime.
std::vector<Failure> FailuresOf(const std::string& strFunction)
{
    static const std::pair<std::vector<const char*>, std::vector<Failure>> s_functions[] = {
        {{"*"}, {}}, // no function
        {{"AcquireSRWLockExclusive", "BuildExplicitAccessWithNameW", "CharLowerBuffW", "CloseHandle",
          "CompareStringOrdinal", "FreeSid", "GetCurrentProcess", "GetLastError", "LocalFree",
          "ReleaseSRWLockExclusive", "SetErrorMode", "SetLastError", "Sleep", "TerminateProcess"},
         {}},
        {{"xcsFreeMemFn", "xcsSaveFileContextSccsId", "xcsTerminate", "xcsVORTFn", "xtr_FNC_entry",
          "xtr_FNC_retcode", "xtr_FNC_text", "xtr_parms", "zutDisplayCSPError", "zutMapRCTo8bit"},
         {}},
        {{"CreateFileW", "FindFirstFileW", "FindFirstFileExW", "GetFileAttributesW", "_waccess"},
         {{INVALID, ERROR_ACCESS_DENIED}}},
        {{"FindNextFileW"}, {{FALSE, ERROR_ACCESS_DENIED}, {FALSE, ERROR_NO_MORE_FILES}}},
        {{"FindClose"}, {{TRUE, 0}}},
        {{"malloc", "GetModuleHandleW", "TlsGetValue"}, {{0, ERROR_NOT_ENOUGH_MEMORY}}},
        {{"LookupAccountNameW"}, {{FALSE, ERROR_NONE_MAPPED}}},
        {{"WideCharToMultiByte", "MultiByteToWideChar"}, {{0, ERROR_INSUFFICIENT_BUFFER}}},
        {{"SetEntriesInAclW", "GetNamedSecurityInfoW", "SetNamedSecurityInfoW"}, {{ERROR_ACCESS_DENIED, 0}}},
        {{"SHFileOperationW"}, {{0x7C, 0}}},
        {{"xcsGetIniFilename", "xcsIniUtilRead", "xcsIniUtilWrite", "xcsGetQMDetails",
          "xcsGetInstallationDetails", "xcsCompareInstallations", "xcsIsSubpoolActive",
          "xcsExecProgramHandle", "xcsCreateDirectory", "xtrEstablishTraceStatus"},
         {{1, 0}}},
        {{"xcsCheckConsistency", "xcsInitializeEx"}, {{0x20006110, 0}}},
        {{"xcsCheckAuthorization"}, {{0x40806177, 0}}},
        {{"xcsVolumeSupportsSecurity"}, {{0x40806178, 0}}},
    };
    static const HMODULE s_hProbe =
        LoadLibraryExW((ProgramFolder() / "runtime_probe.exe").c_str(), nullptr, DONT_RESOLVE_DLL_REFERENCES);
    for (const auto& [functions, failures] : s_functions)
        if (std::ranges::count(functions, strFunction) > 0)
            return failures;
    bool fRuntime = false;
    ForEachImport(s_hProbe, [&](const char*, const char* pszName, void**) {
        fRuntime = fRuntime || strFunction == pszName;
    });
    return fRuntime ? std::vector<Failure>() : std::vector<Failure>{{FALSE, ERROR_ACCESS_DENIED}};
}

const bool s_fAll = std::getenv("ZN_SWEEP_ALL") != nullptr; // each call, not only some

std::string FaultAt(const std::string& strFunction, long nCall, char chMode, Failure failure = {})
{
    std::ostringstream fault;
    fault << strFunction << ":" << std::hex << nCall << ":" << chMode << ":" << failure.nReturn << ":"
          << failure.nError;
    return fault.str();
}

// What calls were made in a run that moves the queue manager, by function.
std::map<std::string, long> CountCalls(const wchar_t* pszQueueManager, const std::string& strFaults)
{
    Installation zn;
    zn.Run(zn.MoveWords(pszQueueManager), strFaults + FaultAt("xcsTerminate", 0, 'o'));
    std::map<std::string, long> calls;
    std::istringstream lines(zn.strReport);
    for (std::string strFunction; lines >> strFunction;)
        lines >> calls[strFunction];
    return calls;
}

// The old trees, with a configuration that names them; or the new ones, with one that names those; or,
// between the two changes, both trees, with the data named at its new and the log at its old place. Status 0
// means moved.
void ExpectSafe(const Installation& zn, const RunResult& result)
{
    const std::string strState = zn.State();
    const bool fNamesNew = IsState(strState, "data ?+ log ?+ zns new qm new");
    EXPECT_TRUE(fNamesNew || IsState(strState, "data +? log +? zns old qm ???") ||
                strState == "data ++ log ++ zns new qm old")
        << strState;
    EXPECT_TRUE(zn.IsRestUntouched());
    EXPECT_TRUE(result.nStatus != 0 || (fNamesNew && (result.strOut + result.strErr).empty())) << strState;
    EXPECT_TRUE(result.nStatus != FAILED || result.strErr.ends_with("\r\n")) << result.strErr;
}

// The same command again, with nothing failing: it completes the move, or changes nothing.
void ExpectRightAgain(Installation& zn, const std::wstring& strWords, bool fKnown)
{
    const std::string strState = zn.State();
    const bool fMoved = zn.Run(strWords).nStatus == 0;
    EXPECT_EQ(fMoved, fKnown && strState.find("zns old") != std::string::npos) << strState;
    EXPECT_EQ(zn.State(), fMoved ? MOVED : strState);
    EXPECT_TRUE(zn.IsRestUntouched());
}
} // namespace

// A few calls of each function, spread over the run; or each and every one, followed by the same command with
// nothing failing. By mode (one call, or that and all later ones) and a third of the functions.
class FaultSweep : public testing::TestWithParam<std::tuple<char, int>>
{
};

TEST_P(FaultSweep, LosesNothing)
{
    // Words for the queue manager, and faults that lead into rare paths.
    const std::pair<const wchar_t*, std::string> scenarios[] = {
        {L"QM1", ""},
        {L"QM9", ""},                                                         // unknown: shows messages
        {L"QM1", "SetNamedSecurityInfoW:4:o:5:5;"},                           // takes ownership
        {L"QM1", "xcsIsSubpoolActive:1:a:0:0;xcsExecProgramHandle:1:a:0:0;"}, // is stopped
        {L"QM1", "xcsGetInstallationDetails:1:o:10006164:0;"},
        {L"QM1", "GetFileInformationByHandleEx:1:a:0:57;"}, // a file system without 128-bit identifiers
    };
    const auto [chMode, nPart] = GetParam();
    int nPoints = 0, nFunction = 0;
    for (const auto& [pszQueueManager, strFaults] : scenarios)
        for (const auto& [strFunction, nCalls] : CountCalls(pszQueueManager, strFaults))
            for (const Failure& failure : FailuresOf(strFunction))
            {
                const bool fMemory = strFunction == "malloc";
                // Failing every allocation leaves the language's runtime nothing to end the process with.
                if (nFunction++ % 3 != nPart || (fMemory && chMode == 'a'))
                    continue;
                const long nStep = s_fAll ? 1 : std::max(1L, nCalls / (strFaults.empty() ? 8 : 2));
                for (long nCall = 1; nCall <= nCalls; nCall += nStep, ++nPoints)
                {
                    const std::string strFault = strFaults + FaultAt(strFunction, nCall, chMode, failure);
                    SCOPED_TRACE(strFault);
                    Installation zn;
                    const RunResult result = zn.Run(zn.MoveWords(pszQueueManager), strFault);
                    ExpectSafe(zn, result);
                    // Out of memory the runtime ends the process, before the entry function by a crash.
                    const bool fEnded =
                        fMemory && (result.nStatus == 3 || result.nStatus == EXCEPTION_ACCESS_VIOLATION ||
                                    result.nStatus == 0xC0000409); // abort of the newer runtime
                    EXPECT_TRUE(result.nStatus < 256 || result.nStatus == FAILED || fEnded) << result.nStatus;
                    if (!fEnded && strFunction != "FindClose")
                        if (s_fAll)
                            ExpectRightAgain(zn, zn.MoveWords(pszQueueManager), pszQueueManager[2] == L'1');
                }
            }
    EXPECT_GT(nPoints, 100);
    std::printf("%d points\n", nPoints);
}

INSTANTIATE_TEST_SUITE_P(OnceAndFromThenOn, FaultSweep,
                         testing::Combine(testing::Values('o', 'a'), testing::Values(0, 1, 2)));

// A process that ends at any call, as if the power had failed; then the same command again.
TEST(KillSweep, LosesNothingAndTheSameCommandCompletesOrRefuses)
{
    const long nCalls = CountCalls(L"QM1", "")["*"];
    std::set<std::string> states;
    constexpr long KILLS = 220;
    for (long i = 0; i < KILLS; ++i)
    {
        const std::string strFault = FaultAt("*", 1 + i * (nCalls - 1) / (KILLS - 1), 'k');
        SCOPED_TRACE(strFault);
        Installation zn;
        const RunResult result = zn.Run(zn.MoveWords(), strFault);
        EXPECT_EQ(result.nStatus, 9u);
        ExpectSafe(zn, result);
        states.insert(zn.State());
        ExpectRightAgain(zn, zn.MoveWords(), true);
    }
    EXPECT_GE(states.size(), 5u);
}

// Somebody changes an old tree or a copy, or swaps a directory for a link to the other tree, at any call up
// to the last looks, and at some later ones that the looks or the deletion still see. Whatever the old trees
// held after that is whole in one tree, read through whatever links there are: a file that two trees show is
// still one file.
TEST(ChangeSweep, EveryByteStaysInOneWholeTree)
{
    const auto rewrite = [](const fs::path& file, const std::string& strContent) {
        if (fs::exists(file))
            WriteAll(file, strContent);
    };
    const auto link = [](const fs::path& dir, const fs::path& target) {
        if (!fs::exists(target))
            return;
        if (fs::exists(dir))
            fs::rename(dir, dir.string() + ".aside");
        MakeLink(dir, target);
    };
    // In old and new directories that hold a file "f" and a directory "d" with a file.
    struct Trees
    {
        fs::path old, copy, f, d;
    };
    const std::function<void(const Trees&)> changes[] = {
        [](const Trees& trees) { std::ofstream(trees.old / trees.f, std::ios::app) << "more"; },
        [](const Trees& trees) { WriteAll(trees.old / trees.f, ReadAll(trees.old / trees.f)); },
        [](const Trees& trees) { WriteAll(trees.old / "new", "came later"); },
        [](const Trees& trees) { fs::remove(trees.old / trees.f); },
        [&](const Trees& trees) { link(trees.old / trees.d, trees.copy / trees.d); },
        [&](const Trees& trees) {
            rewrite(trees.copy / trees.f, ReadAll(trees.old / trees.f).replace(0, 1, "X"));
        },
        [](const Trees& trees) { fs::remove(trees.copy / trees.f); },
        [&](const Trees& trees) { link(trees.copy / trees.d, trees.old / trees.d); },
    };
    constexpr size_t OLD_CHANGES = 4;
    Installation whole;
    whole.Run(whole.MoveWords(), "xcsIniUtilWrite:2:k:0:0");
    const long nLast = whole.Calls("*"), nSpread = s_fAll ? nLast : 4;
    ASSERT_GT(nLast, 100);
    std::vector<std::string> moments = {"SHFileOperationW:1:w:0:0", "SHFileOperationW:2:w:0:0",
                                        "xcsIniUtilWrite:1:w:0:0", "xcsIniUtilWrite:2:w:0:0"};
    for (long i = 0; i < nSpread; ++i)
        moments.push_back(FaultAt("*", 1 + i * (nLast - 1) / nSpread, 'w'));
    const size_t nEarly = moments.size();
    moments.insert(moments.end(), {"DeleteFileW:1:w:0:0", "RemoveDirectoryW:4:w:0:0"});
    for (size_t nMoment = 0; nMoment < moments.size(); ++nMoment)
        for (size_t nChange = 0; nChange < std::size(changes); ++nChange)
            for (const bool fLog : {false, true})
            {
                // The deletion looks at what it deletes, and the log before it is; copies are looked at
                // before.
                const bool fGone = nMoment == nEarly + 1 && !fLog;
                if (nMoment >= nEarly && (fGone || (nChange >= OLD_CHANGES && !fLog)))
                    continue;
                SCOPED_TRACE(testing::Message() << moments[nMoment] << " change " << nChange << fLog);
                Installation zn;
                const Trees trees = fLog ? Trees{zn.oldLog, zn.newLog, "active\\log1", "active\\x"}
                                         : Trees{zn.oldData, zn.newData, "s\\t\\c", "s\\t\\u"};
                const RunResult result = zn.Run(zn.MoveWords(), moments[nMoment], [&] {
                    changes[nChange](trees);
                    if (nChange < OLD_CHANGES)
                        (fLog ? zn.log : zn.data) = TakeSnapshot(trees.old);
                });
                // While the data is deleted each file is in one tree or the other.
                const auto isSomewhere = [&](const auto& entry) {
                    const Snapshot one = {entry};
                    return zn.IsWhole(zn.oldData, one) || zn.IsWhole(zn.newData, one);
                };
                EXPECT_TRUE(zn.IsWhole(zn.oldLog, zn.log) || zn.IsWhole(zn.newLog, zn.log));
                EXPECT_TRUE(zn.IsWhole(zn.oldData, zn.data) || zn.IsWhole(zn.newData, zn.data) ||
                            (nMoment == nEarly && std::ranges::all_of(zn.data, isSomewhere)));
                EXPECT_TRUE(result.nStatus == 0 || result.strErr == Message(37) + USAGE ||
                            result.strErr == Message(38) + USAGE || result.strErr == Message(40) + USAGE)
                    << result.strErr;
                EXPECT_TRUE(result.nStatus != 0 ||
                            (zn.IsWhole(zn.newData, zn.data) && zn.IsWhole(zn.newLog, zn.log)));
            }
}
