#include <cstring>

#include "tempdir.h"
#include "tovmsmon.h"
#include "tracecapture.h"

using testing::ElementsAre;

// The order of the queries is in the transcripts.
TEST(QueueMgr, QueriesAskAgainAndStopRunsTheEndCommand)
{
    const TempDir product;
    const std::string strRoot = product.root.string();
    SetEnvironmentVariableA("ZN_WORK_PATH", strRoot.c_str());
    WriteAll(product.root / "zns.ini", "Installation:\n Name=I1\n Path=" + strRoot +
                                           "\nQueueManager:\n Name=QM1\n Prefix=" + strRoot +
                                           "\n Directory=QM!1\n InstallationName=I1\n");
    int nLeft = 1000; // look-ups until the queue manager is deleted
    const auto details =
        Hook(xcsGetQMDetails, [&](auto... args) { return nLeft-- > 0 ? xcsGetQMDetails(args...) : 1; });
    const auto active = Fails(xcsIsSubpoolActive, 0, 0); // it runs
    std::string strStarted;
    int nResult = 0, nExitCode = 0;
    const auto exec = Hook(xcsExecProgramHandle, [&](auto, auto, auto, auto psz, auto, auto, auto, auto, auto,
                                                     auto, auto pnExitCode, auto) {
        return strStarted += psz + std::strlen(psz) + 1, *pnExitCode = nExitCode, nResult;
    });

    EXPECT_EQ(CZNMQueueMgr(nullptr).IsRunning(), 0);
    EXPECT_EQ(nLeft, 1000); // an empty name is never looked up
    CZNMQueueMgr queueMgr(L"QM1");
    EXPECT_EQ(queueMgr.GetPlace(), strRoot + "\\qmgrs\\QM!1" + '\0' + "QM!1");
    Capture capture;
    EXPECT_EQ(queueMgr.IsRunning(), 1);
    nLeft = 1; // between the two look-ups of one test
    EXPECT_EQ(queueMgr.IsRunning(), 0);
    nLeft = 2; // while Stop asks whether it runs
    EXPECT_EQ(queueMgr.Stop(1), 0);
    EXPECT_EQ(queueMgr.Stop(1), -1);
    EXPECT_THAT(capture.Only("- 57"),
                ElementsAre("- 57 Queue Manager not running!", "- 57 Queue Manager not available!"));
    EXPECT_THAT(capture.Only("< 58"), ElementsAre("< 58 3", "< 58 -1", "< 58 -1"));
    EXPECT_TRUE(!queueMgr.GetDirectoryName() && !queueMgr.GetDataDirectory() && queueMgr.GetPlace().empty());
    nLeft = 1000;
    for (const int nStopType : {1, 2, 3, 4, 5, 7, 0})
        EXPECT_EQ(queueMgr.Stop(nStopType), 0);
    EXPECT_EQ(strStarted, "-w-i-p-rp-ri-w-w");
    nExitCode = 40;
    EXPECT_EQ(queueMgr.Stop(1), 40);
    nResult = 2;
    EXPECT_EQ(queueMgr.Stop(1), -1);
    const auto unterminated = Hook(xcsGetQMDetails, [&](auto psz, auto p, auto pp) {
        xcsGetQMDetails(psz, p, pp);
        std::memset((*pp)->szName, 'Q', sizeof(*pp)->szName);
        (*pp)->fFlags = 2;
        return 0;
    });
    EXPECT_EQ(queueMgr.Stop(1), -1);
    EXPECT_EQ(strStarted, "-w-i-p-rp-ri-w-w-w-w"); // nothing
    EXPECT_EQ(queueMgr.IsMultiInstance(), 1);
}
