#include "tovmtrce.h"
#include "tracecapture.h"

using testing::ElementsAre;

TEST(Trace, EntryAndExitFillTheAreaEvenWhileInactiveAndStayWithinIt)
{
    Capture capture;
    XTR_THREAD_AREA& area = capture.area;
    area.fTraceActive = 0;
    CZNMTrace::RecordExit(FN_TMAIN, 71); // the exit without an entry
    {
        const CZNMTrace outer(FN_MESSAGE_CONSOLE_BY_ID);
        CZNMTrace(FN_QUEUE_MGR_GET_STATE).Return(-1);
        EXPECT_EQ(area.nDepth, 1u);
    }
    EXPECT_THAT(std::vector(area.aCallStack, area.aCallStack + 3), ElementsAre(0xF000A850, 0xF000A83A, 0));
    EXPECT_THAT(std::vector(area.aHistory, area.aHistory + 6),
                ElementsAre(0x47A8B3, 0xF000A850, 0xF000A83A, 0xFFFFA83A, 0xA850, 0));
    area.nHistory = UINT32_MAX;
    area.nDepth = XTR_CALL_STACK_SIZE;
    CZNMTrace(FN_DELETE_ZN_FILES).Leave(0);
    EXPECT_EQ(area.nDepth, XTR_CALL_STACK_SIZE);
    EXPECT_EQ(area.aHistory[XTR_HISTORY_SIZE - 1], 0xF000A8B0);
    EXPECT_EQ(area.aHistory[0], 0xA8B0u);
    EXPECT_TRUE(capture.lines.empty() && capture.nBehind == 0);
}

TEST(Trace, LinesAreHandedOverOnlyWhenWanted)
{
    constexpr uint32_t ALL = 0xC8000;
    const std::tuple<XIH_PROCESS, uint32_t, uint32_t, size_t, size_t> cases[] = {
        {{0, 1, 1}, 1, ALL, 0, 0},     {{1, 0, 0}, 1, ALL, 0, 0},    {{1, -1, 0}, 1, ALL, 0, 0},
        {{1, 0, 1}, 0, 0, 1, 1},       {{1, 1, 0}, 0, ALL, 0, 0},    {{1, 1, 0}, 1, 0x40000, 1, 0},
        {{1, 1, 0}, 1, 0x80000, 1, 0}, {{1, 1, 0}, 1, 0x8000, 0, 1}, {{1, 1, 0}, 1, ~ALL, 0, 0}};
    for (const auto& [process, fDetailed, nOptions, nParms, nTexts] : cases)
    {
        Capture capture;
        xihProcess = process;
        capture.area.fDetailed = fDetailed;
        capture.area.nOptions = nOptions;
        const CZNMTrace trace(FN_SET_DATA_DEST);
        trace.Parms("text");
        trace.Text("text");
        EXPECT_TRUE(capture.Only("#").size() == nParms && capture.Only("-").size() == nTexts) << nOptions;
    }
}
