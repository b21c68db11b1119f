#include "productcalls.h"
#include "tovmsmon.h"

using testing::ElementsAre;

namespace
{
const std::string DETAILS = "xcsGetQMDetails QM1", RELEASED = "xcsFreeMemFn null 23 null",
                  BY_NAME = "xcsGetInstallationDetails Inst2 null null 16 null";
} // namespace

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
    EXPECT_EQ(product.calls.back(), BY_NAME);
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
        (*pp)->fFlags = 2;
        return 0;
    });
    EXPECT_EQ(queueMgr.Stop(1), -1); // runs nothing
    EXPECT_EQ(queueMgr.IsMultiInstance(), 1);
}
