#include "tracecapture.h"
#include "znmapp.h"
#include "znmcmdline.h"

using testing::ElementsAre;

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

bool IsValid()
{
    return theApp.m_nParameters == 6 && theApp.m_fParametersValid == TRUE;
}
} // namespace

TEST(CommandLine, IsValidExactlyWithThreePairs)
{
    const std::tuple<std::vector<std::wstring>, bool, const wchar_t*> cases[] = {
        // words; name|data|log
        {{L"/m", L"QM1", L"/dd", L"D:\\data\\", L"/ld", L"D:\\log"}, true, L"QM1|D:\\data|D:\\log"},
        {{L"-M", L"QM1", L"-DD", L"D:/x//", L"-LD", L"E:\\y"}, true, L"QM1|D:\\x|E:\\y"},
        {{L"/LD", L"E:\\y", L"/Dd", L"D:\\x", L"/m", L"QM1"}, true, L"QM1|D:\\x|E:\\y"},
        {{L"/m", L"QM1", L"/m", L"QM2", L"/dd", L"D:\\x"}, true, L"QM2|D:\\x|"},
        {{L"/m", L"", L"/dd", L"\\", L"/ld", L"\\\\//"}, true, L"||"},
        {{L"/m", L"Q*", L"/dd", L"a/b\\", L"/ld", L"\\\\srv\\s\\"}, true, L"Q*|a\\b|\\\\srv\\s"},
        {{L"/m", L"QM1", L"/dd", L"D:\\x", L"/ld"}, false, L"QM1|D:\\x|"},
        {{L"/m", L"QM1", L"/dd", L"D:\\x", L"/ld", L"E:\\y", L"/m"}, false, L"QM1|D:\\x|E:\\y"},
        {{L"/m", L"QM1", L"/dd", L"D:\\x", L"/x", L"E:\\y"}, false, L"QM1|D:\\x|"},
        {{L"/x", L"/m", L"QM1", L"/dd", L"D:\\x", L"/ld"}, false, L"||"},
        {{}, false, L"||"}};
    const auto check = [](const std::vector<std::wstring>& words, bool fValid, const wchar_t* pszExpected) {
        Parse(words);
        EXPECT_EQ(IsValid(), fValid) << words.size();
        EXPECT_EQ(theApp.m_nParameters, words.size());
        EXPECT_STREQ(theApp.m_strQueueManager + L"|" + theApp.m_strDataDest + L"|" + theApp.m_strLogDest,
                     pszExpected);
    };
    for (const auto& [words, fValid, pszExpected] : cases)
        check(words, fValid, pszExpected);
    const wchar_t* const starts[][2] = {
        {L"QM1", L"/m"}, {L"/m", L"/dd"}, {L"/m", L"-QM1"}, {L"/", L"QM1"}, {L"//m", L"QM1"}};
    for (const auto& [pszFirst, pszSecond] : starts)
        check({pszFirst, pszSecond, L"/dd", L"D:\\x", L"/ld", L"E:\\y"}, false, L"||");
}

TEST(CommandLine, EveryWordIsTraced)
{
    Capture capture;
    Parse({L"/m", L"QM1", L"/DD", L"D:/x\\", L"/ld", L"E:\\y", L"extra", L"/late"});
    std::vector<std::string> lines = capture.Only("#");
    std::erase_if(lines, [](const std::string& str) { return str.starts_with("# 26"); });
    EXPECT_THAT(lines, ElementsAre("# 181 ***CZNMException Caught***: (QueueManager flag caught)",
                                   "# 181 QueueManager argument specified: 'QM1'",
                                   "# 181 ***CZNMException Caught***: (Destination flag caught)",
                                   "# 181 Destination argument specified: 'D:/x\\'",
                                   "# 177 CZNMSCSApp::SetDataDest() (strDataDest = D:/x\\)",
                                   "# 181 ***CZNMException Caught***: (Log flag caught)",
                                   "# 181 Log argument specified: 'E:\\y'",
                                   "# 178 CZNMSCSApp::SetLogDest() (strLogDest = E:\\y)",
                                   "# 181 No flag associated with argument",
                                   "# 181 ***CZNMException Caught***: Parameters already invalid"));
    EXPECT_EQ(capture.Count("# 26 CZNMException::CZNMException() (nModuleName=181, nProbe=0, nSeverity = 2, "
                            "lpszText = (Log flag caught))"),
              1);
    EXPECT_EQ(capture.Count("< 27 0"), 4); // each exception was deleted
    for (const auto& [pszWord, pszText] :
         {std::pair{L"/DD", "Invalid flag/argument pair specified"}, {L"QM1", "(QueueManager flag caught)"}})
    {
        Parse({L"/M", pszWord});
        EXPECT_TRUE(capture.Has(std::string("# 181 ***CZNMException Caught***: ") + pszText));
        EXPECT_EQ(theApp.m_fParametersValid, pszWord[0] != L'/');
    }
    Parse({L"/Xy%s%n%%"});
    EXPECT_TRUE(capture.Has("# 181 ***CZNMException Caught***: Invalid flag caught: 'Xy%s%n%'"));
}

TEST(CommandLine, UnknownExceptionWritesARecordAndParsingGoesOn)
{
    Capture capture;
    ImportHook<decltype(CharLowerBuffW)> hook("CharLowerBuffW",
                                              [](auto...) -> DWORD { throw std::bad_alloc(); });
    Parse({L"/m", L"QM1"});
    EXPECT_TRUE(capture.Has("! 181/1 *** Unknown exception caught! ***"));
    EXPECT_EQ(theApp.m_nParameters, 2);
}
