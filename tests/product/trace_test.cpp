// The trace as a reader finds it in the file, and failure records.
#include <windows.h>

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

struct Services
{
    explicit Services(const wchar_t* pszTrace)
    {
        SetEnvironmentVariableW(L"ZN_TRACE", pszTrace);
        EXPECT_EQ(xcsInitializeEx(48, 7, nullptr, nullptr, nullptr, nullptr, nullptr, &connection),
                  XCS_RC_OK);
        nEstablished = xtrEstablishTraceStatus();
    }
    ~Services() { EXPECT_EQ(xcsTerminate(&connection, 4), XCS_RC_OK); }
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
        records.push_back(str.substr(14, str.size() - 1 - 14));
    return {records.begin() + 2, records.end()};
}

TEST(Trace, TellsACallTreeAndSurvivesDamagedCounters)
{
    const Sandbox sandbox;
    const Services services(L"detail");
    const CZNMTrace trace(FN_TMAIN);
    CZNMTrace(FN_MIGRATE_QUEUE_MANAGER).Leave(-1);
    auto* const pArea = static_cast<XTR_THREAD_AREA*>(TlsGetValue(xihTLSIndex));
    const XTR_THREAD_AREA before = *pArea;
    SetLastError(1234);
    xcsCompareInstallations("I1", "I2");
    EXPECT_EQ(GetLastError(), 1234u);
    EXPECT_EQ(std::memcmp(&before, pArea, sizeof before), 0); // these are the program's
    xtr_FNC_text(42, 55, pArea, 0, "100%s");
    // What has been written is there while the program still runs, or is killed.
    EXPECT_THAT(Records(sandbox),
                ElementsAre("> _tmain", "|  > CZNMSCSApp::MigrateQueueManager",
                            "|  < CZNMSCSApp::MigrateQueueManager = -1", "|  > xcsCompareInstallations",
                            "|  |  . xcsCompareInstallations() (pInstallation = I1, pszName = I2)",
                            "|  < xcsCompareInstallations = 0x00000001 (different)", "|  - 100%s"));
    for (const uint32_t nDepth : {64u, 65u, 128u, 129u, 0xFFFFFFFFu})
    {
        pArea->nDepth = nDepth;
        xtr_FNC_retcode(pArea, 42, 31, 0);
        xtr_FNC_entry(pArea, 42, 31);
    }
    pArea->nDepth = 0;
    EXPECT_THAT(Records(sandbox), SizeIs(7 + 5 * 2));
}

TEST(Trace, FormatsParametersWithoutLoss)
{
    const Sandbox sandbox;
    const Services services(L"detail");
    const Hooks western = ThreadCodePage(1252);
    xtr_parms("%s|%S|%d|%u|%04X|%p", "\xE4", L"\x4F60\xD83D\xDE00\n", -1, ~0u, 0xAB,
              reinterpret_cast<void*>(0xF0));
    xtr_parms("%S %s|%n%d|100%%%!q%lld%", nullptr, nullptr, 5);
    xtr_parms("x%S", std::wstring(100'000, L'x').c_str());
    EXPECT_THAT(
        Records(sandbox),
        ElementsAre(". \xC3\xA4|\xE4\xBD\xA0\xF0\x9F\x98\x80\\x0A|-1|4294967295|00AB|00000000000000F0",
                    ". (null) (null)|%n5|100%%!q%lld%", SizeIs(2 + 16'384)));
}

TEST(Trace, IsOffOrImpossibleWithoutFailingAnybody)
{
    const Sandbox sandbox;
    EXPECT_EQ(xtrEstablishTraceStatus(), XCS_RC_NOT_INITIALIZED);
    xtr_FNC_retcode(nullptr, 42, 31, 0);
    EXPECT_EQ(Services(L"flowx").nEstablished, XCS_RC_OK);
    EXPECT_THAT(sandbox.Names(), ElementsAre(L"zns.ini"));
    sandbox.Write("trace", "a file in the way");
    const Services services(L"flow");
    EXPECT_NE(services.nEstablished, XCS_RC_OK);
    SetLastError(1234); // the program may hand records over all the same, and has yet to read its error
    xtr_FNC_entry(nullptr, 42, 179);
    xtr_parms("%d", 1);
    xcsSaveFileContextSccsId("source", 1);
    xcsVORTFn(42, 179, 1, XCS_RC_PROGRAM_FAILURE, nullptr, nullptr, nullptr, nullptr);
    EXPECT_EQ(GetLastError(), 1234u);
}

TEST(FailureRecord, TellsWhatHappenedAndWhatLedToIt)
{
    const Sandbox sandbox;
    const Services services(L"flow");
    std::deque<CZNMTrace> entered;
    while (entered.size() < 300) // the history wraps
        entered.emplace_back(FN_FILE_SECURITY_CTOR);
    CZNMTrace(FN_CHANGE_FILE_SECURITY).Leave(-1);
    xcsSaveFileContextSccsId("@(#) source", 140);
    const Hooks western = ThreadCodePage(1252);
    XCS_INSERTS inserts = {};
    inserts.apszText[0] = "Error 5 setting file security on 'E:\\\xE4'";
    const auto report = [&] {
        xcsVORTFn(42, 33, 10, XCS_RC_PROGRAM_FAILURE, &inserts, nullptr, nullptr, nullptr);
    };
    report();
    EXPECT_THAT(TheFile(sandbox, "errors"),
                AllOf(HasSubstr("Error 5 setting file security on 'E:\\\xC3\xA4'\r\n"),
                      HasSubstr("Function     CZNMFileSecurity::ChangeFileSecurity (33)\r\n"),
                      HasSubstr("@(#) source, line 140\r\n"),
                      EndsWith("  > CZNMFileSecurity::ChangeFileSecurity\r\n"
                               "  < CZNMFileSecurity::ChangeFileSecurity = -1\r\n")));
    for (int n = 0; n < 60; ++n)
        report();
    EXPECT_THAT(sandbox.Names("errors"), SizeIs(AllOf(Gt(40u), Le(50u)))); // of the process
}

} // namespace
