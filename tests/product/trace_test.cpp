// The trace as a reader finds it in the file, and failure records.
#include <windows.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>

#include "hook.h"
#include "returncodes.h"
#include "sandbox.h"
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
        xcsInitializeEx(48, 7, nullptr, nullptr, nullptr, nullptr, nullptr, &connection);
        nEstablished = xtrEstablishTraceStatus();
    }
    ~Services() { EXPECT_EQ(xcsTerminate(&connection, 4), XCS_RC_OK); }
    int32_t nEstablished;
    XCS_CONNECTION connection;
};

// The trace's records without the two lines above them and without times.
std::vector<std::string> Records(const Sandbox& sandbox)
{
    std::istringstream trace(TakeSnapshot(sandbox.root / "trace").begin()->second);
    std::vector<std::string> records;
    for (std::string str; std::getline(trace, str);)
        records.push_back(str.substr(14, str.size() - 1 - 14));
    return {records.begin() + 2, records.end()};
}

TEST(Trace, TellsACallTreeAndFailures)
{
    const Sandbox sandbox;
    const Services services(L"detail");
    const CZNMTrace trace(FN_TMAIN);
    CZNMTrace(FN_MIGRATE_QUEUE_MANAGER).Leave(-1);
    SetLastError(1234);
    xcsCompareInstallations("I1", "I2");
    EXPECT_EQ(GetLastError(), 1234u);
    xtr_parms("%s|%S|%d|%u|%04X|%S|%n%!q%lld%", "s", L"\x4F60\n", -1, ~0u, 0xAB, nullptr);
    xtr_parms("x%S", std::wstring(100'000, L'x').c_str());
    // What has been written is there while the program still runs, or is killed.
    EXPECT_THAT(Records(sandbox),
                ElementsAre("> _tmain", "|  > CZNMSCSApp::MigrateQueueManager",
                            "|  < CZNMSCSApp::MigrateQueueManager = -1", "|  > xcsCompareInstallations",
                            "|  |  . xcsCompareInstallations() (pInstallation = I1, pszName = I2)",
                            "|  < xcsCompareInstallations = 0x00000001 (different)",
                            "|  . s|\xE4\xBD\xA0\\x0A|-1|4294967295|00AB|(null)|%n%!q%lld%",
                            SizeIs(5 + 16'384)));
    auto* const pArea = static_cast<XTR_THREAD_AREA*>(TlsGetValue(xihTLSIndex));
    for (const uint32_t nDepth : {64u, 65u, 128u, 129u, 0xFFFFFFFFu}) // damaged
    {
        pArea->nDepth = nDepth;
        xtr_FNC_retcode(pArea, 42, 31, 0);
        xtr_FNC_entry(pArea, 42, 31);
    }
    pArea->nDepth = 0;
    EXPECT_THAT(Records(sandbox), SizeIs(8 + 5 * 2));

    xcsSaveFileContextSccsId("@(#) source", 140);
    XCS_INSERTS inserts = {};
    inserts.apszText[0] = "Error 5";
    for (int n = 0; n < 60; ++n)
        xcsVORTFn(42, 33, 10, XCS_RC_PROGRAM_FAILURE, &inserts, nullptr, nullptr, nullptr);
    const Snapshot records = TakeSnapshot(sandbox.root / "errors");
    EXPECT_EQ(records.size(), 50u); // of the process
    EXPECT_THAT(records,
                Contains(Pair(_, AllOf(HasSubstr("Error 5\r\n"), HasSubstr("@(#) source, line 140\r\n"),
                                       HasSubstr("CZNMFileSecurity::ChangeFileSecurity (33)\r\n"),
                                       EndsWith("  < CZNMSCSApp::MigrateQueueManager = -1\r\n")))));
}

TEST(Trace, IsOffOrImpossibleWithoutFailingAnybody)
{
    const Sandbox sandbox;
    EXPECT_EQ(xtrEstablishTraceStatus(), XCS_RC_NOT_INITIALIZED);
    EXPECT_EQ(Services(L"flowx").nEstablished, XCS_RC_OK);
    EXPECT_THAT(sandbox.Names(), ElementsAre(L"zns.ini"));
    WriteAll(sandbox.root / "trace", "a file in the way");
    const Services services(L"flow");
    EXPECT_NE(services.nEstablished, XCS_RC_OK);
    SetLastError(1234); // the program may hand records over all the same, and has yet to read its error
    xtr_FNC_entry(nullptr, 42, 179);
    xtr_parms("%d", 1);
    xcsVORTFn(42, 179, 1, XCS_RC_PROGRAM_FAILURE, nullptr, nullptr, nullptr, nullptr);
    EXPECT_EQ(GetLastError(), 1234u);
}
} // namespace
