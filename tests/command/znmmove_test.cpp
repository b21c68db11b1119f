#include "productcalls.h"
#include "znmapp.h"

using testing::ElementsAre;

namespace
{
struct Stage : ProductCalls
{
    int Move(const std::string& strLogPath)
    {
        WriteAll(root / "qmgrs\\QM!1\\qm.ini", "Log:\n   LogPath=" + strLogPath);
        WriteAll(root / "log\\QM!1\\f", "log");
        theApp.m_nParameters = 6;
        theApp.m_fParametersValid = TRUE;
        theApp.m_strQueueManager = L"QM1";
        theApp.m_strDataDest = (root / "to").c_str();
        theApp.m_strLogDest = (root / "tolog").c_str();
        const int nResult = theApp.MigrateQueueManager();
        std::erase_if(calls, [](const std::string& str) {
            return str.starts_with("xcsGetQMDetails") || str.starts_with("xcsFreeMemFn");
        });
        return nResult;
    }
};
} // namespace

// One test: tests run at the same time, and two moves of one queue manager refuse each other.
TEST(Migrate, AsksTheLibraryInOrderAndTakesLongLogPaths)
{
    {
        Stage stage;
        const std::string R = stage.root.string();
        EXPECT_EQ(stage.Move(R + "\\log\\QM!1\\"), 1);
        EXPECT_THAT(
            stage.calls,
            ElementsAre("xcsGetInstallationDetails Inst1 null null 16 null",
                        "xcsIsSubpoolActive QM1 QM!1 null 2 id\\2", "xcsGetIniFilename null",
                        "xcsGetIniFilename QM1",
                        "xcsIniUtilRead Log null null LogPath " + R + "\\qmgrs\\QM!1\\qm.ini 2",
                        "xcsIniUtilWrite QueueManager Name QM1 Prefix " + R + "\\to " + R + "\\zns.ini 1",
                        "xcsGetIniFilename QM1",
                        "xcsIniUtilWrite Log null null LogPath " + R + "\\tolog\\QM!1\\ " + R +
                            "\\to\\qmgrs\\QM!1\\qm.ini 2"));
    }
    const std::string strLongest = "D:\\" + std::string(128, 'l') + "\\" + std::string(129, 'm');
    for (const auto& [strLogPath, fRead] : {std::pair{strLongest, true}, {strLongest + "x", false}})
    {
        Stage stage;
        Capture capture;
        EXPECT_EQ(stage.Move(strLogPath), 0); // at the latest because nothing is there
        EXPECT_EQ(capture.Has("# 168 strSrcLogDir:  " + strLogPath), fRead);
    }
}
