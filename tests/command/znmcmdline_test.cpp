#include "tracecapture.h"
#include "znmapp.h"
#include "znmcmdline.h"

using testing::ElementsAre;

namespace
{
// Parses words as the framework would, into a fresh state of the application object.
void Parse(std::vector<std::wstring> words, CCommandLineInfo* pInfo = nullptr)
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
    theApp.ParseCommandLine(pInfo != nullptr ? *pInfo : info);
}

struct Words : CCommandLineInfo
{
    void ParseParam(const wchar_t* pszParam, BOOL bFlag, BOOL bLast) override
    {
        str = str + pszParam + (bFlag ? L" flag" : L"") + (bLast ? L" last;" : L";");
    }
    CString str;
};
} // namespace

TEST(CommandLine, IsTakenWordByWord)
{
    Words words;
    Parse({L"/m", L"", L"--"}, &words);
    EXPECT_STREQ(words.str, L"m flag;;- flag last;");
}

TEST(CommandLine, IsTakenUpToTheFirstError)
{
    const std::tuple<std::vector<std::wstring>, bool, const wchar_t*> cases[] = {
        // words; whether they are valid so far, name|data|log
        {{L"/m", L"QM1", L"/dd", L"D:\\data\\", L"/ld", L"D:\\log"}, true, L"QM1|D:\\data|D:\\log"},
        {{L"-M", L"QM1", L"-DD", L"D:/x//", L"-LD", L"E:\\y"}, true, L"QM1|D:\\x|E:\\y"},
        {{L"/LD", L"E:\\y", L"/Dd", L"D:\\x", L"/m", L"QM1"}, true, L"QM1|D:\\x|E:\\y"},
        {{L"/m", L"QM1", L"/m", L"QM2", L"/dd", L"D:\\x"}, true, L"QM2|D:\\x|"},
        {{L"/m", L"", L"/dd", L"\\", L"/ld", L"\\\\//"}, true, L"||"},
        {{L"/m", L"Q*", L"/dd", L"a/b\\", L"/ld", L"\\\\srv\\s\\"}, true, L"Q*|a\\b|\\\\srv\\s"},
        {{L"/m", L"QM1", L"/dd", L"D:\\x", L"/ld"}, true, L"QM1|D:\\x|"},
        {{L"/m", L"QM1", L"/dd", L"D:\\x", L"/ld", L"E:\\y", L"/m"}, true, L"QM1|D:\\x|E:\\y"},
        {{L"/m", L"QM1", L"/dd", L"D:\\x", L"/x", L"E:\\y"}, false, L"QM1|D:\\x|"},
        {{L"/x", L"/m", L"QM1", L"/dd", L"D:\\x", L"/ld"}, false, L"||"},
        {{L"QM1", L"/m", L"/dd", L"D:\\x"}, false, L"||"},
        {{L"/m", L"/dd", L"/dd", L"D:\\x"}, false, L"||"},
        {{L"/m", L"-QM1", L"/dd", L"D:\\x"}, false, L"||"},
        {{L"/", L"QM1", L"/dd", L"D:\\x"}, false, L"||"},
        {{L"//m", L"QM1", L"/dd", L"D:\\x"}, false, L"||"},
        {{}, true, L"||"}};
    for (const auto& [words, fValid, pszExpected] : cases)
    {
        Parse(words);
        EXPECT_EQ(theApp.m_fParametersValid, fValid) << words.size();
        EXPECT_EQ(theApp.m_nParameters, words.size());
        EXPECT_STREQ(theApp.m_strQueueManager + L"|" + theApp.m_strDataDest + L"|" + theApp.m_strLogDest,
                     pszExpected);
    }
}

TEST(CommandLine, EveryWordIsTraced)
{
    Capture capture;
    Parse({L"/m", L"QM1", L"/DD", L"D:/x\\", L"/ld", L"E:\\y", L"extra", L"/late"});
    EXPECT_THAT(capture.Only("#", 181),
                ElementsAre("# 181 ***CZNMException Caught***: (QueueManager flag caught)",
                            "# 181 QueueManager argument specified: 'QM1'",
                            "# 181 ***CZNMException Caught***: (Destination flag caught)",
                            "# 181 Destination argument specified: 'D:/x\\'",
                            "# 181 ***CZNMException Caught***: (Log flag caught)",
                            "# 181 Log argument specified: 'E:\\y'", "# 181 No flag associated with argument",
                            "# 181 ***CZNMException Caught***: Parameters already invalid"));
    EXPECT_TRUE(capture.Has("# 177 CZNMSCSApp::SetDataDest() (strDataDest = D:/x\\)") &&
                capture.Has("# 178 CZNMSCSApp::SetLogDest() (strLogDest = E:\\y)"));
    EXPECT_EQ(capture.Count("# 26 CZNMException::CZNMException() (nModuleName=181, nProbe=0, nSeverity = 2, "
                            "lpszText = (Log flag caught))"),
              1);
    EXPECT_EQ(capture.Count("< 27 0"), 4); // each exception was deleted
    Parse({L"/M", L"/DD"});
    EXPECT_TRUE(capture.Has("# 181 ***CZNMException Caught***: Invalid flag/argument pair specified"));
    Parse({L"/Xy%s%n%%"});
    EXPECT_TRUE(capture.Has("# 181 ***CZNMException Caught***: Invalid flag caught: 'Xy%s%n%'"));
}

TEST(CommandLine, UnknownExceptionWritesARecordAndParsingGoesOn)
{
    Capture capture;
    const auto hook = Hook(CharLowerBuffW, [](auto...) -> DWORD { throw std::bad_alloc(); });
    Parse({L"/m", L"QM1"});
    EXPECT_TRUE(capture.Has("! 181/1 *** Unknown exception caught! ***"));
    EXPECT_EQ(theApp.m_nParameters, 2);
}
