// The product's programs as whole runs: words handed over, damage found; the utility library.
#include <windows.h>
#include <shellapi.h>

#include <gtest/gtest.h>

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
    const std::vector<std::string> sent = {"a b", "a\"b", "\"", "\\", "a b\\", "a\\\\\"", "%PATH%", "\xE4"};
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
    const std::string strEndZnm = (ProgramFolder() / "endznm.exe").string();
    int32_t nResult = 77;
    for (const std::string& strProgram :
         {"cmd.exe"s, "\\windows\\system32\\cmd.exe"s, "C:cmd.exe"s, ""s, sandbox.Path("a.bat")})
        EXPECT_NE(Execute(strProgram, {"-w"}, nResult), XCS_RC_OK) << strProgram;
    EXPECT_NE(Execute(strEndZnm, {std::string(40'000, 'x')}, nResult), XCS_RC_OK);
    EXPECT_EQ(nResult, 77);
    EXPECT_EQ(Execute(strEndZnm, {"-w", "QM1", "a"}, nResult), XCS_RC_OK);
    EXPECT_EQ(nResult, 1);
}

TEST(SampleQueueManager, TellsOfDamagedFiles)
{
    const Sandbox sandbox("Installation:\n Name=One\n Path=C:\\inst\n Identity=One\n");
    const auto run = [&](const std::wstring& strWords) {
        return RunProgram(ProgramFolder() / "sampleqm.exe", strWords, sandbox.root).nStatus;
    };
    const std::wstring strRoot = sandbox.root.wstring();
    EXPECT_EQ(run(L"create QM.1 /files 60 /dd " + strRoot + L"\\data /ld " + strRoot + L"\\log"), 0u);
    const std::string strFile = "log/QM!1/file00001.rec", strWhole = sandbox.Read(strFile);
    std::string strFlipped = strWhole;
    strFlipped[strFlipped.find("message")] ^= 1;
    for (const std::string& strContent : {strFlipped, ""s, strWhole})
    {
        sandbox.Write(strFile, strContent);
        EXPECT_EQ(run(L"verify QM.1"), strContent == strWhole ? 0u : 3u) << strContent;
    }
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
