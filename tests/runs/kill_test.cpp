// Kills a move at moments of time, as if the power had failed. The environment's ZN_KILLS says how many
// moments, spread over a whole move.
#include <cstdlib>

#include "refusal.h"

namespace
{
// An installation with the sample queue manager QM2, which does not run: a kill while the move starts the end
// command can leave a process that Wine never lets begin, nor end.
class SampleInstallation : public Installation
{
  public:
    SampleInstallation()
    {
        EXPECT_EQ(Sample(L"create QM2 /files 100 /dd " + (root / "d").wstring() + L" /ld " +
                         (root / "l").wstring()),
                  0u);
    }
    DWORD Sample(const std::wstring& strWords) const
    {
        return RunProgram(ProgramFolder() / "sampleqm.exe", strWords, root).nStatus;
    }
    // Starts a move and kills it after some milliseconds. Returns how it ended.
    DWORD Kill(DWORD nMoment) const
    {
        const KernelHandle move = StartProgram(ProgramFolder() / "tarvel.exe", MoveWords(L"QM2"), root);
        WaitForSingleObject(move.Get(), nMoment);
        TerminateProcess(move.Get(), 9);
        WaitForSingleObject(move.Get(), INFINITE);
        DWORD nStatus = 0;
        GetExitCodeProcess(move.Get(), &nStatus);
        return nStatus;
    }
};
} // namespace

TEST(Kill, ConfigurationNamesEveryRecordAtAnyMoment)
{
    const char* const pszKills = std::getenv("ZN_KILLS");
    const int nKills = pszKills != nullptr ? std::atoi(pszKills) : 8;
    const SampleInstallation whole;
    const ULONGLONG nStart = GetTickCount64();
    ASSERT_EQ(whole.Kill(INFINITE), 0u);
    ULONGLONG nWhole = GetTickCount64() - nStart;
    int nKilled = 0, nCompleted = 0;
    for (int n = 0; n < nKills; ++n)
    {
        const auto nMoment = static_cast<DWORD>(nWhole * n / nKills);
        SCOPED_TRACE(nMoment);
        SampleInstallation zn;
        const bool fKilled = zn.Kill(nMoment) == 9;
        nKilled += fKilled;
        if (!fKilled) // moves have become faster
            nWhole = nWhole * 9 / 10;
        EXPECT_EQ(zn.Sample(L"verify QM2"), 0u);
        // The same command again completes the move, or refuses because the configuration is changed.
        const RunResult again = zn.Run(zn.MoveWords(L"QM2"));
        nCompleted += again.nStatus == 0;
        EXPECT_EQ(again.strErr, again.nStatus == 0 ? "" : Message(42) + USAGE);
        EXPECT_EQ(zn.Sample(L"verify QM2"), 0u);
        EXPECT_EQ(TakeSnapshot(zn.oldData), zn.data); // another queue manager's
    }
    EXPECT_GT(nKilled, 0);
    std::printf("%d kills, after which the same command completed %d\n", nKilled, nCompleted);
}
