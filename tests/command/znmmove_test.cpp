#include <windows.h>
#include <shellapi.h>

#include "productcalls.h"
#include "znmapp.h"

using testing::ElementsAre;

namespace
{
// The library, and trees that are not there: a missing one is copied as an empty one and counts as deleted.
struct Stage : Library
{
    Capture capture;
    ImportHook<decltype(SHFileOperationW)> shell{"SHFileOperationW", [this](LPSHFILEOPSTRUCTW p) {
                                                     Call("copy", Text(CW2A(p->pFrom)), Text(CW2A(p->pTo)));
                                                     return 0;
                                                 }};
    ImportHook<int(const wchar_t*, int)> access{"_waccess", [](auto...) { return 0; }};
    ImportHook<decltype(GetFileAttributesW)> attributes{"GetFileAttributesW",
                                                        [](auto...) { return DWORD{0x10}; }};
    ImportHook<decltype(xcsVolumeSupportsSecurity)> volume{"xcsVolumeSupportsSecurity",
                                                           [](auto...) { return 1; }};
    ImportHook<decltype(FindFirstFileW)> find{"FindFirstFileW", [this](LPCWSTR psz, auto) {
                                                  Call("delete", Text(CW2A(psz)));
                                                  return INVALID_HANDLE_VALUE;
                                              }};

    int Move(const wchar_t* pszData = L"E:\\data", const wchar_t* pszLog = L"F:\\log")
    {
        theApp.m_nParameters = 6;
        theApp.m_fParametersValid = TRUE;
        theApp.m_strQueueManager = L"QM1";
        theApp.m_strDataDest = pszData;
        theApp.m_strLogDest = pszLog;
        const int nResult = theApp.MigrateQueueManager();
        std::erase(calls, "details QM1");
        return nResult;
    }
};
} // namespace

TEST(Migrate, TakesItsStepsInOrder)
{
    Stage stage;
    EXPECT_EQ(stage.Move(), 1);
    EXPECT_THAT(stage.calls, ElementsAre("installation 16 Inst1", "active sub QM1 2 id", "name null",
                                         "name QM1", "read Log null null LogPath 261 qm.ini 7",
                                         "copy D:\\data\\qmgrs\\QM1\\* E:\\data\\qmgrs\\QM1",
                                         "copy D:\\log\\QM1\\* F:\\log\\QM1",
                                         "write QueueManager Name QM1 Prefix E:\\data zns.ini 9", "name QM1",
                                         "write Log null null LogPath F:\\log\\QM1\\ qm.ini 7",
                                         "delete D:\\data\\qmgrs\\QM1\\*", "delete D:\\log\\QM1\\*"));
    std::vector<std::string> paths = stage.capture.Only("#");
    std::erase_if(paths, [](const std::string& str) { return !str.starts_with("# 168"); });
    EXPECT_THAT(paths,
                ElementsAre("# 168 strSrcDataDir:  D:\\data\\qmgrs\\QM1",
                            "# 168 strDestDataDir:  E:\\data\\qmgrs\\QM1",
                            "# 168 strSrcLogDir:  D:\\log\\QM1", "# 168 strDestLogDir:  F:\\log\\QM1"));
    EXPECT_EQ(stage.capture.lines.back(), "< 168 1");
}

TEST(Migrate, LogPathIsTakenUpToTheBuffersWholeLength)
{
    const std::string strLongest = "D:\\" + std::string(258, 'l');
    const std::string str260 = "D:\\" + std::string(257, 'l'), str5000 = "D:\\" + std::string(4997, 'l');
    const std::pair<std::string, std::string> cases[] = {
        {"D:\\l", "D:\\l"},
        {str260, str260},
        {str5000, ""},
        {"D:\\l\\\\", "D:\\l\\"},
        {strLongest, strLongest},
        {strLongest + "x", ""},
        {"", ""},
        {"\\", ""}}; // an empty path would be the root of the current drive
    for (const auto& [strLogPath, strExpected] : cases)
    {
        Stage stage;
        stage.strLogPath = strLogPath;
        EXPECT_EQ(stage.Move(), strExpected.empty() ? 0 : 1) << strLogPath;
        EXPECT_EQ(stage.capture.Has("- 168 Unable to read log path"), strExpected.empty());
        EXPECT_EQ(stage.capture.Has("# 168 strSrcLogDir:  " + strExpected), !strExpected.empty());
    }
}
