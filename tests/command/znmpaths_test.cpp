#include <windows.h>

#include <gtest/gtest.h>

#include "hook.h"
#include "znmpaths.h"

TEST(Paths, OldTreesAreWhatWindowsMakesOfThemBelowARoot)
{
    const std::pair<const wchar_t*, bool> cases[] = {
        {L"D:\\znm", true},
        {L"D:\\znm/log", true},
        {L"\\\\srv\\share\\znm", true},
        {L"D:\\a b\\.c", true},
        {L"D:\\znm\\log\\", true},
        {L"D:", false},
        {L"D:\\", false},
        {L"D:\\.", false},
        {L"D:\\znm\\..", false},
        {L"D:\\\\\\\\", false},
        {L"D:\\\\znm", false},
        {L"D:\\znm.", false},
        {L"D:\\znm ", false},
        {L"D:\\znm.\\log", false},
        {L"\\\\?\\D:\\.", false},
        {L"\\\\?\\D:\\znm", false},
        {L"\\\\.\\D:\\znm", false},
        {L"\\\\srv\\share", false},
        {L"\\\\srv\\share\\", false},
        {L"znm", false},
        {L"D:znm", false},
        {L"\\znm", false},
        {L"", false},
        {L"D:\\znm\\nul", false},
    };
    for (const auto& [pszPath, fExpected] : cases)
        EXPECT_EQ(IsTreePath(pszPath), fExpected) << CW2A(pszPath);

    ImportHook<decltype(GetVolumePathNameW)> mounted(
        "GetVolumePathNameW",
        [](LPCWSTR, LPWSTR pszVolume, DWORD) { return lstrcpyW(pszVolume, L"d:\\Mounted\\") != nullptr; });
    EXPECT_FALSE(IsTreePath(L"D:\\mounted"));
    EXPECT_TRUE(IsTreePath(L"D:\\mounted\\znm"));
}

TEST(Paths, DestinationsAreFoundAgainByTheSameText)
{
    const std::wstring strLongest = L"E:\\" + std::wstring(244, L'd');
    const std::pair<std::wstring, bool> cases[] = {
        {L"E:\\data\\qmgrs\\QM1", true},
        {L"\\\\srv\\share\\data", true},
        {L"e:\\.data\\a b", true},
        {L"E:\\control\\com10", true},
        {strLongest, true},
        {strLongest + L"d", false},
        {L"E:data", false},
        {L"data", false},
        {L"\\data", false},
        {L"1:\\data", false},
        {L"E:\\data:stream", false},
        {L"E:\\data::$INDEX_ALLOCATION", false},
        {L"\\\\?\\E:\\data", false},
        {L"\\\\.\\E:\\data", false},
        {L"E:\\a\\\\b", false},
        {L"E:\\a\\.\\b", false},
        {L"E:\\a\\..\\b", false},
        {L"E:\\a.\\b", false},
        {L"E:\\a \\b", false},
        {L"E:\\con", false},
        {L"E:\\NUL.txt\\b", false},
        {L"E:\\a\\Com1", false},
        {L"E:\\lpt\u00B2", false},
        {L"E:\\conin$", false},
        {L"E:\\aux .x", false},
        {L"E:\\a*", false},
        {L"E:\\a\"b", false},
        {L"E:\\a\tb", false},
        {L"E:\\a/b", false},
        {L"E:\\\xD800", false},
    };
    for (const auto& [strPath, fExpected] : cases)
        EXPECT_EQ(CanBeDestination(strPath.c_str()), fExpected) << CW2A(strPath.c_str());
}
