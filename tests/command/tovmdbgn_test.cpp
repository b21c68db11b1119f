#include "tovmdbgn.h"
#include "tovmtrce.h"
#include "tracecapture.h"

TEST(Debug, TextsUpToTheLimitAreWholeAndLongerOnesEmpty)
{
    for (const auto& [nLength, nExpected] : {std::pair(1024u, 1024u), {1025u, 0u}, {30000u, 0u}})
    {
        Capture capture;
        const std::string strExpected(nExpected, 'x');
        const std::wstring strText(nLength, L'x');
        CZNMDebug::RecordFailure(1, 2, L"%s", strText.c_str());
        CZNMDebug::GetInstance()->DebugOutput(1, 2, 0, strText.c_str());
        EXPECT_THAT(capture.lines, testing::ElementsAre("! 1/2 " + strExpected, "# 1 " + strExpected));
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
    EXPECT_THAT(capture.lines, testing::ElementsAre("! 1/2 (null)"));
}
