#include <windows.h>
#include <shellapi.h>

#include "productcalls.h"
#include "tempdir.h"
#include "znmapp.h"

using testing::ElementsAre;

namespace
{
// The library's answers, with real trees for the shell.
struct Stage : Library, TempDir
{
    Capture capture;
    const std::string strRoot = root.string();
    ImportHook<decltype(SHFileOperationW)> shell{"SHFileOperationW", [this](LPSHFILEOPSTRUCTW p) {
                                                     Call("copy", Text(CW2A(p->pFrom)), Text(CW2A(p->pTo)));
                                                     return shell.Real(p);
                                                 }};
    ImportHook<decltype(FindFirstFileW)> find{"FindFirstFileW", [this](LPCWSTR psz, auto* pEntry) {
                                                  Call("delete", Text(CW2A(psz)));
                                                  return find.Real(psz, pEntry);
                                              }};
    ImportHook<decltype(xcsGetIniFilename)> file{
        "xcsGetIniFilename", [this](const char* pszName, char* pszFile, uint32_t* pnType) {
            const int32_t nResult = file.Real(pszName, pszFile, pnType);
            std::strcpy(pszFile, (strRoot + "\\work\\" + pszFile).c_str());
            return nResult;
        }};
    ImportHook<decltype(xcsVolumeSupportsSecurity)> volume{"xcsVolumeSupportsSecurity",
                                                           [](auto...) { return 1; }};

    Stage()
    {
        strDataDirectory = strRoot + "\\data\\qmgrs\\QM1";
        strLogPath = strRoot + "\\log\\QM1\\";
        for (const char* psz : {"data\\qmgrs\\QM1\\f", "log\\QM1\\f", "work\\zns.ini"})
            WriteAll(root / psz, psz);
        fs::create_directories(root / "to\\qmgrs\\QM1");
        fs::create_directories(root / "tolog\\QM1");
    }

    int Move()
    {
        theApp.m_nParameters = 6;
        theApp.m_fParametersValid = TRUE;
        theApp.m_strQueueManager = L"QM1";
        theApp.m_strDataDest = (root / "to").c_str();
        theApp.m_strLogDest = (root / "tolog").c_str();
        const int nResult = theApp.MigrateQueueManager();
        std::erase(calls, "details QM1");
        for (std::vector<std::string>* pTexts : {&calls, &capture.lines})
            for (std::string& str : *pTexts)
                for (size_t n; (n = str.find(strRoot)) != std::string::npos;)
                    str.replace(n, strRoot.size(), "R:");
        return nResult;
    }
};
} // namespace

TEST(Migrate, TakesItsStepsInOrder)
{
    Stage stage;
    EXPECT_EQ(stage.Move(), 1);
    EXPECT_THAT(stage.calls,
                ElementsAre("installation 16 Inst1", "active sub QM1 2 id", "name null", "name QM1",
                            "read Log null null LogPath 261 R:\\work\\qm.ini 7",
                            "copy R:\\data\\qmgrs\\QM1\\* R:\\to\\qmgrs\\QM1",
                            "copy R:\\log\\QM1\\* R:\\tolog\\QM1",
                            "write QueueManager Name QM1 Prefix R:\\to R:\\work\\zns.ini 9", "name QM1",
                            "write Log null null LogPath R:\\tolog\\QM1\\ R:\\work\\qm.ini 7",
                            "delete R:\\data\\qmgrs\\QM1\\*", "delete R:\\log\\QM1\\*"));
    std::vector<std::string> paths = stage.capture.Only("#");
    std::erase_if(paths, [](const std::string& str) { return !str.starts_with("# 168"); });
    EXPECT_THAT(paths,
                ElementsAre("# 168 strSrcDataDir:  R:\\data\\qmgrs\\QM1",
                            "# 168 strDestDataDir:  R:\\to\\qmgrs\\QM1", "# 168 strSrcLogDir:  R:\\log\\QM1",
                            "# 168 strDestLogDir:  R:\\tolog\\QM1"));
    EXPECT_EQ(stage.capture.lines.back(), "< 168 1");
}

TEST(Migrate, LogPathIsTakenUpToTheBuffersWholeLength)
{
    const std::string strLongest = "D:\\" + std::string(128, 'l') + "\\" + std::string(129, 'm');
    const std::pair<std::string, std::string> cases[] = {
        {"D:\\l", "D:\\l"},
        {"D:\\l\\", "D:\\l"},
        {"D:\\l\\\\", "D:\\l\\"},
        {"D:\\l/m", "D:\\l/m"},
        {strLongest, strLongest},
        {strLongest + "x", ""},
        {std::string(5000, 'l'), ""},
        {"", ""},
        {"\\", ""}, // an empty path would be the root of the current drive
    };
    for (const auto& [strLogPath, strExpected] : cases)
    {
        Stage stage;
        stage.strLogPath = strLogPath;
        EXPECT_EQ(stage.Move(), 0) << strLogPath; // at the latest because nothing is there
        EXPECT_EQ(stage.capture.Has("- 168 Unable to read log path"), strExpected.empty()) << strLogPath;
        EXPECT_EQ(stage.capture.Has("# 168 strSrcLogDir:  " + strExpected), !strExpected.empty());
    }
}
