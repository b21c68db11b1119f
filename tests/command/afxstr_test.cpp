#include <gtest/gtest.h>

#include "afxwin.h"
#include "hook.h"

constexpr LANGID ENGLISH = 0x0409;

TEST(String, KeepsTheClassLibrarysRules)
{
    CString str(L"a\\b\\c");
    const CString copy = str;
    EXPECT_EQ(str.Find(L'\\') * 10 + str.ReverseFind(L'\\'), 13);
    EXPECT_EQ(str.Find(L'x') * 10 + str.ReverseFind(L'x'), -11);
    for (const auto& [nCount, pszLeft, pszRight] :
         {std::tuple{-1, L"", L""}, {0, L"", L""}, {2, L"a\\", L"\\c"}, {6, L"a\\b\\c", L"a\\b\\c"}})
    {
        EXPECT_STREQ(str.Left(nCount), pszLeft);
        EXPECT_STREQ(str.Right(nCount), pszRight);
    }
    EXPECT_EQ(str.Replace(L'x', L'y'), 0);
    EXPECT_EQ(str.Replace(L'\\', L'/'), 2);
    str += static_cast<const wchar_t*>(str);
    str += static_cast<const wchar_t*>(nullptr);
    str += L'\u00C4';
    EXPECT_STREQ(str + CString(L"XY", 1), L"a/b/ca/b/c\u00C4X");
    EXPECT_STREQ(str.MakeLower(), L"a/b/ca/b/c\u00E4");
    EXPECT_STREQ(copy, L"a\\b\\c"); // copies do not change with it
    EXPECT_TRUE(copy == CString("a\\b\\c") && !(copy == L"A\\b\\c") && !(copy == str));
    EXPECT_TRUE(CString().IsEmpty() && CString(static_cast<const char*>(nullptr)).IsEmpty() &&
                CString(static_cast<const wchar_t*>(nullptr)).IsEmpty() && !copy.IsEmpty());
    const auto fails = Fails(MultiByteToWideChar, 0, 1113);
    EXPECT_TRUE(CString("a").IsEmpty());
}

TEST(String, IsLoadedFromTheStringTable)
{
    SetThreadUILanguage(ENGLISH);
    CString str(L"before");
    EXPECT_EQ(str.LoadString(41), TRUE);
    EXPECT_STREQ(str, L"Vantor ZN MSCS Support");
    EXPECT_EQ(str.LoadString(25), FALSE);
    EXPECT_TRUE(str.IsEmpty());
    EXPECT_EQ(str.LoadString(48), FALSE);
    // Blocks that end before entry 4 (identifier 20), or in it.
    for (const std::wstring& block :
         {std::wstring(), std::wstring(3, L'\0'), std::wstring(4, L'\0'), std::wstring(L"\xFFFF"),
          std::wstring(4, L'\0') + L"\xFFFF", std::wstring(4, L'\0') + L"\2x"})
    {
        const auto lock = Hook(LockResource, [&](auto) { return const_cast<wchar_t*>(block.data()); });
        const auto size = Hook(SizeofResource, [&](auto...) { return block.size() * sizeof(wchar_t); });
        EXPECT_EQ(str.LoadString(20), FALSE) << block.size();
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
