#include <cstring>
#include <map>

#include "capture.h"
#include "tovmsmon.h"

using testing::ElementsAre;

namespace
{
// The product's library as far as queue managers go, in the test's hands. Checks that what it hands out comes
// back, each record once and in the agreed way.
struct Library
{
    ~Library() { EXPECT_EQ(nHeld, 0); }

    std::string strInstallationOfQM = "Inst1"; // in the queue manager's details
    std::map<std::string, int> lookups;        // result by name; "" stands for the primary installation
    int nDetailsResult = 0;
    int nActiveResult = 0;
    int nExecResult = 0;
    int nExitCode = 0;
    std::string strPath = "C:\\Prog";
    uint8_t fFlags = 0;
    std::vector<std::string> calls;
    int nHeld = 0;

    template <class Record>
    Record* Allocate()
    {
        ++nHeld;
        return new Record{};
    }

    ImportHook<decltype(xcsGetQMDetails)> details{
        "xcsGetQMDetails", [this](const char* pszName, XCS_SCRATCH*, XCS_QM_DETAILS** ppDetails) {
            calls.push_back(std::string("details ") + pszName);
            if (nDetailsResult != 0)
                return nDetailsResult;
            *ppDetails = Allocate<XCS_QM_DETAILS>();
            std::strcpy((*ppDetails)->szName, pszName);
            std::strcpy((*ppDetails)->szDirectory, "QM!1");
            std::strcpy((*ppDetails)->szDataDirectory, "D:\\d\\qmgrs\\QM!1");
            std::strcpy((*ppDetails)->szInstallationName, strInstallationOfQM.c_str());
            std::strcpy((*ppDetails)->szSubpool, "sub");
            (*ppDetails)->fFlags = fFlags;
            return 0;
        }};
    ImportHook<decltype(xcsGetInstallationDetails)> installation{
        "xcsGetInstallationDetails", [this](const char* pszName, void* p1, void* p2, int nSelector, void* p3,
                                            XCS_SCRATCH*, XCS_INSTALLATION_DETAILS** ppInstallation) {
            EXPECT_TRUE(p1 == nullptr && p2 == nullptr && p3 == nullptr);
            EXPECT_EQ(pszName == nullptr, nSelector == 64);
            const std::string strName = pszName != nullptr ? pszName : "";
            calls.push_back("installation " + std::to_string(nSelector) + " " + strName);
            if (lookups[strName] != 0)
                return lookups[strName];
            *ppInstallation = Allocate<XCS_INSTALLATION_DETAILS>();
            std::strcpy((*ppInstallation)->szName, strName.c_str());
            std::strcpy((*ppInstallation)->szPath, strPath.c_str());
            std::strcpy((*ppInstallation)->szIdentity, "id");
            return 0;
        }};
    ImportHook<decltype(xcsCompareInstallations)> compare{
        "xcsCompareInstallations",
        [](const void* p, const char* psz) { return std::strcmp(static_cast<const char*>(p), psz); }};
    ImportHook<decltype(xcsFreeMemFn)> freeMem{"xcsFreeMemFn",
                                               [this](void* p1, int n, void* p2, void* pRecord) {
                                                   EXPECT_TRUE(p1 == nullptr && n == 23 && p2 == nullptr);
                                                   ::operator delete(pRecord);
                                                   --nHeld;
                                               }};
    ImportHook<decltype(xcsIsSubpoolActive)> active{
        "xcsIsSubpoolActive",
        [this](const char* pszSubpool, const char* pszDirectory, void* p, int n, const char* pszId) {
            EXPECT_TRUE(p == nullptr && n == 2);
            calls.push_back(std::string("active ") + pszSubpool + " " + pszDirectory + " " + pszId);
            return nActiveResult;
        }};
    ImportHook<decltype(xcsExecProgramHandle)> exec{
        "xcsExecProgramHandle",
        [this](int n1, const char* pszProgram, int n2, const char* pszArguments, void* p1, int n3, int n4,
               void* p2, void* p3, void* p4, int* pnResult, void* p5) {
            EXPECT_THAT(std::vector({n1, n2, n3, n4}), ElementsAre(31, 1, 2, 34));
            EXPECT_THAT(std::vector({p1, p2, p3, p4, p5}), testing::Each(nullptr));
            std::string strCall = std::string("exec ") + pszProgram + ":";
            for (const char* psz = pszArguments; *psz != '\0'; psz += std::strlen(psz) + 1)
                strCall += std::string(" <") + psz + ">";
            calls.push_back(strCall);
            *pnResult = nExitCode;
            return nExecResult;
        }};
};
} // namespace

TEST(QueueMgr, InstallationIsFoundByNameOrAsThePrimaryOne)
{
    constexpr int UNKNOWN = 0x10006164;
    const struct
    {
        const char* pszInstallation;
        int nByName, nPrimary, nExpected;
        std::vector<std::string> lookups;
    } cases[] = {
        {"Inst1", 0, 0, 1, {"installation 16 Inst1"}},
        {"Inst1", UNKNOWN, 0, 0, {"installation 16 Inst1"}},
        {"Inst1", 5, 0, 0, {"installation 16 Inst1"}},
        {"Installation0", UNKNOWN, 0, 1, {"installation 16 Installation0", "installation 64 "}},
        {"Installation0", UNKNOWN, UNKNOWN, 0, {"installation 16 Installation0", "installation 64 "}},
        {"Installation0", 5, 0, 0, {"installation 16 Installation0"}},
    };
    for (const auto& c : cases)
    {
        Library library;
        library.strInstallationOfQM = c.pszInstallation;
        library.lookups = {{c.pszInstallation, c.nByName}, {"", c.nPrimary}};
        library.nDetailsResult = 1; // the constructor's own refresh finds nothing
        CZNMQueueMgr queueMgr(L"QM1");
        library.nDetailsResult = 0;
        library.calls.clear();
        EXPECT_EQ(queueMgr.Refresh(), c.nExpected) << c.pszInstallation;
        EXPECT_EQ(std::vector(library.calls.begin() + 1, library.calls.end()), c.lookups);
        EXPECT_EQ(library.nHeld, c.nExpected * 2); // a failed refresh gives both records back
    }
}

TEST(QueueMgr, EveryQueryAsksAnewAndKeepsTheInstallationWhileItMatches)
{
    Library library;
    CZNMQueueMgr queueMgr(L"QM1");
    library.calls.clear();
    EXPECT_STREQ(queueMgr.GetDirectoryName(), "QM!1");
    EXPECT_STREQ(queueMgr.GetDataDirectory(), "D:\\d\\qmgrs\\QM!1");
    EXPECT_EQ(queueMgr.IsMultiInstance(), 0);
    library.fFlags = 0xFD;
    EXPECT_EQ(queueMgr.IsMultiInstance(), 0);
    library.fFlags = 0x02;
    EXPECT_EQ(queueMgr.IsMultiInstance(), 1);
    EXPECT_THAT(library.calls, testing::AllOf(testing::SizeIs(5), testing::Each("details QM1")));

    library.strInstallationOfQM = "Inst2";
    EXPECT_EQ(queueMgr.Refresh(), 1);
    EXPECT_EQ(library.calls.back(), "installation 16 Inst2");

    library.nDetailsResult = 1; // deleted meanwhile
    EXPECT_EQ(queueMgr.GetDirectoryName(), nullptr);
    EXPECT_EQ(queueMgr.GetDataDirectory(), nullptr);
    EXPECT_EQ(queueMgr.IsMultiInstance(), 0);
    EXPECT_EQ(queueMgr.IsRunning(), 0);
    EXPECT_EQ(queueMgr.Stop(1), -1);
    EXPECT_EQ(library.nHeld, 0);
}

TEST(QueueMgr, EmptyNameIsNeverLookedUp)
{
    Library library;
    for (const wchar_t* pszName : {L"", static_cast<const wchar_t*>(nullptr)})
    {
        CZNMQueueMgr queueMgr(pszName);
        EXPECT_EQ(queueMgr.Refresh(), 0);
        EXPECT_EQ(queueMgr.IsRunning(), 0);
        EXPECT_EQ(queueMgr.GetDirectoryName(), nullptr);
        EXPECT_TRUE(library.calls.empty());
        EXPECT_STREQ(queueMgr.GetRuntimeClass()->m_lpszClassName, "CZNMQueueMgr");
    }
}

TEST(QueueMgr, RunningTestTellsTheTraceItsState)
{
    Library library;
    Capture capture;
    CZNMQueueMgr queueMgr(L"QM1");
    EXPECT_EQ(queueMgr.IsRunning(), 1);
    EXPECT_EQ(library.calls.back(), "active sub QM!1 id");
    library.nActiveResult = -7;
    EXPECT_EQ(queueMgr.IsRunning(), 0);
    EXPECT_THAT(capture.Only("-"),
                ElementsAre("- 55 Queue manager is RUNNING", "- 55 Queue manager is NOT RUNNING"));
    EXPECT_EQ(capture.Count("< 58 3"), 1);
    EXPECT_EQ(capture.Count("< 58 0"), 1);
    EXPECT_EQ(capture.Count("> 62"), 5); // one at the start, two for each test

    // Gone between the two refreshes of one test.
    int nLeft = 1;
    ImportHook<decltype(xcsGetQMDetails)> vanish(
        "xcsGetQMDetails", [&](auto... args) { return nLeft-- > 0 ? vanish.Real(args...) : 1; });
    EXPECT_EQ(queueMgr.IsRunning(), 0);
    EXPECT_EQ(capture.Count("< 58 -1"), 1);
    nLeft = 2; // gone while Stop asks whether it runs: nothing is left to be run
    EXPECT_EQ(queueMgr.Stop(1), 0);
}

TEST(QueueMgr, StopRunsTheEndCommandOfTheInstallation)
{
    const std::pair<int16_t, const char*> options[] = {{1, "-w"},  {2, "-i"}, {3, "-p"}, {4, "-rp"},
                                                       {5, "-ri"}, {7, "-w"}, {0, "-w"}, {-1, "-w"}};
    Library library;
    CZNMQueueMgr queueMgr(L"QM1");
    for (const auto& [nStopType, pszOption] : options)
    {
        EXPECT_EQ(queueMgr.Stop(nStopType), 0);
        EXPECT_EQ(library.calls.back(),
                  std::string("exec C:\\Prog\\bin64\\endznm.exe: <C:\\Prog\\bin64\\endznm.exe> <") +
                      pszOption + "> <QM1>");
    }
    library.nExitCode = 40;
    EXPECT_EQ(queueMgr.Stop(1), 40);
    library.nExecResult = 2;
    EXPECT_EQ(queueMgr.Stop(1), -1);

    library.calls.clear();
    library.nActiveResult = 1;
    EXPECT_EQ(queueMgr.Stop(1), 0); // not running: nothing to run
    EXPECT_THAT(library.calls, testing::Not(testing::Contains(testing::StartsWith("exec"))));
}
