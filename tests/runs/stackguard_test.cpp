// The guard is another one in every process, and a function that overruns its stack does not return.
#include <gmock/gmock.h>

#include "installation.h"

TEST(StackGuard, IsRandomAndEndsTheProcessThatOverwritesIt)
{
    const TempDir scratch;
    const auto run = [&](const wchar_t* pszLength) {
        return RunProgram(ProgramFolder() / "stackguard_probe.exe", pszLength, scratch.root);
    };
    const RunResult fits = run(L"16"), again = run(L"16");
    EXPECT_EQ(fits.nStatus, DWORD{'x'});
    EXPECT_NE(fits.strOut, again.strOut);
    EXPECT_EQ(run(L"64").nStatus, 0xC0000409u); // STATUS_STACK_BUFFER_OVERRUN
}
