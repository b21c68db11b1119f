// The trace as a reader finds it in the file, and failure records.
#include <windows.h>
#include <aclapi.h>
#include <sddl.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <deque>
#include <sstream>

#include "hook.h"
#include "sandbox.h"
#include "returncodes.h"
#include "tovmtrce.h"
#include "tovxcs2.h"

namespace
{
using namespace testing;

XTR_THREAD_AREA* Area()
{
    return static_cast<XTR_THREAD_AREA*>(TlsGetValue(xihTLSIndex));
}

struct Services
{
    explicit Services(const wchar_t* pszTrace)
    {
        SetEnvironmentVariableW(L"ZN_TRACE", pszTrace);
        EXPECT_EQ(xcsInitializeEx(48, 7, nullptr, nullptr, nullptr, nullptr, nullptr, &connection),
                  XCS_RC_OK);
        nEstablished = xtrEstablishTraceStatus();
    }
    ~Services()
    {
        EXPECT_EQ(xcsTerminate(&connection, 4), XCS_RC_OK);
        EXPECT_EQ(TlsGetValue(xihTLSIndex), nullptr);
        EXPECT_EQ(xihProcess.fTraceEnabled, 0u);
        SetEnvironmentVariableW(L"ZN_TRACE", nullptr);
    }
    int32_t nEstablished;
    XCS_CONNECTION connection;
};

// The one file of a directory of the work path; empty when there is not exactly one.
std::string TheFile(const Sandbox& sandbox, const char* pszDirectory)
{
    const Snapshot files = TakeSnapshot(sandbox.root / pszDirectory);
    return files.size() == 1 ? files.begin()->second : "";
}

// The trace's records without the two lines above them and without times.
std::vector<std::string> Records(const Sandbox& sandbox)
{
    std::istringstream trace(TheFile(sandbox, "trace"));
    std::vector<std::string> records;
    for (std::string str; std::getline(trace, str);)
        records.push_back(str.substr(14, std::min(str.find("  (", 14), str.size() - 1) - 14));
    return {records.begin() + 2, records.end()};
}

TEST(Trace, TellsACallTreeAndSurvivesDamagedCounters)
{
    const Sandbox sandbox;
    const Services services(L"flow");
    const CZNMTrace trace(FN_TMAIN);
    CZNMTrace(FN_MIGRATE_QUEUE_MANAGER).Leave(-1);
    for (const int nFunction : {29, 99}) // the one has no result
        CZNMTrace(static_cast<ZNM_FUNCTION>(nFunction)).Leave(0);
    // What has been written is there while the program still runs, or is killed.
    EXPECT_THAT(Records(sandbox),
                ElementsAre("> _tmain", "|  > CZNMSCSApp::MigrateQueueManager",
                            "|  < CZNMSCSApp::MigrateQueueManager = -1",
                            "|  > CZNMFileSecurity::CZNMFileSecurity",
                            "|  < CZNMFileSecurity::CZNMFileSecurity", "|  > component 42 function 99",
                            "|  < component 42 function 99 = 0"));
    EXPECT_THAT(TheFile(sandbox, "trace"), HasSubstr(" ms)"));
    XTR_THREAD_AREA other = {};
    for (XTR_THREAD_AREA* const pArea : {&other, static_cast<XTR_THREAD_AREA*>(nullptr)})
    { // not the thread's own
        xtr_FNC_entry(pArea, 42, 31);
        xtr_FNC_retcode(pArea, 42, 31, 0);
    }
    for (const uint32_t nDepth : {64u, 65u, 128u, 129u, 0xFFFFFFFFu})
    {
        Area()->nDepth = nDepth;
        xtr_FNC_retcode(Area(), 42, 31, 0);
        const std::string strDepth = "(depth " + std::to_string(nDepth) + ")"; // instead of more indentation
        EXPECT_EQ(TheFile(sandbox, "trace").find(strDepth) != std::string::npos, nDepth > 64);
        xtr_FNC_entry(Area(), 42, 31);
    }
    Area()->nDepth = 0;
    EXPECT_THAT(Records(sandbox), SizeIs(7 + 5 * 2));
}

TEST(Trace, TellsTheLibrarysOperationsAtTheirCallersDepth)
{
    const Sandbox sandbox("Log:\r\n   LogPath=D:\r\n");
    const Services services(L"detail");
    const std::string strIni = sandbox.Path("zns.ini");
    uint32_t nReason = 0;
    const CZNMTrace trace(FN_MIGRATE_QUEUE_MANAGER);
    const XTR_THREAD_AREA before = *Area();
    xcsIniUtilWrite("Log", nullptr, nullptr, "LogPath", "E:", strIni.c_str(), 1);
    xcsCreateDirectory(strIni.c_str(), 0, nullptr, nullptr, 0, &nReason);
    SetLastError(1234);
    xcsCompareInstallations("I1", "I2");
    EXPECT_EQ(GetLastError(), 1234u);
    EXPECT_EQ(std::memcmp(&before, Area(), sizeof before), 0); // these are the program's
    EXPECT_THAT(
        Records(sandbox),
        ElementsAre("> CZNMSCSApp::MigrateQueueManager", "|  > xcsIniUtilWrite",
                    AllOf(StartsWith("|  |  . xcsIniUtilWrite() (pszStanza = Log, pszKeyName = (null), "),
                          HasSubstr("'E:', pszFileName = " + strIni)),
                    "|  < xcsIniUtilWrite = 0", "|  > xcsCreateDirectory",
                    "|  |  . xcsCreateDirectory() (pszPath = " + strIni + ")",
                    StartsWith("|  < xcsCreateDirectory = 0x20006118 (the system refused), error 183: "),
                    "|  > xcsCompareInstallations", HasSubstr("(pInstallation = I1, pszName = I2)"),
                    "|  < xcsCompareInstallations = 0x00000001 (different)"));
}

TEST(Trace, FormatsParametersWithoutLoss)
{
    const Sandbox sandbox;
    const Services services(L"detail");
    int nWritten = 77;
    xtr_parms("%s|%S|%d|%u|%04x|%lld|%I64d%c", "\xE4", L"\x4F60\xD83D\xDE00", -1, 4294967295u, 0xAB,
              1LL << 40, 1LL << 40, 'c');
    xtr_parms("%S %S %s", L"\xD83D", nullptr, nullptr);
    xtr_parms("%S", L"a\nb\r\tc\x01");
    xtr_parms("%.2s|%.3S|%5d|%-5d|%.1f", "abc", L"defg", 7, 7, 1.25);
    xtr_parms("%n%d", &nWritten, 5);
    xtr_parms("100%%%!q%", 0);
    xtr_FNC_text(42, 55, Area(), 0, "Queue manager is RUNNING 100%s");
    EXPECT_EQ(nWritten, 77);
    EXPECT_THAT(
        Records(sandbox),
        ElementsAre(". \xC3\xA4|\xE4\xBD\xA0\xF0\x9F\x98\x80|-1|4294967295|00ab|1099511627776|1099511627776c",
                    ". \\uD83D (null) (null)", ". a\\nb\\r\\tc\\x01", ". ab|def|    7|7    |1.2", ". %n5",
                    ". 100%%!q%", "- Queue manager is RUNNING 100%s"));
    xtr_parms("x%S", std::wstring(100'000, L'x').c_str());
    EXPECT_THAT(Records(sandbox).back(), SizeIs(2 + 16'384));
}

TEST(Trace, IsOffOrImpossibleWithoutFailingAnybody)
{
    const Sandbox sandbox;
    {
        const auto fails = Fails(TlsSetValue, FALSE, 0);
        XCS_CONNECTION connection;
        EXPECT_EQ(xcsInitializeEx(48, 7, nullptr, nullptr, nullptr, nullptr, nullptr, &connection),
                  XCS_RC_NO_MEMORY);
        EXPECT_EQ(xtrEstablishTraceStatus(), XCS_RC_NOT_INITIALIZED);
        xtr_FNC_retcode(nullptr, 42, 31, 0);
    }
    for (const wchar_t* pszTrace : {L"", L"1", L"flowx"})
    {
        const Services services(pszTrace);
        EXPECT_EQ(services.nEstablished, XCS_RC_OK);
        EXPECT_EQ(Area()->fTraceActive | xihProcess.fTraceEnabled, 0u);
        EXPECT_THAT(sandbox.Names(), ElementsAre(L"zns.ini"));
    }
    sandbox.Write("trace", "a file in the way");
    const Services services(L"flow");
    EXPECT_NE(services.nEstablished, XCS_RC_OK);
    EXPECT_EQ(Area()->fTraceActive | xihProcess.fTraceEnabled, 0u);
    XTR_THREAD_AREA* const pArea = Area();
    SetLastError(1234); // the program may hand records over all the same, and has yet to read its error
    xtr_FNC_entry(pArea, 42, 179);
    xtr_parms("%d", 1);
    xcsSaveFileContextSccsId("source", 1);
    xcsVORTFn(42, 179, 1, XCS_RC_PROGRAM_FAILURE, nullptr, nullptr, nullptr, nullptr);
    EXPECT_EQ(GetLastError(), 1234u);
}

void Report(const char* pszText, int nProbe)
{
    XCS_INSERTS inserts = {};
    std::memcpy(inserts.achEyeCatcher, "XMSA", 4);
    inserts.apszText[0] = pszText;
    xcsVORTFn(42, 33, nProbe, XCS_RC_PROGRAM_FAILURE, &inserts, nullptr, nullptr, nullptr);
}

TEST(FailureRecord, TellsWhatHappenedAndWhatLedToIt)
{
    const Sandbox sandbox;
    const Services services(L"flow");
    std::deque<CZNMTrace> entered;
    while (entered.size() < 300) // the history wraps, the call stack is full
        entered.emplace_back(FN_FILE_SECURITY_CTOR);
    CZNMTrace(FN_CHANGE_FILE_SECURITY).Leave(-1);
    xcsSaveFileContextSccsId("@(#) source", 140);
    Report("Error 5 setting file security on 'E:\\\xE4'", 10);
    const std::string strRecord = TheFile(sandbox, "errors");
    for (const char* pszPart :
         {"ZNMFileSecurity::ChangeFileSecurity (33)\r\n", "Probe        10\r\n", "0x40006119", "XMSA\r\n",
          "Error 5 setting file security on 'E:\\\xC3\xA4'\r\n", "System       error 5: Access",
          "@(#) source, line 140\r\n", "product_test",
          "  CZNMFileSecurity::CZNMFileSecurity, 128 times\r\n  and 172 within these\r\n"})
        EXPECT_THAT(strRecord, HasSubstr(pszPart));
    EXPECT_TRUE(strRecord.ends_with(
        "  > CZNMFileSecurity::ChangeFileSecurity\r\n  < CZNMFileSecurity::ChangeFileSecurity = -1\r\n"))
        << strRecord;
    EXPECT_THAT(TheFile(sandbox, "trace"),
                HasSubstr(".txt: Error 5 setting file security on 'E:\\\xC3\xA4'"));
}

// A directory that leads elsewhere, or whose owner is a stranger or nobody: no record.
TEST(FailureRecord, IsGivenUpWhereItMustNotBeWritten)
{
    const Sandbox sandbox;
    const Services services(L"flow");
    constexpr DWORD DIRECTORY = FILE_ATTRIBUTE_DIRECTORY;
    for (const auto& [nAttributes, pszDescriptor] :
         {std::pair{DIRECTORY | FILE_ATTRIBUTE_REPARSE_POINT, L"O:BA"},
          {DWORD{FILE_ATTRIBUTE_NORMAL}, L"O:BA"},
          {DIRECTORY, L"O:S-1-5-21-1-2-3-1001"},
          {DIRECTORY, L"D:"}})
    {
        const auto attributes = Hook(GetFileInformationByHandle, [n = nAttributes](auto, auto* p) {
            return p->dwFileAttributes = n, TRUE;
        });
        const auto owner =
            Hook(GetSecurityInfo,
                 [psz = pszDescriptor](auto, auto, auto, PSID* pp, auto, auto, auto, auto* ppsd) -> DWORD {
                     BOOL fDefaulted = FALSE;
                     ConvertStringSecurityDescriptorToSecurityDescriptorW(psz, 1, ppsd, nullptr);
                     return !GetSecurityDescriptorOwner(*ppsd, pp, &fDefaulted);
                 });
        Report("text", 1);
    }
    EXPECT_THAT(sandbox.Names("errors"), SizeIs(0));
    EXPECT_THAT(Records(sandbox),
                AllOf(SizeIs(4), Each("! no failure record, its file could not be created: text")));
}

// The last test: what a process has written counts until it ends.
TEST(FailureRecord, KeepsTheFirstOfAKindAndOfAProcess)
{
    const Sandbox sandbox;
    const Services services(L"flow");
    sandbox.Write("errors/ZN" + std::to_string(GetCurrentProcessId()) + ".30.txt", "of an earlier process");
    for (int n = 0; n < 66; ++n)
        Report("text", n < 6 ? 20 : 100 + n);
    const auto records = Records(sandbox);
    EXPECT_THAT(records[4], HasSubstr(".txt: text"));
    EXPECT_EQ(records[5], "! no failure record, 5 of this function and probe are kept: text");
    EXPECT_EQ(records.back(), "! no failure record, 50 of this process are kept: text");
    ptrdiff_t nWritten = 0, nLast = 0;
    for (const auto& [strName, strRecord] : TakeSnapshot(sandbox.root / "errors"))
    {
        nWritten += strRecord.starts_with("Vantor ZN failure record\r\n");
        nLast += strRecord.find("More         not kept: ") != strRecord.npos; // of the kind, of the process
    }
    EXPECT_EQ(nWritten,
              std::ranges::count_if(records, [](auto& str) { return str.starts_with("! failure record "); }));
    EXPECT_EQ(nLast, 2);
}
} // namespace
