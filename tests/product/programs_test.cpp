// The product's programs as whole runs: words handed over.
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
        const LocalBlock words(static_cast<void*>(CommandLineToArgvW(pszCommandLine, &nWords)));
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
} // namespace
