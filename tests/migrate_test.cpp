#include <windows.h>
#include <shellapi.h>

#include "capture.h"
#include "messages.h"
#include "znmapp.h"

using testing::ElementsAre;

namespace
{
// Answers for a queue manager that exists and is stopped, and the calls that change the configuration.
struct Library
{
    std::string strLogPath = "D:\\log\\QM1\\";
    std::string strDataDirectory = "D:\\data\\qmgrs\\QM1";
    int nDetailsLeft = 100;
    std::vector<std::string> calls;
    XCS_QM_DETAILS qm = {};
    XCS_INSTALLATION_DETAILS inst = {};

    ImportHook<decltype(xcsGetQMDetails)> details{
        "xcsGetQMDetails", [this](const char*, auto*, XCS_QM_DETAILS** pp) {
            std::strcpy(qm.szDirectory, "QM1");
            std::strcpy(qm.szDataDirectory, strDataDirectory.c_str());
            *pp = &qm;
            return nDetailsLeft-- > 0 ? 0 : 1;
        }};
    ImportHook<decltype(xcsGetInstallationDetails)> installation{
        "xcsGetInstallationDetails",
        [this](auto, auto, auto, auto, auto, auto, XCS_INSTALLATION_DETAILS** pp) { return *pp = &inst, 0; }};
    ImportHook<decltype(xcsFreeMemFn)> freeMem{"xcsFreeMemFn", [](auto...) {}};
    ImportHook<decltype(xcsIsSubpoolActive)> active{"xcsIsSubpoolActive", [](auto...) { return 1; }};
    ImportHook<decltype(xcsGetIniFilename)> name{
        "xcsGetIniFilename", [this](const char* psz, char* pszFile, uint32_t* pn) {
            calls.push_back(std::string("name ") + (psz ? psz : "null"));
            std::strcpy(pszFile, psz ? "qm.ini" : "zns.ini");
            *pn = psz ? 7 : 9;
            return 0;
        }};
    ImportHook<decltype(xcsIniUtilRead)> read{
        "xcsIniUtilRead", [this](const char* psz1, const char* psz2, const char* psz3, const char* psz4,
                                 char* pszBuffer, uint32_t* pnLength, const char* pszFile, uint32_t n) {
            EXPECT_TRUE(psz2 == nullptr && psz3 == nullptr);
            calls.push_back(std::string("read ") + psz1 + " " + psz4 + " " + pszFile + std::to_string(n));
            EXPECT_EQ(*pnLength, 261u);
            std::memset(pszBuffer, '#', 261);
            *pnLength = static_cast<uint32_t>(strLogPath.size());
            std::memcpy(pszBuffer, strLogPath.data(), std::min<size_t>(strLogPath.size(), 261));
            return 0;
        }};
    ImportHook<decltype(xcsIniUtilWrite)> write{
        "xcsIniUtilWrite", [this](const char* psz1, const char* psz2, const char* psz3, const char* psz4,
                                  const char* psz5, const char* pszFile, uint32_t n) {
            std::string strCall = "write";
            for (const char* psz : {psz1, psz2, psz3, psz4, psz5, pszFile})
                strCall += std::string(" ") + (psz != nullptr ? psz : "null");
            calls.push_back(strCall + std::to_string(n));
            return 0;
        }};
    // The trees are not there: a missing one copies as an empty one and counts as deleted.
    ImportHook<decltype(SHFileOperationW)> shell{"SHFileOperationW", [this](LPSHFILEOPSTRUCTW p) {
                                                     calls.push_back("copy " + std::string(CW2A(p->pFrom)) +
                                                                     " " + std::string(CW2A(p->pTo)));
                                                     return 0;
                                                 }};
    ImportHook<int(const wchar_t*, int)> access{"_waccess", [](auto...) { return 0; }};
    ImportHook<decltype(GetFileAttributesW)> attributes{"GetFileAttributesW",
                                                        [](auto...) { return DWORD{0x10}; }};
    ImportHook<decltype(xcsVolumeSupportsSecurity)> volume{"xcsVolumeSupportsSecurity",
                                                           [](auto...) { return 1; }};
    ImportHook<decltype(FindFirstFileW)> find{"FindFirstFileW", [this](LPCWSTR psz, auto) {
                                                  calls.push_back("delete " + std::string(CW2A(psz)));
                                                  return INVALID_HANDLE_VALUE;
                                              }};
};

int Move(const wchar_t* pszData = L"E:\\data", const wchar_t* pszLog = L"F:\\log")
{
    theApp.m_nParameters = 6;
    theApp.m_fParametersValid = TRUE;
    theApp.m_strQueueManager = L"QM1";
    theApp.m_strDataDest = pszData;
    theApp.m_strLogDest = pszLog;
    return theApp.MigrateQueueManager();
}
} // namespace

TEST(Migrate, TakesItsStepsInOrder)
{
    Library library;
    Capture capture;
    EXPECT_EQ(Move(), 1);
    EXPECT_THAT(library.calls, ElementsAre("name null", "name QM1", "read Log LogPath qm.ini7",
                                           "copy D:\\data\\qmgrs\\QM1\\* E:\\data\\qmgrs\\QM1",
                                           "copy D:\\log\\QM1\\* F:\\log\\QM1",
                                           "write QueueManager Name QM1 Prefix E:\\data zns.ini9", "name QM1",
                                           "write Log null null LogPath F:\\log\\QM1\\ qm.ini7",
                                           "delete D:\\data\\qmgrs\\QM1\\*", "delete D:\\log\\QM1\\*"));
    std::vector<std::string> paths = capture.Only("#");
    std::erase_if(paths, [](const std::string& str) { return !str.starts_with("# 168"); });
    EXPECT_THAT(paths,
                ElementsAre("# 168 strSrcDataDir:  D:\\data\\qmgrs\\QM1",
                            "# 168 strDestDataDir:  E:\\data\\qmgrs\\QM1",
                            "# 168 strSrcLogDir:  D:\\log\\QM1", "# 168 strDestLogDir:  F:\\log\\QM1"));
    EXPECT_EQ(capture.lines.back(), "< 168 1");
}

TEST(Migrate, SamePlaceIsComparedNarrowly)
{
    const struct
    {
        const wchar_t *pszData, *pszLog;
        int nExpected;
    } cases[] = {
        {L"D:\\data", L"F:\\log", 0}, {L"E:\\data", L"D:\\log", 0},    {L"D:\\DATA", L"F:\\log", 1},
        {L"E:\\data", L"d:\\log", 1}, {L"D:\\data\\.", L"F:\\log", 1}, {L"D:\\log", L"D:\\data\\qmgrs", 1},
    };
    for (const auto& c : cases)
    {
        Library library;
        Capture capture;
        EXPECT_EQ(Move(c.pszData, c.pszLog), c.nExpected) << &c - cases;
        EXPECT_EQ(capture.Has("- 168 Cannot have the same source/destination directories"), c.nExpected == 0);
    }
}

TEST(Migrate, LogPathIsTakenUpToTheBuffersWholeLength)
{
    const std::string strLongest = "D:\\" + std::string(258, 'l');
    for (const auto& [strLogPath, strExpected] : {std::pair<std::string, std::string>{"D:\\l", "D:\\l"},
                                                  {"D:\\l\\\\", "D:\\l\\"},
                                                  {strLongest, strLongest},
                                                  {strLongest + "x", ""},
                                                  {"", ""},
                                                  {"\\", ""}})
    {
        Library library;
        library.strLogPath = strLogPath;
        Capture capture;
        EXPECT_EQ(Move(), strExpected.empty() ? 0 : 1) << strLogPath;
        EXPECT_EQ(capture.Has("- 168 Unable to read log path"), strExpected.empty());
        EXPECT_EQ(capture.Has("# 168 strSrcLogDir:  " + strExpected), !strExpected.empty());
    }
}

TEST(Migrate, QueueManagerThatVanishesMeanwhileIsNotMoved)
{
    // Refreshes: constructor, check, multi-instance, running (two), directory name, data directory.
    for (int nLeft = 0; nLeft < 7; ++nLeft)
    {
        Library library;
        Capture capture;
        library.nDetailsLeft = nLeft;
        EXPECT_EQ(Move(), 0) << nLeft;
        EXPECT_THAT(library.calls, testing::Each(testing::Not(testing::StartsWith("copy"))));
        EXPECT_EQ(capture.Count("# 168 Cannot contact Queue Manager 'QM1'"), 1) << nLeft;
    }
    Library library;
    library.strDataDirectory = ""; // the root of the current drive must not be taken for it
    EXPECT_EQ(Move(), 0);
    EXPECT_THAT(library.calls, testing::Each(testing::Not(testing::StartsWith("copy"))));
}

TEST(Migrate, InvalidCommandLineAsksTheLibraryNothing)
{
    Library library;
    library.nDetailsLeft = 0;
    Capture capture;
    theApp.m_nParameters = 5;
    theApp.m_fParametersValid = TRUE;
    EXPECT_EQ(theApp.MigrateQueueManager(), 0);
    theApp.m_nParameters = 6;
    theApp.m_fParametersValid = FALSE;
    EXPECT_EQ(theApp.MigrateQueueManager(), 0);
    EXPECT_THAT(capture.lines, ElementsAre("> 168", "< 168 0", "> 168", "< 168 0"));
}
