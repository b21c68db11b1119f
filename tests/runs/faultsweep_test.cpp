// Fails the first call of a function, then the second, and so on until a run passes without a failure, for
// every function that the shipped program imports. Whatever happens, every byte of the queue manager must be
// in a whole tree that the configuration names, and what was borrowed must have been given back.
#include <gmock/gmock.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <set>
#include <sstream>

#include "hook.h"
#include "installation.h"

namespace
{
// How a function fails: what it returns and the last error that it leaves.
struct Failure
{
    const char* pszFunction;
    uint64_t nReturn;
    DWORD nError;
};
constexpr uint64_t INVALID = ~uint64_t{0};
const Failure FAILURES[] = {
    {"SHFileOperationW", 0x7C, 0},
    {"CreateFileW", INVALID, ERROR_ACCESS_DENIED},
    {"GetFileInformationByHandle", FALSE, ERROR_ACCESS_DENIED},
    {"GetFileInformationByHandleEx", FALSE, ERROR_INVALID_PARAMETER},
    {"GetFinalPathNameByHandleW", 0, ERROR_ACCESS_DENIED},
    {"GetFullPathNameW", 0, ERROR_INVALID_NAME},
    {"GetVolumePathNameW", FALSE, ERROR_ACCESS_DENIED},
    {"DeleteFileW", FALSE, ERROR_SHARING_VIOLATION},
    {"RemoveDirectoryW", FALSE, ERROR_DIR_NOT_EMPTY},
    {"FindFirstFileW", INVALID, ERROR_ACCESS_DENIED},
    {"FindFirstFileExW", INVALID, ERROR_ACCESS_DENIED},
    {"FindNextFileW", FALSE, ERROR_NO_MORE_FILES}, // the list looks shorter than it is
    {"FindNextFileW", FALSE, ERROR_ACCESS_DENIED},
    {"FindClose", TRUE, 0},
    {"GetFileAttributesW", INVALID_FILE_ATTRIBUTES, ERROR_ACCESS_DENIED},
    {"GetFileAttributesExW", FALSE, ERROR_ACCESS_DENIED},
    {"SetFileAttributesW", FALSE, ERROR_ACCESS_DENIED},
    {"GetCurrentDirectoryW", 0, ERROR_ACCESS_DENIED},
    {"SetCurrentDirectoryW", FALSE, ERROR_PATH_NOT_FOUND},
    {"_waccess", INVALID_FILE_ATTRIBUTES, ERROR_FILE_NOT_FOUND},
    {"AllocateAndInitializeSid", FALSE, ERROR_INVALID_SID},
    {"LookupAccountNameW", FALSE, ERROR_NONE_MAPPED},
    {"SetEntriesInAclW", ERROR_NOT_ENOUGH_MEMORY, ERROR_NOT_ENOUGH_MEMORY},
    {"GetNamedSecurityInfoW", ERROR_ACCESS_DENIED, ERROR_ACCESS_DENIED},
    {"SetNamedSecurityInfoW", ERROR_ACCESS_DENIED, ERROR_ACCESS_DENIED},
    {"GetAce", FALSE, ERROR_INVALID_PARAMETER},
    {"IsValidSid", FALSE, ERROR_INVALID_SID},
    {"EqualSid", FALSE, ERROR_INVALID_SID},
    {"LookupPrivilegeValueW", FALSE, ERROR_NO_SUCH_PRIVILEGE},
    {"OpenProcessToken", FALSE, ERROR_ACCESS_DENIED},
    {"AdjustTokenPrivileges", FALSE, ERROR_INVALID_HANDLE},
    {"CreateMutexW", 0, ERROR_ACCESS_DENIED},
    {"SetConsoleCtrlHandler", FALSE, ERROR_INVALID_PARAMETER},
    {"SetDllDirectoryW", FALSE, ERROR_NOT_ENOUGH_MEMORY},
    {"WideCharToMultiByte", 0, ERROR_INSUFFICIENT_BUFFER},
    {"MultiByteToWideChar", 0, ERROR_INSUFFICIENT_BUFFER},
    {"LoadStringW", 0, ERROR_RESOURCE_NAME_NOT_FOUND},
    {"FindResourceW", 0, ERROR_RESOURCE_NAME_NOT_FOUND},
    {"LoadResource", 0, ERROR_RESOURCE_DATA_NOT_FOUND},
    {"LockResource", 0, 0},
    {"SizeofResource", 0, ERROR_RESOURCE_DATA_NOT_FOUND},
    {"GetModuleHandleW", 0, ERROR_MOD_NOT_FOUND},
    {"GetCommandLineW", 0, ERROR_NOT_ENOUGH_MEMORY},
    {"TlsGetValue", 0, ERROR_INVALID_PARAMETER},
    {"malloc", 0, ERROR_NOT_ENOUGH_MEMORY},
    {"SystemFunction036", FALSE, 0},
    {"xcsCheckConsistency", 0x20006110, 0},
    {"xcsInitializeEx", 0x20006110, 0},
    {"xcsCheckAuthorization", 0x40806177, 0},
    {"xcsGetIniFilename", 1, 0},
    {"xcsIniUtilRead", 1, 0},
    {"xcsIniUtilWrite", 1, 0},
    {"xcsGetQMDetails", 1, 0},
    {"xcsGetInstallationDetails", 1, 0},
    {"xcsCompareInstallations", 1, 0},
    {"xcsIsSubpoolActive", 1, 0},
    {"xcsExecProgramHandle", 1, 0},
    {"xcsCreateDirectory", 1, 0},
    {"xcsVolumeSupportsSecurity", 0x40806178, 0},
    {"xtrEstablishTraceStatus", 1, 0},
};
// What cannot fail, or not in a way that the program could be told.
const std::set<std::string> SPARED = {"AcquireSRWLockExclusive",
                                      "BuildExplicitAccessWithNameW",
                                      "CharLowerBuffW",
                                      "CloseHandle",
                                      "CompareStringOrdinal",
                                      "FreeSid",
                                      "GetCurrentProcess",
                                      "GetLastError",
                                      "LocalFree",
                                      "ReleaseSRWLockExclusive",
                                      "SetErrorMode",
                                      "SetLastError",
                                      "Sleep",
                                      "TerminateProcess",
                                      "xcsFreeMemFn",
                                      "xcsSaveFileContextSccsId",
                                      "xcsTerminate",
                                      "xcsVORTFn",
                                      "xihProcess",
                                      "xihTLSIndex",
                                      "xtr_FNC_entry",
                                      "xtr_FNC_retcode",
                                      "xtr_FNC_text",
                                      "xtr_parms",
                                      "zutDisplayCSPError",
                                      "zutMapRCTo8bit"};
// What an almost empty program imports, for the language's runtime.
std::set<std::string> RuntimeImports()
{
    std::set<std::string> names;
    const HMODULE hProbe =
        LoadLibraryExW((ProgramFolder() / "runtime_probe.exe").c_str(), nullptr, DONT_RESOLVE_DLL_REFERENCES);
    ForEachImport(hProbe, [&](const char*, const char* pszName, void**) { names.insert(pszName); });
    return names;
}

// The runs that are made to fail: words for the queue manager, and faults that lead into rare paths.
struct Scenario
{
    const wchar_t* pszQueueManager;
    const char* pszFaults;
};
const Scenario SCENARIOS[] = {
    {L"QM1", ""},
    {L"QM9", ""},                                                         // unknown: shows messages
    {L"QM1", "SetNamedSecurityInfoW:4:o:5:5;"},                           // takes ownership
    {L"QM1", "xcsIsSubpoolActive:1:a:0:0;xcsExecProgramHandle:1:a:0:0;"}, // is stopped
    {L"QM1", "xcsGetInstallationDetails:1:o:10006164:0;"},
    {L"QM1", "GetFileInformationByHandleEx:1:a:0:57;"}, // a file system without 128-bit identifiers
};

bool IsSafe(const std::string& strState)
{
    // The old trees, with a configuration that names them; or the new ones, with one that names those; or,
    // between the two changes, both trees, with the data named at its new and the log at its old place.
    return (strState.starts_with("data +") && strState.substr(7).starts_with(" log +") &&
            strState.find("zns old") != std::string::npos) ||
           strState == "data ++ log ++ zns new qm old" ||
           (strState[6] == '+' && strState[13] == '+' && strState.ends_with("zns new qm new"));
}

// The closed list of outcomes. Empty, or what is wrong.
std::string Judge(const Installation& zn, const RunResult& result, bool fMemory)
{
    const std::string strState = zn.State();
    if (!IsSafe(strState))
        return "unsafe: " + strState;
    if (result.nStatus == 0 && !strState.ends_with("zns new qm new"))
        return "status 0 without a move: " + strState;
    if (result.nStatus == 0 && !(result.strOut + result.strErr).empty())
        return "status 0 with a message";
    if (!zn.IsRestUntouched())
        return "something else was changed";
    const std::set<DWORD> statuses = {0, 0xFFFFFFFF, 71, 119, 0x10, 3 /* out of memory */};
    const bool fRuntimeStart =
        result.nStatus == EXCEPTION_ACCESS_VIOLATION && fMemory; // before the entry function
    if (!statuses.contains(result.nStatus) && !(result.nStatus > 0 && result.nStatus < 256) && !fRuntimeStart)
        return "status " + std::to_string(result.nStatus);
    if (result.nStatus == 0xFFFFFFFF && result.strErr.find("\r\n") == std::string::npos)
        return "no message";
    return "";
}

// The same command again, with nothing failing: it completes the move, or changes nothing. Says which, or
// what is wrong.
std::string Again(Installation& zn, const std::wstring& strWords, bool fKnown = true)
{
    const std::string strState = zn.State();
    const bool fMoved = zn.Run(strWords).nStatus == 0;
    const bool fRight =
        zn.State() == (fMoved ? "data -+ log -+ zns new qm new" : strState) && zn.IsRestUntouched();
    const bool fExpected = fMoved == (fKnown && strState.find("zns old") != std::string::npos);
    return strState + (fRight && fExpected ? fMoved ? ", again: moved" : ", again: refused"
                                           : ", again: wrong, " + zn.State());
}

void Print(const std::map<std::string, int>& outcomes)
{
    for (const auto& [strOutcome, nCount] : outcomes)
    {
        std::printf("%5d %s\n", nCount, strOutcome.c_str());
        EXPECT_EQ(strOutcome.find("wrong"), std::string::npos) << strOutcome;
    }
}

// Fails calls of every function in chMode ('o': one call, 'a': that and all later ones): a few of each,
// spread over the run, or with ZN_SWEEP_ALL in the environment each and every one, followed by the same
// command with nothing failing.
int Sweep(char chMode, size_t nPart, size_t nParts)
{
    int nPoints = 0;
    std::map<std::string, int> outcomes;
    const bool fFull = std::getenv("ZN_SWEEP_ALL") != nullptr;
    for (const Scenario& scenario : SCENARIOS)
    {
        Installation whole;
        whole.Run(whole.MoveWords(scenario.pszQueueManager),
                  std::string(scenario.pszFaults) + "xcsTerminate:0:o:0:0");
        size_t nFunction = 0;
        for (const auto& [pszFunction, nReturn, nError] : FAILURES)
        {
            const bool fMemory = std::strcmp(pszFunction, "malloc") == 0;
            // Failing every allocation leaves the language's runtime nothing to end the process with.
            if (nFunction++ % nParts != nPart || (fMemory && chMode == 'a'))
                continue;
            const long nCalls = whole.Calls(pszFunction);
            const long nStep = fFull ? 1 : std::max(1L, nCalls / (&scenario == SCENARIOS ? 6 : 2));
            for (long nCall = 1; nCall <= nCalls; nCall += nStep)
            {
                Installation zn;
                std::ostringstream fault;
                fault << scenario.pszFaults << pszFunction << ":" << std::hex << nCall << ":" << chMode << ":"
                      << nReturn << ":" << nError;
                const RunResult result = zn.Run(zn.MoveWords(scenario.pszQueueManager), fault.str());
                ++nPoints;
                EXPECT_EQ(Judge(zn, result, fMemory), "") << fault.str() << "\n" << result.strErr;
                if (result.nStatus != 3 && result.nStatus != EXCEPTION_ACCESS_VIOLATION &&
                    std::strcmp(pszFunction, "FindClose") != 0)
                    EXPECT_EQ(zn.strReport.find("held"), std::string::npos) << fault.str() << "\n"
                                                                            << zn.strReport;
                if (fFull)
                    ++outcomes[Again(zn, zn.MoveWords(scenario.pszQueueManager),
                                     scenario.pszQueueManager[2] == L'1')];
            }
        }
    }
    Print(outcomes);
    return nPoints;
}
} // namespace

TEST(FaultSweep, EveryImportHasARow)
{
    const HMODULE hModule =
        LoadLibraryExW((ProgramFolder() / "tarvel.exe").c_str(), nullptr, DONT_RESOLVE_DLL_REFERENCES);
    ASSERT_NE(hModule, nullptr);
    const std::set<std::string> runtime = RuntimeImports();
    int nImports = 0;
    ForEachImport(hModule, [&](const char* pszDll, const char* pszName, void**) {
        ++nImports;
        if (_stricmp(pszDll, "msvcrt.dll") != 0 && !runtime.contains(pszName))
            EXPECT_TRUE(
                SPARED.contains(pszName) ||
                std::ranges::any_of(
                    FAILURES, [&](const Failure& f) { return std::strcmp(f.pszFunction, pszName) == 0; }))
                << pszName;
    });
    EXPECT_GT(nImports, 100);
}

class Sweeps : public testing::TestWithParam<std::tuple<char, size_t>>
{
};

TEST_P(Sweeps, LoseNothing)
{
    const auto [chMode, nPart] = GetParam();
    const int nPoints = Sweep(chMode, nPart, 3);
    EXPECT_GT(nPoints, 100);
    std::printf("%d points\n", nPoints);
}

INSTANTIATE_TEST_SUITE_P(OnceAndFromThenOn, Sweeps,
                         testing::Combine(testing::Values('o', 'a'), testing::Values(0, 1, 2)));

// A process that ends at any call, as if the power had failed; then the same command again.
TEST(KillSweep, LosesNothingAndTheSameCommandCompletesOrRefuses)
{
    Installation whole;
    whole.Run(whole.MoveWords(), "xcsTerminate:0:o:0:0");
    const long nCalls = whole.Calls("*");
    std::map<std::string, int> outcomes;
    constexpr long KILLS = 220;
    for (long i = 0; i < KILLS; ++i)
    {
        Installation zn;
        std::ostringstream fault;
        fault << "*:" << std::hex << 1 + i * (nCalls - 1) / (KILLS - 1) << ":k:0:0";
        EXPECT_EQ(zn.Run(zn.MoveWords(), fault.str()).nStatus, 9u);
        const std::string strState = zn.State();
        EXPECT_TRUE(IsSafe(strState)) << fault.str() << " " << strState;
        EXPECT_TRUE(zn.IsRestUntouched());
        ++outcomes[Again(zn, zn.MoveWords())];
    }
    Print(outcomes);
    EXPECT_GE(outcomes.size(), 5u);
}

// A file of an old tree grows, vanishes or appears at any moment before its deletion begins: the bytes that
// the tree holds then are in one whole tree afterwards, and the program does not say that it moved what it
// lost.
TEST(ChangeSweep, LosesNothing)
{
    enum Change
    {
        GROWS,
        VANISHES,
        APPEARS,
        CHANGES
    };
    Installation whole;
    whole.Run(whole.MoveWords(), "xcsTerminate:0:o:0:0");
    const long nLast = whole.FirstCall("DeleteFileW"); // files do not come back
    ASSERT_GT(nLast, 100);
    const long nMoments = std::getenv("ZN_SWEEP_ALL") != nullptr ? nLast : 10;
    std::map<std::string, int> outcomes;
    for (long i = 0; i < nMoments * CHANGES * 2; ++i)
    {
        const auto eChange = static_cast<Change>(i % CHANGES);
        const bool fLog = i / CHANGES % 2 != 0;
        const long nCall = 1 + i / CHANGES / 2 * (nLast - 3) / nMoments;
        Installation zn;
        const fs::path old = fLog ? zn.oldLog : zn.oldData, copy = fLog ? zn.newLog : zn.newData;
        Snapshot& expected = fLog ? zn.log : zn.data;
        std::ostringstream fault;
        fault << "*:" << std::hex << nCall << ":w:0:0";
        const RunResult result = zn.Run(zn.MoveWords(), fault.str(), [&] {
            const fs::path file = old / (fLog ? "active\\log1" : "s\\t\\c");
            if (eChange == GROWS)
                std::ofstream(file, std::ios::binary | std::ios::app) << "acknowledged";
            else if (eChange == VANISHES)
                fs::remove(file);
            else
                WriteAll(file.parent_path() / "appeared", "acknowledged");
            expected = TakeSnapshot(old);
        });
        const std::string strState = zn.State(); // compares with what the tree held after the change
        const char chOld = strState[fLog ? 12 : 5], chNew = strState[fLog ? 13 : 6];
        EXPECT_TRUE(chOld == '+' || chNew == '+') << fault.str() << " " << strState;
        const bool fMoved = result.nStatus == 0;
        EXPECT_EQ(fMoved, strState == "data -+ log -+ zns new qm new") << fault.str() << " " << strState;
        ++outcomes[strState + (fMoved ? ", moved" : ", refused")];
    }
    Print(outcomes);
}
