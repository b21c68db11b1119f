// Whole runs of the shipped program: exit status, both streams, both configuration files and all trees.
#include "refusal.h"

TEST(Runs, RunningQueueManagerIsStopped)
{
    Installation zn;
    fs::create_directories(zn.root / "inst\\bin64");
    for (const char* psz : {"endznm.exe", "tovxcs2.dll", "tovxzu.dll"})
        fs::copy_file(ProgramFolder() / psz, zn.root / "inst\\bin64" / psz);
    const auto sample = [&](const std::wstring& strWords) {
        return RunProgram(ProgramFolder() / "sampleqm.exe", strWords, zn.root).nStatus;
    };
    const auto end = [&] { return RunProgram(ProgramFolder() / "endznm.exe", L"-w QM2", zn.root).nStatus; };
    ASSERT_EQ(sample(L"create QM2 /files 20 /dd " + Quoted(zn.root / "d") + L" /ld " + Quoted(zn.root / "l")),
              0u);
    ASSERT_EQ(sample(L"start QM2"), 0u);
    const RunResult result = zn.Run(zn.MoveWords(L"QM2"));
    EXPECT_EQ(result.nStatus, 0u);
    EXPECT_EQ(result.strOut + result.strErr, "");
    EXPECT_FALSE(fs::exists(zn.root / "d\\qmgrs\\QM2"));
    EXPECT_EQ(sample(L"verify QM2"), 0u);
    EXPECT_EQ(end(), 3u); // not started again
}

// Whole drives are at stake where one of these is not refused.
TEST(Runs, PlacesThatCannotBeNamedAreRefused)
{
    const char* const pszNoCopy = "SHFileOperationW:1:a:7c:0";
    Installation prefixed;
    ExpectRefusal(prefixed, prefixed.Run(L"/m QM1 /dd C:\\a /ld \\\\?\\C:\\b", pszNoCopy), 37, UNCHANGED);
    const std::string strLongest = "D:\\" + std::string(128, 'l') + "\\" + std::string(129, 'm');
    Installation longest;
    WriteAll(longest.oldData / "qm.ini", "Log:\n   LogPath=" + strLongest);
    EXPECT_EQ(longest.Run(longest.MoveWords(), pszNoCopy).strErr, Message(38) + USAGE); // it is not there
    for (const std::string& strLogPath : std::vector<std::string>{
             strLongest + "x", "C:", "C:\\", "..", "", "C:\\.", "C:\\znm\\..", "C:\\\\\\\\", "\\\\?\\C:\\."})
    {
        SCOPED_TRACE(strLogPath);
        Installation zn;
        WriteAll(zn.oldData / "qm.ini", "Log:\n   LogPath=" + strLogPath);
        const Snapshot before = TakeSnapshot(zn.root);
        EXPECT_EQ(zn.Run(zn.MoveWords(), pszNoCopy).strErr, USAGE);
        EXPECT_EQ(TakeSnapshot(zn.root), before);
    }
}
