#include <gtest/gtest.h>

#include "hook.h"
#include "tovmutln.h"

TEST(Console, MessagesGoWholeToTheStreamOfTheirType)
{
    const auto english = Hook(FindResourceW, [](HMODULE h, auto pszName, auto pszType) {
        return FindResourceExW(h, pszType, pszName, 0x0409);
    });
    const auto convert = Hook(WideCharToMultiByte, [&](UINT nCodePage, auto... args) {
        return nCodePage == CP_OEMCP ? WideCharToMultiByte(nCodePage, args...) : 0; // the console's code page
    });
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    for (const int nType : {1, 2})
        CZNMUtil::ZNMessageConsole(nType, 20u);
    CZNMUtil::ZNMessageConsole(2, 48u); // there is none
    for (const std::wstring& str : {std::wstring(L"100%s%n"), std::wstring(5000, L'x')})
        CZNMUtil::ZNMessageConsole(2, str.c_str());
    CZNMUtil::ZNMessageConsole(3, 20u);
    const std::string strUsage = "Usage: tarvel /m queuemanager /dd absolutedatapath /ld absolutelogpath\n",
                      strTexts = strUsage + "\n100%s%n\n" + std::string(2048, 'x') + "\n";
    EXPECT_EQ(testing::internal::GetCapturedStdout(), strUsage);
    const std::string strErr = testing::internal::GetCapturedStderr();
    EXPECT_TRUE(strErr.starts_with(strTexts)) << strErr;
    // A message of another type is written as an address.
    EXPECT_EQ(strErr.find_first_not_of("0123456789ABCDEF", strTexts.size()), strTexts.size() + 16) << strErr;
}
