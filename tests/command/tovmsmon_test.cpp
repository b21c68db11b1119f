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
    const std::tuple<std::string, std::vector<std::string>, int, std::map<std::string, int32_t>> cases[] = {
        // owner, look-ups of installations, result; results of calls instead of the library's own
        {"Inst1", {ByName("Inst1")}, 1, {}},
        {"Inst9", {ByName("Inst9")}, 0, {}},
        {"Installation0", {ByName("Installation0"), PRIMARY}, 1, {}},
        {"", {ByName(""), PRIMARY}, 1, {}},
        {"", {ByName(""), PRIMARY}, 0, {{PRIMARY, XCS_RC_UNKNOWN_INSTALLATION}}},
        {"Installation0", {ByName("Installation0")}, 0, {{ByName("Installation0"), 5}}},
        // A success without a record is none.
        {"Inst1", {}, 0, {{DETAILS, 0}}},
        {"Inst1", {ByName("Inst1")}, 0, {{ByName("Inst1"), 0}}},
        {"", {ByName(""), PRIMARY}, 0, {{PRIMARY, 0}}},
    };
    for (const auto& [strOwner, lookups, nExpected, results] : cases)
    {
        ProductCalls product;
        product.Configure("Inst1", strOwner);
        product.results = results;
        {
            CZNMQueueMgr queueMgr(L"QM1");
            std::erase(product.calls, RELEASED);
            EXPECT_EQ(product.calls.front(), DETAILS);
            EXPECT_EQ(std::vector(product.calls.begin() + 1, product.calls.end()), lookups);
            product.calls.clear();
            EXPECT_EQ(queueMgr.Refresh(), nExpected) << strOwner;
        }
        EXPECT_EQ(product.Count(RELEASED), nExpected == 1 ? lookups.size() + 2 : !lookups.empty())
            << strOwner;
    }
}

TEST(QueueMgr, EveryQueryAsksAgainAndKeepsTheInstallationWhileItMatches)
{
    ProductCalls product;
    for (const wchar_t* pszName : {L"", static_cast<const wchar_t*>(nullptr)})
        EXPECT_EQ(CZNMQueueMgr(pszName).IsRunning(), 0);
    EXPECT_TRUE(product.calls.empty()); // an empty name is never looked up
    CZNMQueueMgr queueMgr(L"QM1");
    product.calls.clear();
    EXPECT_STREQ(queueMgr.GetDirectoryName(), "QM!1");
    EXPECT_EQ(queueMgr.GetDataDirectory(), product.root.string() + "\\qmgrs\\QM!1");
    EXPECT_EQ(queueMgr.IsMultiInstance(), 0);
    EXPECT_EQ(queueMgr.GetPlace(), product.root.string() + "\\qmgrs\\QM!1" + '\0' + "QM!1");
    EXPECT_THAT(product.calls, ElementsAre(RELEASED, DETAILS, RELEASED, DETAILS, RELEASED, DETAILS));
    product.Configure("Inst2", "Inst2", "   MultiInstance=Yes\n");
    EXPECT_EQ(queueMgr.IsMultiInstance(), 1);
    EXPECT_EQ(product.calls.back(), ByName("Inst2"));
    fs::remove(product.root / "zns.ini");
    product.calls.clear();
    EXPECT_EQ(queueMgr.GetDirectoryName(), nullptr);
    EXPECT_THAT(product.calls, ElementsAre(RELEASED, DETAILS, RELEASED)); // both records, at once
    EXPECT_EQ(queueMgr.GetDataDirectory(), nullptr);
    EXPECT_TRUE(queueMgr.IsMultiInstance() == 0 && queueMgr.GetPlace().empty());
}

TEST(QueueMgr, StopRunsTheEndCommandOfARunningQueueManager)
{
    ProductCalls product;
    Capture capture;
    int nLeft = 1000; // look-ups until the queue manager is deleted
    const auto details =
        Hook(xcsGetQMDetails, [&](auto... args) { return nLeft-- > 0 ? xcsGetQMDetails(args...) : 1; });
    CZNMQueueMgr queueMgr(L"QM1");
    EXPECT_EQ(queueMgr.Stop(1), 0); // not running: nothing to run
    EXPECT_EQ(product.calls.back(), ACTIVE);
    product.results["xcsIsSubpoolActive"] = 0;
    EXPECT_EQ(queueMgr.IsRunning(), 1);
    nLeft = 1; // between the two look-ups of one test
    EXPECT_EQ(queueMgr.IsRunning(), 0);
    nLeft = 2; // while Stop asks whether it runs
    EXPECT_EQ(queueMgr.Stop(1), 0);
    EXPECT_EQ(queueMgr.Stop(1), -1);
    EXPECT_THAT(capture.Only("<", 58), ElementsAre("< 58 0", "< 58 3", "< 58 -1", "< 58 -1"));

    nLeft = 1000;
    const std::string strProgram = product.root.string() + "\\bin64\\endznm.exe";
    for (const auto& [nStopType, pszOption] :
         {std::pair{1, "-w"}, {2, "-i"}, {3, "-p"}, {4, "-rp"}, {5, "-ri"}, {7, "-w"}, {0, "-w"}})
    {
        EXPECT_EQ(queueMgr.Stop(nStopType), 0);
        EXPECT_EQ(product.calls.back(), "exec 31 " + strProgram + " 1 <" + strProgram + "> <" + pszOption +
                                            "> <QM1> null 2 34 null null null null");
    }
    product.results["exit code"] = 40;
    EXPECT_EQ(queueMgr.Stop(1), 40);
    product.results["exec"] = 2;
    EXPECT_EQ(queueMgr.Stop(1), -1);
    product.results["exec"] = 0;
    const auto unterminated = Hook(xcsGetQMDetails, [&](auto psz, auto p, auto pp) {
        xcsGetQMDetails(psz, p, pp);
        std::memset((*pp)->szName, 'Q', sizeof(*pp)->szName);
        return 0;
    });
    EXPECT_EQ(queueMgr.Stop(1), -1); // runs nothing
}
