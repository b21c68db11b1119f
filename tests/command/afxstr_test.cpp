#include <gtest/gtest.h>

#include "afxwin.h"
#include "hook.h"

TEST(String, KeepsTheClassLibrarysRules)
{
    CString str(L"a\\b\\c");
    const CString copy = str;
    for (const auto& [nCount, pszLeft, pszRight] :
         {std::tuple{-1, L"", L""}, {0, L"", L""}, {2, L"a\\", L"\\c"}, {6, L"a\\b\\c", L"a\\b\\c"}})
    {
        EXPECT_STREQ(str.Left(nCount), pszLeft);
        EXPECT_STREQ(str.Right(nCount), pszRight);
    }
    str += static_cast<const wchar_t*>(str);
    str += static_cast<const wchar_t*>(nullptr);
    str += L'\u00C4';
    EXPECT_STREQ((str + CString(L"XY", 1)).MakeLower(), L"a\\b\\ca\\b\\c\u00E4x");
    EXPECT_STREQ(copy, L"a\\b\\c"); // copies do not change with it
    EXPECT_TRUE(CString(static_cast<const char*>(nullptr)).IsEmpty() &&
                CString(static_cast<const wchar_t*>(nullptr)).IsEmpty());
    const auto fails = Fails(MultiByteToWideChar, 0, 1113);
    EXPECT_TRUE(CString("a").IsEmpty());
}

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

TEST(Conversion, IsNullForNullAndAfterAFailure)
{
    const auto convert = Hook(WideCharToMultiByte, [&](UINT nCodePage, auto... args) {
        return nCodePage == CP_THREAD_ACP ? WideCharToMultiByte(nCodePage, args...) : 0;
    });
    EXPECT_STREQ(CW2A(L"text"), "text");
    EXPECT_EQ(CW2A(nullptr), nullptr);
    const auto fails = Fails(WideCharToMultiByte, 0, 122);
    EXPECT_EQ(CW2A(L"text"), nullptr);
}
