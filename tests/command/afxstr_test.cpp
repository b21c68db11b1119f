#include <gtest/gtest.h>

#include "afxwin.h"
#include "hook.h"

TEST(Conversion, IsNullOrEmptyForNullAndAfterAFailure)
{
    const auto convert = Hook(WideCharToMultiByte, [&](UINT nCodePage, auto... args) {
        return nCodePage == CP_THREAD_ACP ? WideCharToMultiByte(nCodePage, args...) : 0;
    });
    EXPECT_STREQ(CW2A(L"text"), "text");
    EXPECT_EQ(CW2A(nullptr), nullptr);
    const auto fails = Fails(WideCharToMultiByte, 0, 122);
    EXPECT_EQ(CW2A(L"text"), nullptr);
    EXPECT_TRUE(CString(static_cast<const char*>(nullptr)).IsEmpty());
    const auto widens = Fails(MultiByteToWideChar, 0, 1113);
    EXPECT_TRUE(CString("text").IsEmpty());
}
