#include "tracecapture.h"
#include "znmapp.h"
#include "znmcmdline.h"

TEST(CommandLine, IsTakenUpToTheFirstError)
{
    const auto parse = [](std::vector<std::wstring> words) {
        theApp.m_nParameters = 0;
        theApp.m_nExpected = EXPECT_FLAG;
        theApp.m_fParametersValid = TRUE;
        theApp.m_strQueueManager = theApp.m_strDataDest = theApp.m_strLogDest = CString();
        std::vector<wchar_t*> pointers = {nullptr}; // the program's name
        for (std::wstring& str : words)
            pointers.push_back(str.data());
        __argc = static_cast<int>(pointers.size());
        __wargv = pointers.data();
        CZNCmdLineInfo info;
        theApp.ParseCommandLine(info);
        EXPECT_EQ(theApp.m_nParameters, words.size());
    };
    const std::tuple<std::vector<std::wstring>, bool, const wchar_t*> cases[] = {
        // words; whether they are valid so far, name|data|log
        {{L"/m", L"QM1", L"/m", L"QM2", L"/dd", L"D:/x//"}, true, L"QM2|D:\\x|"},
        {{L"/m", L"", L"/dd", L"\\", L"/ld", L"\\\\//"}, true, L"||"},
        {{L"/m", L"Q*", L"/dd", L"a/b\\", L"/ld", L"\\\\srv\\s\\"}, true, L"Q*|a\\b|\\\\srv\\s"},
        {{L"/m", L"QM1", L"/dd", L"D:\\x", L"/x", L"E:\\y"}, false, L"QM1|D:\\x|"},
        {{L"//m", L"QM1", L"/dd", L"D:\\x"}, false, L"||"}};
    for (const auto& [words, fValid, pszExpected] : cases)
    {
        parse(words);
        EXPECT_EQ(theApp.m_fParametersValid, fValid) << pszExpected;
        EXPECT_STREQ(theApp.m_strQueueManager + L"|" + theApp.m_strDataDest + L"|" + theApp.m_strLogDest,
                     pszExpected);
    }
    // An exception of any kind ends only the word.
    Capture capture;
    const auto hook = Hook(CharLowerBuffW, [](auto...) -> DWORD { throw std::bad_alloc(); });
    parse({L"/m", L"QM1"});
    EXPECT_THAT(capture.Only("!"), testing::ElementsAre("! 181/1 *** Unknown exception caught! ***"));
}
