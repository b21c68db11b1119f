#include <gtest/gtest.h>

#include "hook.h"
#include "tovmutln.h"

namespace
{
// What a call writes to both streams, as "out|err".
template <class Call>
std::string Written(Call call)
{
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    call();
    const std::string strOut = testing::internal::GetCapturedStdout();
    return strOut + "|" + testing::internal::GetCapturedStderr();
}
} // namespace

TEST(Console, MessagesGoWholeToTheStreamOfTheirType)
{
    SetThreadUILanguage(0x0409); // English
    const auto convert = Hook(WideCharToMultiByte, [&](UINT nCodePage, auto... args) {
        return nCodePage == CP_OEMCP ? WideCharToMultiByte(nCodePage, args...) : 0; // the console's code page
    });
    const std::string strUsage = "Usage: tarvel /m queuemanager /dd absolutedatapath /ld absolutelogpath\n";
    const std::tuple<int, unsigned, std::string> messages[] = {
        {2, 20, "|" + strUsage},
        {1, 20, strUsage + "|"},
        {2, 25, "|\n"},
        {2, 31 + 65536 * 16, "|The Vantor ZN Service is currently inactive, please restart the service.\n"},
        {2, 48, "|\n"}};
    for (const auto& [nType, nID, strExpected] : messages)
        EXPECT_EQ(Written([n = nType, nMessage = nID] { CZNMUtil::ZNMessageConsole(n, nMessage); }),
                  strExpected);
    for (const std::string& str : {std::string(), std::string("100%s%n"), std::string(5000, 'x')})
        EXPECT_EQ(
            Written([&] { CZNMUtil::ZNMessageConsole(2, std::wstring(str.begin(), str.end()).c_str()); }),
            "|" + str.substr(0, 2048) + "\n");
    const std::string strAddress = Written([] { CZNMUtil::ZNMessageConsole(3, 20u); });
    EXPECT_EQ(strAddress.find_first_not_of("0123456789ABCDEF", 1), 17u) << strAddress;
}
