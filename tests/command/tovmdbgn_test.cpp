#include "tracecapture.h"
#include "tovmdbgn.h"
#include "tovmtrce.h"

using testing::ElementsAre;

TEST(Debug, SeverityOneWritesARecordAndTheOthersOnlyTrace)
{
    Capture capture;
    for (uint32_t nSeverity : {1, 2, 0})
        CZNMDebug::GetInstance()->DebugOutput(31, 7, nSeverity, L"Error %d on '%s'", nSeverity, L"E:\\x");
    xihProcess = {}; // the trace is switched off
    CZNMDebug::GetInstance()->DebugOutput(31, 7, 2, L"not wanted");
    EXPECT_THAT(capture.lines, ElementsAre("! 31/7 Error 1 on 'E:\\x'", "# 31 Error 2 on 'E:\\x'",
                                           "# 31 Error 0 on 'E:\\x'"));
}

TEST(Debug, TextsUpToTheLimitAreWholeAndLongerOnesEmpty)
{
    for (const auto& [nLength, nExpected] : {std::pair{1023, 1023}, {1024, 1024}, {1025, 0}, {30000, 0}})
    {
        Capture capture;
        const std::wstring strText(static_cast<size_t>(nLength), L'x');
        CZNMDebug::RecordFailure(1, 2, L"%s", strText.c_str());
        CZNMDebug::RecordFailure(1, 2, strText.c_str());
        const std::string strLine = "! 1/2 " + std::string(static_cast<size_t>(nExpected), 'x');
        EXPECT_THAT(capture.lines, ElementsAre(strLine, strLine)) << nLength;
    }
    Capture capture;
    const auto fails = Hook(WideCharToMultiByte, [](UINT nCodePage, auto...) {
        EXPECT_EQ(nCodePage, 3u); // the thread's
        return SetLastError(122), 0;
    });
    const auto widen = Hook(MultiByteToWideChar, [](UINT nCodePage, auto... args) {
        return nCodePage == 3 ? MultiByteToWideChar(nCodePage, args...) : 0;
    });
    EXPECT_STREQ(CString("text"), L"text");
    CZNMDebug::RecordFailure(1, 2, L"text");
    CZNMDebug::GetInstance()->DebugOutput(1, 2, 2, L"text");
    EXPECT_THAT(capture.lines, ElementsAre("! 1/2 (null)"));
}
