// Programs that the library runs: the words that they are given.
#include <windows.h>
#include <shellapi.h>

#include <gtest/gtest.h>

#include "hook.h"
#include "owner.h"
#include "returncodes.h"
#include "text.h"
#include "tovxcs2.h"

namespace
{
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
    const std::string strProgram = "C:\\a.exe";
    std::string strBlock = strProgram + '\0';
    for (const auto& strWord : sent)
        strBlock += strWord + '\0';
    int32_t nResult = 0;
    EXPECT_EQ(xcsExecProgramHandle(31, strProgram.c_str(), 1, strBlock.c_str(), nullptr, 2, 34, nullptr,
                                   nullptr, nullptr, &nResult, nullptr),
              XCS_RC_SYSTEM);
    EXPECT_EQ(arrived, sent);
}

} // namespace
