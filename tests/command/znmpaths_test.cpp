#include <gtest/gtest.h>

#include "hook.h"
#include "znmpaths.h"

TEST(Paths, OldTreesAreWhatWindowsMakesOfThemBelowARoot)
{
    for (const wchar_t* psz :
         {L"D:\\znm", L"D:/znm/log", L"\\\\srv\\share\\znm", L"//srv/share/znm", L"D:\\a b\\.c",
          L"D:\\znm\\log\\", L"D:\\\\znm\\\\log", L"D:\\.\\znm\\x\\..\\log"})
        EXPECT_TRUE(IsTreePath(psz)) << CW2A(psz);
    for (const wchar_t* psz :
         {L"D:", L"D:\\", L"D:\\.", L"D:\\znm\\..", L"D:\\\\\\\\", L"D:\\x\\../.", L"\\\\?\\D:\\.",
          L"\\\\.\\D:\\znm", L"\\\\srv\\share", L"\\\\srv\\share\\", L"D:znm", L"\\znm", L"", L"1:\\znm",
          L"znm", L"//?/D:/znm", L"//srv/share/.", L"\\\\?\\D:\\znm"})
        EXPECT_FALSE(IsTreePath(psz)) << CW2A(psz);
    const auto mounted = Hook(GetVolumePathNameW, [](LPCWSTR, LPWSTR pszVolume, DWORD) {
        return lstrcpyW(pszVolume, L"d:\\Mounted\\") != nullptr;
    });
    EXPECT_FALSE(IsTreePath(L"D:\\mounted"));
    EXPECT_TRUE(IsTreePath(L"D:\\mounted\\znm"));
}

TEST(Paths, DestinationsAreFoundAgainByTheSameText)
{
    const CString strLongest(std::wstring(L"E:\\" + std::wstring(244, L'd')).c_str());
    for (const CString& str :
         {CString(L"E:\\data\\qmgrs\\QM1"), CString(L"\\\\s\\share\\data"), CString(L"e:\\.data\\a b"),
          CString(L"E:\\a\\\\b"), CString(L"\\\\srv\\share\\\\\\data"), CString(L"E:\\control\\com10"),
          strLongest})
        EXPECT_TRUE(CanBeDestination(str)) << CW2A(str);
    for (const wchar_t* psz :
         {L"E:data",          L"\\data",         L"1:\\data",    L"E:\\d:stream",  L"\\\\?\\E:\\data",
          L"\\\\.\\E:\\data", L"\\\\srv\\\\b",   L"E:\\a\\.\\b", L"E:\\a.\\b",     L"E:\\a \\b",
          L"E:\\con",         L"E:\\NUL.txt\\b", L"E:\\a\\Com1", L"E:\\lpt\u00B2", L"E:\\conin$",
          L"E:\\aux .x",      L"E:\\a*",         L"E:\\a\tb",    L"E:\\a/b",       L"E:\\\xD800"})
        EXPECT_FALSE(CanBeDestination(psz)) << CW2A(psz);
    EXPECT_FALSE(CanBeDestination(strLongest + L"d"));
}
