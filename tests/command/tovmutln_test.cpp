#include <gtest/gtest.h>

#include "hook.h"
#include "tovmutln.h"

TEST(Console, MessagesGoWholeToTheStreamOfTheirType)
{
    const auto convert = Hook(WideCharToMultiByte, [&](UINT nCodePage, auto... args) {
        return nCodePage == CP_OEMCP ? WideCharToMultiByte(nCodePage, args...) : 0; // the console's code page
    });
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    CZNMUtil::ZNMessageConsole(1, L"out");
    CZNMUtil::ZNMessageConsole(2, 48u); // there is none
    for (const std::wstring& str : {std::wstring(L"100%s%n"), std::wstring(5000, L'x')})
        CZNMUtil::ZNMessageConsole(2, str.c_str());
    CZNMUtil::ZNMessageConsole(3, L"an address is written instead");
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "out\n");
    const std::string strErr = testing::internal::GetCapturedStderr(),
                      strTexts = "\n100%s%n\n" + std::string(2048, 'x') + "\n";
    EXPECT_TRUE(strErr.starts_with(strTexts)) << strErr;
    EXPECT_EQ(strErr.find_first_not_of("0123456789ABCDEF", strTexts.size()), strTexts.size() + 16) << strErr;
}
