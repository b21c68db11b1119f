// The product's programs as whole runs: words handed over, a queue manager's life; the utility library.
#include <windows.h>
#include <shellapi.h>

#include <gtest/gtest.h>

#include <algorithm>

#include "hook.h"
#include "installation.h"
#include "owner.h"
#include "sandbox.h"
#include "returncodes.h"
#include "text.h"
#include "tovxcs2.h"
#include "tovxzu.h"

namespace
{
using namespace std::string_literals;

int32_t Execute(const std::string& strProgram, const std::vector<std::string>& words, int32_t& nResult)
{
    std::string strBlock = strProgram + '\0';
    for (const auto& strWord : words)
        strBlock += strWord + '\0';
    return xcsExecProgramHandle(31, strProgram.c_str(), 1, strBlock.c_str(), nullptr, 2, 34, nullptr, nullptr,
                                nullptr, &nResult, nullptr);
}

TEST(Program, HandsEveryWordOverAsItIs)
{
    const std::vector<std::string> sent = {"a b", "a\"b",   "\"",      "\\",      "\\\\",
                                           "a\\", "a b\\",  "a\\\"b",  "a\\\\\"", "\t",
                                           "*",   "%PATH%", "&|<>^\'", "\xE4",    "-w"};
    std::vector<std::string> arrived;
    const auto hook = Hook(CreateProcessW, [&](auto, wchar_t* pszCommandLine, auto...) {
        int nWords = 0;
        const LocalBlock words(CommandLineToArgvW(pszCommandLine, &nWords));
        for (int n = 1; n < nWords; ++n)
            arrived.push_back(Narrow(static_cast<wchar_t**>(words.Get())[n]).value_or("?"));
        return FALSE;
    });
    int32_t nResult = 0;
    EXPECT_EQ(Execute("C:\\a.exe", sent, nResult), XCS_RC_SYSTEM);
    EXPECT_EQ(arrived, sent);
}

TEST(Program, RunsOnlyWhatIsNamedInFull)
{
    const Sandbox sandbox;
    sandbox.Write("a.bat", "exit 0");
    sandbox.Write("b.exe", "no program");
    const std::string strEndZnm = (ProgramFolder() / "endznm.exe").string();
    int32_t nResult = 77;
    for (const std::string& strProgram :
         {"cmd.exe"s, "\\windows\\system32\\cmd.exe"s, "C:cmd.exe"s, ""s, sandbox.Path("a.bat"),
          sandbox.Path("b.exe"), sandbox.Path("none.exe"), sandbox.Path("")})
        EXPECT_NE(Execute(strProgram, {"-w"}, nResult), XCS_RC_OK) << strProgram;
    EXPECT_NE(Execute(strEndZnm, {std::string(40'000, 'x')}, nResult), XCS_RC_OK);
    EXPECT_EQ(nResult, 77);
    EXPECT_EQ(Execute(strEndZnm, {"-w", "QM1", "a"}, nResult), XCS_RC_OK);
    EXPECT_EQ(nResult, 1);
}

class SampleQueueManager : public testing::Test
{
  protected:
    SampleQueueManager()
    {
        EXPECT_EQ(SampleQm("create QM.1 /dd " + sandbox.Path("data\\") + " /ld " + sandbox.Path("log\\") +
                           " /files 60"),
                  0);
    }
    ~SampleQueueManager() override { EndZnm("-i QM.1"); }

    int Run(const char* pszProgram, const std::string& strWords)
    {
        return RunProgram(ProgramFolder() / pszProgram, fs::path(strWords).wstring(), sandbox.root).nStatus;
    }
    int SampleQm(const std::string& strWords) { return Run("sampleqm.exe", strWords); }
    int EndZnm(const std::string& strWords) { return Run("endznm.exe", strWords); }
    bool IsActive() { return xcsIsSubpoolActive("QM.1", "QM!1", nullptr, 2, strIdentity.c_str()) == 0; }

    // Test programs that run at the same time have queue managers of their own.
    const std::string strIdentity = "Id" + std::to_string(GetCurrentProcessId());
    Sandbox sandbox{"Installation:\r\n   Name=One\r\n   Path=C:\\inst\r\n   Identity=" + strIdentity +
                    "\r\n"};
    const std::string strActivity = "data/qmgrs/QM!1/activity.rec";
};

TEST_F(SampleQueueManager, LivesAndProgramsRefuseWhatTheyCannotDo)
{
    const std::string strName48(48, 'N'), strPlaces = " /files 0 /dd " + sandbox.Path("x") + " /ld ";
    EXPECT_EQ(SampleQm("create " + strName48 + strPlaces + sandbox.Path("x")), 0);
    EXPECT_EQ(SampleQm("create " + strName48 + "N" + strPlaces + sandbox.Path("y")), 1);
    EXPECT_EQ(SampleQm("create QM2" + strPlaces + "log"), 1);
    EXPECT_EQ(SampleQm("create QM.1" + strPlaces + sandbox.Path("y")), 2);
    EXPECT_TRUE(sandbox.Read("data/qmgrs/QM!1/qm.ini").ends_with("=" + sandbox.Path("log\\QM!1\\") + "\r\n"));
    EXPECT_EQ(EndZnm("QM.1"), 3);
    EXPECT_EQ(SampleQm("start QM.1"), 0);
    EXPECT_TRUE(IsActive());
    for (const auto& strFile :
         {strActivity, "log/QM!1/journal.rec"s}) // the first one straight after the start
        EXPECT_GE(std::ranges::count(sandbox.Read(strFile), '\n'), 2);
    EXPECT_EQ(SampleQm("start QM.1"), 4);
    EXPECT_EQ(EndZnm("-x QM.1"), 1);
    EXPECT_EQ(EndZnm("qm.1"), 2);
    EXPECT_EQ(EndZnm("-w QM.1"), 0);
    EXPECT_FALSE(IsActive());
    fs::rename(sandbox.root / "log", sandbox.root / "new log");
    EXPECT_EQ(SampleQm("start QM.1"), 3); // its log files are gone
    fs::rename(sandbox.root / "data", sandbox.root / "new data");
    EXPECT_EQ(SampleQm("verify QM.1"), 2); // its qm.ini is gone
    fs::remove(sandbox.root / "zns.ini");
    EXPECT_EQ(EndZnm("QM.1"), 6);
}

TEST_F(SampleQueueManager, RefusesToEndWhenToldTo)
{
    RefusingQueueManager refusing(L"QM.1");
    ASSERT_TRUE(refusing.fRuns);
    for (const char* pszOption : {"-w ", "-i ", "-p ", "-rp ", "-ri ", ""})
        EXPECT_EQ(EndZnm(pszOption + "QM.1"s), 4) << pszOption;
    refusing.Kill();
    EXPECT_FALSE(IsActive());
    const std::string strWhole = sandbox.Read(strActivity);
    sandbox.Write(strActivity, strWhole + "00000009 half a rec"); // cut off by the crash
    EXPECT_EQ(SampleQm("start QM.1"), 0);
    EXPECT_EQ(EndZnm("QM.1"), 0);
    EXPECT_TRUE(sandbox.Read(strActivity).starts_with(strWhole));
}

TEST_F(SampleQueueManager, DoesNotStartWithDamagedFiles)
{
    const std::string strFile = "log/QM!1/file00001.rec", strRead = sandbox.Read(strFile);
    std::string strFlipped = strRead;
    strFlipped[strFlipped.find("message")] ^= 1;
    for (const auto& strDamaged : {strFlipped, strRead.substr(0, strRead.rfind('\n', strRead.size() - 2) + 1),
                                   strRead.substr(0, strRead.size() - 1),
                                   strRead.substr(strRead.find('\n') + 1), strRead + "x", ""s, strRead})
    {
        sandbox.Write(strFile, strDamaged);
        EXPECT_EQ(SampleQm("verify QM.1"), strDamaged == strRead ? 0 : 3) << strDamaged;
    }
    sandbox.Write("data/qmgrs/QM!1/manifest.rec", "");
    EXPECT_EQ(SampleQm("start QM.1"), 3);
}

TEST(Utilities, NoFailureMapsToZero)
{
    for (auto [nCode, nMapped] : {std::pair{0, 0}, {1, 1}, {0x40806178, 0x78}, {0x100, 255}, {-1, 255}})
    {
        zutMapRCTo8bit(&nCode);
        EXPECT_EQ(nCode, nMapped);
    }
}
} // namespace
