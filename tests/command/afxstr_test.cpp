#include <gtest/gtest.h>

#include "afxwin.h"
#include "hook.h"

// Blocks of the string table that end before entry 4 (identifier 20), or in it.
TEST(String, IsNotLoadedFromADamagedTable)
{
    for (const std::wstring& block :
         {std::wstring(), std::wstring(3, L'\0'), std::wstring(4, L'\0'), std::wstring(L"\xFFFF"),
          std::wstring(4, L'\0') + L"\xFFFF", std::wstring(4, L'\0') + L"\2x"})
    {
        const auto lock = Hook(LockResource, [&](auto) { return const_cast<wchar_t*>(block.data()); });
        const auto size = Hook(SizeofResource, [&](auto...) { return block.size() * sizeof(wchar_t); });
        CString str(L"before");
        EXPECT_TRUE(str.LoadString(20) == FALSE && str.IsEmpty()) << block.size();
    }
}

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
