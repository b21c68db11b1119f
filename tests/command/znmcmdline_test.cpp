#include "tracecapture.h"
#include "znmapp.h"
#include "znmcmdline.h"

namespace
{
// Parses words as the framework would, into a fresh state of the application object.
void Parse(std::vector<std::wstring> words)
{
    theApp.m_nParameters = 0;
    theApp.m_nExpected = EXPECT_FLAG;
    theApp.m_fParametersValid = TRUE;
    theApp.m_strQueueManager = theApp.m_strDataDest = theApp.m_strLogDest = CString();
    words.insert(words.begin(), L"tarvel");
    std::vector<wchar_t*> pointers;
    for (std::wstring& str : words)
        pointers.push_back(str.data());
    pointers.push_back(nullptr);
    __argc = static_cast<int>(words.size());
    __wargv = pointers.data();
    CZNCmdLineInfo info;
    theApp.ParseCommandLine(info);
}
} // namespace

TEST(CommandLine, IsTakenUpToTheFirstError)
{
    const std::tuple<std::vector<std::wstring>, bool, const wchar_t*> cases[] = {
        // words; whether they are valid so far, name|data|log
        {{L"/m", L"QM1", L"/m", L"QM2", L"/dd", L"D:/x//"}, true, L"QM2|D:\\x|"},
        {{L"/m", L"", L"/dd", L"\\", L"/ld", L"\\\\//"}, true, L"||"},
        {{L"/m", L"Q*", L"/dd", L"a/b\\", L"/ld", L"\\\\srv\\s\\"}, true, L"Q*|a\\b|\\\\srv\\s"},
        {{L"/m", L"QM1", L"/dd", L"D:\\x", L"/ld", L"E:\\y", L"/m"}, true, L"QM1|D:\\x|E:\\y"},
        {{L"/m", L"QM1", L"/dd", L"D:\\x", L"/x", L"E:\\y"}, false, L"QM1|D:\\x|"},
        {{L"//m", L"QM1", L"/dd", L"D:\\x"}, false, L"||"}};
    for (const auto& [words, fValid, pszExpected] : cases)
    {
        Parse(words);
        EXPECT_EQ(theApp.m_fParametersValid, fValid) << words.size();
        EXPECT_EQ(theApp.m_nParameters, words.size());
        EXPECT_STREQ(theApp.m_strQueueManager + L"|" + theApp.m_strDataDest + L"|" + theApp.m_strLogDest,
                     pszExpected);
    }
    // An exception of any kind ends only the word.
    Capture capture;
    const auto hook = Hook(CharLowerBuffW, [](auto...) -> DWORD { throw std::bad_alloc(); });
    Parse({L"/m", L"QM1"});
    EXPECT_TRUE(capture.Has("! 181/1 *** Unknown exception caught! ***"));
    EXPECT_EQ(theApp.m_nParameters, 2);
}

// The start-up sequence calls neither.
TEST(Application, StartAndEndAreTraced)
{
    Capture capture;
    EXPECT_EQ(theApp.InitInstance(), TRUE);
    EXPECT_EQ(theApp.ExitInstance(), 0);
    EXPECT_THAT(capture.lines, testing::ElementsAre("> 169", "< 169 1", "> 170", "< 170 0"));
}
