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
    const std::string strInstallation = "Installation:\n   Name=Inst1\n   Path=" + strRoot + "\n",
                      strQueueManager = "QueueManager:\n   Name=QM1\n   Prefix=" + strRoot +
                                        "\n   Directory=QM!1\n   InstallationName=Inst1\n";
    WriteAll(product.root / "zns.ini", strInstallation + strQueueManager);
    Capture capture;
    int nLookups = 0, nLeft = 1000; // until the queue manager is deleted
    const auto details = Hook(xcsGetQMDetails, [&](auto... args) {
        return ++nLookups, nLeft-- > 0 ? xcsGetQMDetails(args...) : 1;
    });
    const auto active = Hook(xcsIsSubpoolActive, [](auto...) { return 0; });
    std::string strStarted;
    int nResult = 0, nExitCode = 0;
    const auto exec = Hook(xcsExecProgramHandle, [&](auto, auto, auto, const char* psz, auto, auto, auto,
                                                     auto, auto, auto, int* pnExitCode, auto) {
        psz += std::strlen(psz) + 1;
        return strStarted += psz, *pnExitCode = nExitCode, nResult;
    });

    for (const wchar_t* pszName : {L"", static_cast<const wchar_t*>(nullptr)})
        EXPECT_EQ(CZNMQueueMgr(pszName).IsRunning(), 0);
    EXPECT_EQ(nLookups, 0); // an empty name is never looked up
    CZNMQueueMgr queueMgr(L"QM1");
    EXPECT_EQ(queueMgr.GetPlace(), strRoot + "\\qmgrs\\QM!1" + '\0' + "QM!1");
    EXPECT_EQ(queueMgr.IsMultiInstance(), 0);
    EXPECT_EQ(queueMgr.IsRunning(), 1);
    nLeft = 1; // between the two look-ups of one test
    EXPECT_EQ(queueMgr.IsRunning(), 0);
    nLeft = 2; // while Stop asks whether it runs
    EXPECT_EQ(queueMgr.Stop(1), 0);
    EXPECT_EQ(queueMgr.Stop(1), -1);
    EXPECT_THAT(capture.Only("< 58"), ElementsAre("< 58 3", "< 58 -1", "< 58 -1"));
    EXPECT_EQ(queueMgr.GetDirectoryName(), nullptr);
    EXPECT_EQ(queueMgr.GetDataDirectory(), nullptr);
    EXPECT_TRUE(queueMgr.GetPlace().empty());

    nLeft = 1000;
    for (const int nStopType : {1, 2, 3, 4, 5, 7, 0})
        EXPECT_EQ(queueMgr.Stop(nStopType), 0);
    EXPECT_EQ(std::exchange(strStarted, ""), "-w-i-p-rp-ri-w-w");
    nExitCode = 40;
    EXPECT_EQ(queueMgr.Stop(1), 40);
    nResult = 2;
    EXPECT_EQ(std::exchange(strStarted, ""), "-w");
    EXPECT_EQ(queueMgr.Stop(1), -1);
    nResult = 0;
    strStarted = "";
    const auto unterminated = Hook(xcsGetQMDetails, [&](auto psz, auto p, auto pp) {
        xcsGetQMDetails(psz, p, pp);
        std::memset((*pp)->szName, 'Q', sizeof(*pp)->szName);
        (*pp)->fFlags = 2;
        return 0;
    });
    EXPECT_EQ(queueMgr.Stop(1), -1);
    EXPECT_EQ(strStarted, "");
    EXPECT_EQ(queueMgr.IsMultiInstance(), 1);
}
