#include <gtest/gtest.h>

#include "znmapp.h"

namespace
{
struct App : CZNMSCSApp
{
    using CZNMSCSApp::GetMessageMap;
};
} // namespace

TEST(App, KeepsWhatTheFrameworkDoes)
{
    App app;
    EXPECT_EQ(app.InitInstance(), TRUE);
    EXPECT_EQ(app.ExitInstance(), 0);
    EXPECT_STREQ(app.GetRuntimeClass()->m_lpszClassName, "CObject");
    // The map has no entries; it leads to the base class's, which is the last.
    EXPECT_EQ(app.GetMessageMap()->pfnGetBaseMap()->pfnGetBaseMap, nullptr);
}
