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
    const std::wstring strLong(5000, L'x');
    const std::string strUsage = "Usage: tarvel /m queuemanager /dd absolutedatapath /ld absolutelogpath\n";
    const struct
    {
        int nType;
        unsigned nID;
        const wchar_t* pszText;
        std::string strExpected;
    } cases[] = {
        {2, 20, nullptr, "|" + strUsage},
        {1, 20, nullptr, strUsage + "|"},
        {2, 25, nullptr, "|\n"},
        {2, 31 + 65536 * 16, nullptr,
         "|The Vantor ZN Service is currently inactive, please restart the service.\n"},
        {2, 48, nullptr, "|\n"},
        {2, 0, L"", "|\n"},
        {2, 0, L"100%s%n", "|100%s%n\n"},
        {2, 0, strLong.c_str(), "|" + std::string(2048, 'x') + "\n"},
    };
    SetThreadUILanguage(0x0409); // English
    ImportHook<decltype(WideCharToMultiByte)> convert(
        "WideCharToMultiByte", [&](UINT nCodePage, auto... args) {
            EXPECT_EQ(nCodePage, UINT{CP_OEMCP}); // the console's, not the ANSI one
            return convert.Real(nCodePage, args...);
        });
    for (const auto& c : cases)
        EXPECT_EQ(Written([&] {
                      c.pszText != nullptr ? CZNMUtil::ZNMessageConsole(c.nType, c.pszText)
                                           : CZNMUtil::ZNMessageConsole(c.nType, c.nID);
                  }),
                  c.strExpected);
    const std::string strAddress = Written([] { CZNMUtil::ZNMessageConsole(3, 20u); });
    EXPECT_EQ(strAddress.find_first_not_of("0123456789ABCDEF", 1), 17u) << strAddress;
}
