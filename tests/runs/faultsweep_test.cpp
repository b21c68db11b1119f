// Fails the first call of a function, then the second, and so on until a run passes without a failure, for
// every function that the shipped program imports. Whatever happens, every byte of the queue manager must be
// in a whole tree that the configuration names, and what was borrowed must have been given back.
#include <gmock/gmock.h>

#include <map>
#include <set>
#include <sstream>

#include "hook.h"
#include "installation.h"

namespace
{
// How a function fails: name, then "return:last error" in hexadecimal.
constexpr char FAILURES[] = "SHFileOperationW 7c:0 CreateFileW ffffffffffffffff:5 GetFileInformationByHandle "
                            "0:5 DeleteFileW 0:20 RemoveDirectoryW 0:91 "
                            "FindFirstFileW ffffffffffffffff:5 FindFirstFileExW "
                            "ffffffffffffffff:5 FindNextFileW 0:12 FindClose 1:0 GetFileAttributesW "
                            "ffffffff:5 SetFileAttributesW 0:5 GetCurrentDirectoryW "
                            "0:5 SetCurrentDirectoryW 0:3 _waccess ffffffff:2 AllocateAndInitializeSid 0:539 "
                            "LookupAccountNameW 0:534 SetEntriesInAclW 8:8 "
                            "GetNamedSecurityInfoW 5:5 SetNamedSecurityInfoW 5:5 GetAce 0:57 IsValidSid "
                            "0:539 EqualSid 0:539 LookupPrivilegeValueW 0:521 "
                            "OpenProcessToken 0:5 AdjustTokenPrivileges 0:6 WideCharToMultiByte 0:7a "
                            "MultiByteToWideChar 0:7a LoadStringW 0:716 FindResourceW "
                            "0:716 LoadResource 0:714 LockResource 0:0 SizeofResource 0:714 GetModuleHandleW "
                            "0:7e GetCommandLineW 0:8 TlsGetValue 0:57 malloc "
                            "0:8 SystemFunction036 0:0 xcsCheckConsistency 20006110:0 xcsInitializeEx "
                            "20006110:0 xcsCheckAuthorization 40806177:0 "
                            "xcsGetIniFilename 1:0 "
                            "xcsIniUtilRead 1:0 xcsIniUtilWrite 1:0 xcsGetQMDetails 1:0 "
                            "xcsGetInstallationDetails 1:0 xcsCompareInstallations 1:0 "
                            "xcsIsSubpoolActive 1:0 xcsExecProgramHandle 1:0 xcsCreateDirectory 1:0 "
                            "xcsVolumeSupportsSecurity 40806178:0 "
                            "xtrEstablishTraceStatus 1:0 ";
// What cannot fail, or not in a way that the program could be told.
constexpr char SPARED[] =
    "BuildExplicitAccessWithNameW FreeSid LocalFree CharLowerBuffW xcsTerminate xcsFreeMemFn "
    "xcsSaveFileContextSccsId xcsVORTFn "
    "xihProcess xihTLSIndex xtr_FNC_entry xtr_FNC_retcode xtr_FNC_text xtr_parms zutDisplayCSPError "
    "zutMapRCTo8bit ";
// What an almost empty program imports, for the language's runtime.
std::set<std::string> RuntimeImports()
{
    std::set<std::string> names;
    const HMODULE hProbe =
        LoadLibraryExW((ProgramFolder() / "runtime_probe.exe").c_str(), nullptr, DONT_RESOLVE_DLL_REFERENCES);
    ForEachImport(hProbe, [&](const char*, const char* pszName, void**) { names.insert(pszName); });
    return names;
}

std::map<std::string, std::string> Failures()
{
    std::istringstream words(FAILURES);
    std::map<std::string, std::string> failures;
    for (std::string strName, strFailure; words >> strName >> strFailure;)
        failures[strName] = strFailure;
    return failures;
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
        for (const auto& [strFunction, strFailure] : Failures())
        {
            // Failing every allocation leaves the language's runtime nothing to end the process with.
            if (nFunction++ % nParts != nPart || (strFunction == "malloc" && chMode == 'a'))
                continue;
            const long nCalls = whole.Calls(strFunction);
            const long nStep = fFull ? 1 : std::max(1L, nCalls / (&scenario == SCENARIOS ? 6 : 2));
            for (long nCall = 1; nCall <= nCalls; nCall += nStep)
            {
                Installation zn;
                std::ostringstream fault;
                fault << scenario.pszFaults << strFunction << ":" << std::hex << nCall << ":" << chMode << ":"
                      << strFailure;
                const RunResult result = zn.Run(zn.MoveWords(scenario.pszQueueManager), fault.str());
                ++nPoints;
                EXPECT_EQ(Judge(zn, result, strFunction == "malloc"), "") << fault.str() << "\n"
                                                                          << result.strErr;
                if (result.nStatus != 3 && result.nStatus != EXCEPTION_ACCESS_VIOLATION &&
                    strFunction != "FindClose")
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
            EXPECT_NE((std::string(" ") + FAILURES + SPARED).find(" " + std::string(pszName) + " "),
                      std::string::npos)
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
