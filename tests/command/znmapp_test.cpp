#include <gtest/gtest.h>

#include "znmapp.h"

namespace
{
struct App : CZNMSCSApp
{
    using CZNMSCSApp::GetMessageMap;
};

struct Words : CCommandLineInfo
{
    void ParseParam(const wchar_t* pszParam, BOOL bFlag, BOOL bLast) override
    {
        str = str + pszParam + (bFlag ? L" flag" : L"") + (bLast ? L" last;" : L";");
    }
    CString str;
};
} // namespace

TEST(App, TakesTheWordsOfTheCommandLine)
{
    wchar_t szProgram[] = L"tarvel", szFlag[] = L"/m", szMinus[] = L"--", szEmpty[] = L"";
    wchar_t* apszWords[] = {szProgram, szFlag, szEmpty, szMinus, nullptr};
    __argc = 4;
    __wargv = apszWords;
    Words words;
    theApp.ParseCommandLine(words);
    EXPECT_STREQ(words.str, L"m flag;;- flag last;");
}

TEST(App, KeepsWhatTheFrameworkDoes)
{
    App app;
    EXPECT_EQ(app.InitInstance(), TRUE);
    EXPECT_EQ(app.ExitInstance(), 0);
    EXPECT_STREQ(app.GetRuntimeClass()->m_lpszClassName, "CObject");
    // The map has no entries; it leads to the base class's, which is the last.
    EXPECT_EQ(app.GetMessageMap()->pfnGetBaseMap()->pfnGetBaseMap, nullptr);
}

TEST(App, StoresDestinationsNormalised)
{
    for (const auto& [psz, pszExpected] :
         {std::pair{L"D:/x//", L"D:\\x"}, {L"\\", L""}, {L"D:\\a\\b", L"D:\\a\\b"}})
    {
        theApp.SetDataDest(psz);
        theApp.SetLogDest(psz);
        EXPECT_STREQ(theApp.m_strDataDest, pszExpected);
        EXPECT_STREQ(theApp.m_strLogDest, pszExpected);
    }
}
