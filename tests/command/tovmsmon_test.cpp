#include "productcalls.h"
#include "tovmsmon.h"

using testing::ElementsAre;

TEST(QueueMgr, InstallationIsFoundByNameOrAsThePrimaryOne)
{
    constexpr int UNKNOWN = 0x10006164;
    const std::tuple<std::string, int, int, int, bool> cases[] = {
        // name, results by name and as the primary one, success, asked twice
        {"Inst1", 0, 0, 1, false},
        {"Inst1", UNKNOWN, 0, 0, false},
        {"Inst1", 5, 0, 0, false},
        {"Installation0", UNKNOWN, 0, 1, true},
        {"Installation0", UNKNOWN, UNKNOWN, 0, true},
        {"Installation0", 5, 0, 0, false}};
    for (const auto& [strInstallation, nByName, nPrimary, nExpected, fSecond] : cases)
    {
        Library library;
        library.strInstallationOfQM = strInstallation;
        library.lookups = {{strInstallation, nByName}, {"", nPrimary}};
        library.nDetailsLeft = 0; // the constructor's own refresh finds nothing
        CZNMQueueMgr queueMgr(L"QM1");
        library.nDetailsLeft = 1;
        library.calls.clear();
        EXPECT_EQ(queueMgr.Refresh(), nExpected) << strInstallation << nByName;
        std::vector<std::string> expected = {"details QM1", "installation 16 " + strInstallation};
        if (fSecond)
            expected.push_back("installation 64 null");
        EXPECT_EQ(library.calls, expected);
        EXPECT_EQ(library.nHeld, nExpected * 2); // a failed refresh gives both records back
    }
}

TEST(QueueMgr, EveryQueryAsksAnewAndKeepsTheInstallationWhileItMatches)
{
    Library library;
    for (const wchar_t* pszName : {L"", static_cast<const wchar_t*>(nullptr)})
        EXPECT_EQ(CZNMQueueMgr(pszName).IsRunning(), 0);
    EXPECT_TRUE(library.calls.empty()); // an empty name is never looked up
    CZNMQueueMgr queueMgr(L"QM1");
    EXPECT_STREQ(queueMgr.GetRuntimeClass()->m_lpszClassName, "CZNMQueueMgr");
    library.calls.clear();
    EXPECT_STREQ(queueMgr.GetDirectoryName(), "QM1");
    EXPECT_STREQ(queueMgr.GetDataDirectory(), "D:\\data\\qmgrs\\QM1");
    EXPECT_STREQ(queueMgr.GetRunIdentity(), L"sub|QM1|id");
    for (const auto& [fFlags, nExpected] : {std::pair<uint8_t, int>{0, 0}, {0xFD, 0}, {0x02, 1}})
    {
        library.fFlags = fFlags;
        EXPECT_EQ(queueMgr.IsMultiInstance(), nExpected);
    }
    EXPECT_THAT(library.calls, testing::AllOf(testing::SizeIs(5), testing::Each("details QM1")));

    library.strInstallationOfQM = "Inst2";
    EXPECT_EQ(queueMgr.Refresh(), 1);
    EXPECT_EQ(library.calls.back(), "installation 16 Inst2");

    library.nDetailsLeft = 0; // deleted meanwhile
    EXPECT_EQ(queueMgr.GetDirectoryName(), nullptr);
    EXPECT_EQ(queueMgr.GetDataDirectory(), nullptr);
    EXPECT_EQ(queueMgr.IsMultiInstance() + queueMgr.IsRunning(), 0);
    EXPECT_EQ(queueMgr.Stop(1), -1);
    EXPECT_TRUE(queueMgr.GetRunIdentity().IsEmpty());
    EXPECT_EQ(library.nHeld, 0);
}

TEST(QueueMgr, RunningTestTellsTheTraceItsState)
{
    Library library;
    Capture capture;
    CZNMQueueMgr queueMgr(L"QM1");
    EXPECT_EQ(queueMgr.IsRunning(), 0);
    EXPECT_EQ(library.calls.back(), "active sub QM1 2 id");
    library.nActiveResult = 0;
    EXPECT_EQ(queueMgr.IsRunning(), 1);
    EXPECT_EQ(capture.Count("> 62"), 5); // one at the start, two for each test
    library.nDetailsLeft = 1;            // gone between the two refreshes of one test
    EXPECT_EQ(queueMgr.IsRunning(), 0);
    library.nDetailsLeft = 2; // gone while Stop asks whether it runs: nothing is left to be run
    EXPECT_EQ(queueMgr.Stop(1), 0);
    EXPECT_THAT(capture.Only("-"),
                ElementsAre("- 55 Queue manager is NOT RUNNING", "- 55 Queue manager is RUNNING",
                            "- 58 Queue Manager not available!", "- 55 Queue manager is NOT RUNNING",
                            "- 58 Queue Manager not available!", "- 55 Queue manager is NOT RUNNING",
                            "- 57 Queue Manager not running!"));
    for (const auto& [pszExit, nCount] : {std::pair{"< 58 0", 1}, {"< 58 3", 1}, {"< 58 -1", 2}})
        EXPECT_EQ(capture.Count(pszExit), nCount);
}

TEST(QueueMgr, StopRunsTheEndCommandOfTheInstallation)
{
    Library library;
    CZNMQueueMgr queueMgr(L"QM1");
    EXPECT_EQ(queueMgr.Stop(1), 0); // not running: nothing to run
    EXPECT_EQ(library.calls.back(), "active sub QM1 2 id");
    library.nActiveResult = 0;
    const std::string strProgram = "C:\\Prog\\bin64\\endznm.exe";
    for (const auto& [nStopType, pszOption] : {std::pair<int16_t, const char*>{1, "-w"},
                                               {2, "-i"},
                                               {3, "-p"},
                                               {4, "-rp"},
                                               {5, "-ri"},
                                               {7, "-w"},
                                               {0, "-w"},
                                               {-1, "-w"}})
    {
        EXPECT_EQ(queueMgr.Stop(nStopType), 0);
        EXPECT_EQ(library.calls.back(),
                  "exec " + strProgram + " <" + strProgram + "><" + pszOption + "><QM1>");
    }
    library.nExitCode = 40;
    EXPECT_EQ(queueMgr.Stop(1), 40);
    library.nExecResult = 2;
    EXPECT_EQ(queueMgr.Stop(1), -1);
}
