#include "productcalls.h"
#include "tovmsmon.h"

using testing::ElementsAre;

namespace
{
const std::string DETAILS = "xcsGetQMDetails QM1", RELEASED = "xcsFreeMemFn null 23 null",
                  PRIMARY = "xcsGetInstallationDetails null null null 64 null",
                  ACTIVE = "xcsIsSubpoolActive QM1 QM!1 null 2 id\\2";

std::string ByName(const std::string& strName)
{
    return "xcsGetInstallationDetails " + strName + " null null 16 null";
}
} // namespace

TEST(QueueMgr, InstallationIsFoundByNameOrAsThePrimaryOne)
{
    const struct
    {
        std::string strInstallation, strOwner;
        std::vector<std::string> lookups;
        int nExpected;
        int32_t nResult = 0; // of the look-ups, if not the library's own
    } cases[] = {
        {"Inst1", "Inst1", {ByName("Inst1")}, 1},
        {"Inst1", "Inst9", {ByName("Inst9")}, 0},
        {"Inst1", "Installation0", {ByName("Installation0"), PRIMARY}, 1},
        {"Inst1", "", {ByName(""), PRIMARY}, 1},
        {"Inst1", "Installation0", {ByName("Installation0"), PRIMARY}, 0, XCS_RC_UNKNOWN_INSTALLATION},
        {"Inst1", "Installation0", {ByName("Installation0")}, 0, 5},
    };
    for (const auto& c : cases)
    {
        ProductCalls product;
        product.Configure(c.strInstallation, c.strOwner);
        if (c.nResult != 0)
            product.results["xcsGetInstallationDetails"] = c.nResult;
        {
            CZNMQueueMgr queueMgr(L"QM1");
            std::vector<std::string> expected = c.lookups;
            expected.insert(expected.begin(), DETAILS);
            std::erase(product.calls, RELEASED);
            EXPECT_EQ(product.calls, expected);
            product.calls.clear();
            EXPECT_EQ(queueMgr.Refresh(), c.nExpected) << &c - cases;
        }
        EXPECT_EQ(product.Count(RELEASED), c.nExpected == 1 ? c.lookups.size() + 2 : 1) << &c - cases;
    }
}

TEST(QueueMgr, RecordCountsOnlyWithAResultOfSuccess)
{
    for (const bool fRecord : {false, true})
        for (const char* const pszFails : {"details", "by name", "primary"})
        {
            ProductCalls product;
            product.Configure("Inst1", "Installation0");
            const std::string strFails = pszFails;
            ImportHook<decltype(xcsGetQMDetails)> details("xcsGetQMDetails", [&](auto... args) {
                return strFails != "details" ? details.Real(args...)
                       : fRecord             ? (details.Real(args...), 1)
                                             : 0;
            });
            ImportHook<decltype(xcsGetInstallationDetails)> installation(
                "xcsGetInstallationDetails",
                [&](auto pszName, auto p1, auto p2, int nSelector, auto p3, auto p4, auto pp) {
                    const bool fByName = nSelector == XCS_INSTALLATION_BY_NAME;
                    if (strFails != (fByName ? "by name" : "primary"))
                        return installation.Real(pszName, p1, p2, nSelector, p3, p4, pp);
                    return fRecord
                               ? (installation.Real(nullptr, p1, p2, XCS_INSTALLATION_PRIMARY, p3, p4, pp), 1)
                               : 0;
                });
            EXPECT_EQ(CZNMQueueMgr(L"QM1").Refresh(), 0) << strFails << fRecord;
        }
}

TEST(QueueMgr, EveryQueryAsksAgainAndKeepsTheInstallationWhileItMatches)
{
    ProductCalls product;
    for (const wchar_t* pszName : {L"", static_cast<const wchar_t*>(nullptr)})
        EXPECT_EQ(CZNMQueueMgr(pszName).IsRunning(), 0);
    EXPECT_TRUE(product.calls.empty()); // an empty name is never looked up
    CZNMQueueMgr queueMgr(L"QM1");
    EXPECT_STREQ(queueMgr.GetRuntimeClass()->m_lpszClassName, "CZNMQueueMgr");
    product.calls.clear();
    EXPECT_STREQ(queueMgr.GetDirectoryName(), "QM!1");
    EXPECT_EQ(queueMgr.GetDataDirectory(), product.root.string() + "\\qmgrs\\QM!1");
    EXPECT_EQ(queueMgr.IsMultiInstance(), 0);
    product.Configure("Inst1", "Inst1", "   MultiInstance=Yes\n");
    EXPECT_EQ(queueMgr.IsMultiInstance(), 1);
    EXPECT_STREQ(queueMgr.GetRunIdentity(), L"QM1|QM!1|id/2");
    EXPECT_THAT(product.calls,
                ElementsAre(RELEASED, DETAILS, RELEASED, DETAILS, RELEASED, DETAILS, RELEASED, DETAILS));

    product.Configure("Inst2", "Inst2");
    EXPECT_EQ(queueMgr.Refresh(), 1);
    EXPECT_EQ(product.calls.back(), ByName("Inst2"));

    fs::remove(product.root / "zns.ini");
    EXPECT_EQ(queueMgr.GetDirectoryName(), nullptr);
    EXPECT_EQ(queueMgr.GetDataDirectory(), nullptr);
    EXPECT_EQ(queueMgr.IsMultiInstance() + queueMgr.IsRunning(), 0);
    EXPECT_EQ(queueMgr.Stop(1), -1);
    EXPECT_TRUE(queueMgr.GetRunIdentity().IsEmpty());
}

TEST(QueueMgr, RunningTestTracesItsState)
{
    ProductCalls product;
    Capture capture;
    int nLeft = 1000; // look-ups until the queue manager is deleted
    ImportHook<decltype(xcsGetQMDetails)> details(
        "xcsGetQMDetails", [&](auto... args) { return nLeft-- > 0 ? details.Real(args...) : 1; });
    CZNMQueueMgr queueMgr(L"QM1");
    EXPECT_EQ(queueMgr.IsRunning(), 0);
    EXPECT_EQ(product.calls.back(), ACTIVE);
    product.results["xcsIsSubpoolActive"] = 0;
    EXPECT_EQ(queueMgr.IsRunning(), 1);
    EXPECT_EQ(capture.Count("> 62"), 5); // one at the start, two for each test
    nLeft = 1;                           // between the two refreshes of one test
    EXPECT_EQ(queueMgr.IsRunning(), 0);
    nLeft = 2; // while Stop asks whether it runs
    EXPECT_EQ(queueMgr.Stop(1), 0);
    EXPECT_EQ(queueMgr.Stop(1), -1);
    CZNMQueueMgr(L"QM1");
    EXPECT_THAT(capture.Only("-"),
                ElementsAre("- 55 Queue manager is NOT RUNNING", "- 55 Queue manager is RUNNING",
                            "- 58 Queue Manager not available!", "- 55 Queue manager is NOT RUNNING",
                            "- 58 Queue Manager not available!", "- 55 Queue manager is NOT RUNNING",
                            "- 57 Queue Manager not running!", "- 57 Queue Manager not available!",
                            "- 53 Queue manager could not be found"));
    for (const auto& [pszExit, nCount] : {std::pair{"< 58 0", 1}, {"< 58 3", 1}, {"< 58 -1", 2}})
        EXPECT_EQ(capture.Count(pszExit), nCount);
}

TEST(QueueMgr, StopRunsTheEndCommandOfTheInstallation)
{
    ProductCalls product;
    CZNMQueueMgr queueMgr(L"QM1");
    EXPECT_EQ(queueMgr.Stop(1), 0); // not running: nothing to run
    EXPECT_EQ(product.calls.back(), ACTIVE);
    product.results["xcsIsSubpoolActive"] = 0;
    const std::string strProgram = product.root.string() + "\\bin64\\endznm.exe";
    const std::pair<int16_t, std::string> cases[] = {{1, "-w"},  {2, "-i"}, {3, "-p"}, {4, "-rp"},
                                                     {5, "-ri"}, {7, "-w"}, {0, "-w"}, {-1, "-w"}};
    for (const auto& [nStopType, strOption] : cases)
    {
        EXPECT_EQ(queueMgr.Stop(nStopType), 0);
        EXPECT_EQ(product.calls.back(), "exec 31 " + strProgram + " 1 <" + strProgram + "> <" + strOption +
                                            "> <QM1> null 2 34 null null null null");
    }
    product.results["exit code"] = 40;
    EXPECT_EQ(queueMgr.Stop(1), 40);
    product.results["exec"] = 2;
    EXPECT_EQ(queueMgr.Stop(1), -1);

    // A record without a terminator runs nothing.
    product.results["exec"] = 0;
    ImportHook<decltype(xcsGetQMDetails)> details("xcsGetQMDetails", [&](auto psz, auto p, auto pp) {
        details.Real(psz, p, pp);
        std::memset((*pp)->szName, 'Q', sizeof(*pp)->szName);
        return 0;
    });
    EXPECT_EQ(queueMgr.Stop(1), -1);
}
