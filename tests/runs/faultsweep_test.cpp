// Fails calls of every function that the shipped program imports, one at a time or all from one on: some of
// them, or with ZN_SWEEP_ALL each one. Ends the program at calls spread over the run; changes an old tree at
// them. Whatever happens, every byte of the queue manager must be in a whole tree that the configuration
// names, and nothing else may have changed.
#include <gtest/gtest.h>

#include <set>
#include <sstream>

#include "hook.h"
#include "states.h"

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
// between the two changes, both trees, with the data named at its new and the log at its old place. A kill
// can leave a file of the library's beside a qm.ini. Status 0 means moved.
void ExpectSafe(const Installation& zn, const RunResult& result)
{
    const std::string strState = zn.State();
    const bool fNamesNew = IsState(strState, "data ?+ log ?+ zns new qm new");
    EXPECT_TRUE(fNamesNew || IsState(strState, "data +? log +? zns old qm ???") ||
                (IsState(strState, "data +? log ++ zns new qm old") && zn.IsWhole(zn.newData, zn.data)))
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

// A process that ends at 220 calls, as if the power had failed; then the same command again.
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

// The same at moments of time, as many as the environment's ZN_KILLS says, spread over a whole move.
TEST(Kill, LosesNothingAndTheSameCommandCompletesOrRefuses)
{
    const char* const pszKills = std::getenv("ZN_KILLS");
    const int nKills = pszKills != nullptr ? std::atoi(pszKills) : 8;
    // Starts a move and kills it after some milliseconds. Returns how it ended, and after what time.
    const auto kill = [](const Installation& zn, ULONGLONG nMoment) {
        const ULONGLONG nStart = GetTickCount64();
        const KernelHandle move = StartProgram(ProgramFolder() / "tarvel.exe", zn.MoveWords(), zn.root);
        WaitForSingleObject(move.Get(), static_cast<DWORD>(nMoment));
        TerminateProcess(move.Get(), 9);
        WaitForSingleObject(move.Get(), INFINITE);
        RunResult result;
        GetExitCodeProcess(move.Get(), &result.nStatus);
        return std::pair(result, GetTickCount64() - nStart);
    };
    const Installation whole;
    ULONGLONG nWhole = kill(whole, INFINITE).second;
    int nKilled = 0;
    for (int n = 0; n < nKills; ++n)
    {
        SCOPED_TRACE(nWhole * n / nKills);
        Installation zn;
        const RunResult result = kill(zn, nWhole * n / nKills).first;
        nKilled += result.nStatus == 9;
        if (result.nStatus == 0) // moves have become faster
            nWhole = nWhole * 9 / 10;
        ExpectSafe(zn, result);
        ExpectRightAgain(zn, zn.MoveWords(), true);
    }
    EXPECT_GT(nKilled, 0);
}

// Somebody changes an old tree or a copy, or swaps a directory for a link to the other tree, at calls up to
// the last looks, and at some later ones that the looks or the deletion still see. Whatever the old trees
// held after that is whole in one tree, read through whatever links there are: a file that two trees show is
// still one file.
TEST(ChangeSweep, EveryByteStaysInOneWholeTree)
{
    const std::pair<const char*, const char*> changes[] = {
        // of the data, of the log
        {"append OD\\s\\t\\c more", "append OL\\active\\log1 more"},
        {"touch OD\\s\\t\\c", "touch OL\\active\\log1"},
        {"write OD\\new later", "write OL\\new later"},
        {"remove OD\\s\\t\\c", "remove OL\\active\\log1"},
        {"swap OD\\s\\t\\u ND\\s\\t\\u", "swap OL\\active\\x NL\\active\\x"},
        {"flip ND\\s\\t\\c", "flip NL\\active\\log1"},
        {"remove ND\\s\\t\\c", "remove NL\\active\\log1"},
        {"swap ND\\s\\t\\u OD\\s\\t\\u", "swap NL\\active\\x OL\\active\\x"},
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
                const RunResult result = zn.Run(zn.MoveWords(), moments[nMoment], [&] {
                    zn.Do(fLog ? changes[nChange].second : changes[nChange].first);
                    if (nChange < OLD_CHANGES)
                        (fLog ? zn.log : zn.data) = TakeSnapshot(fLog ? zn.oldLog : zn.oldData);
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
