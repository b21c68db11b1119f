#include "tracecapture.h"
#include "tovmutln.h"

using testing::ElementsAre;

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
        {2, 0, L"\u00e4\u20ac", "|\x84?\n"}, // the console's code page, not the ANSI one
        {2, 0, strLong.c_str(), "|" + std::string(2048, 'x') + "\n"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(Written([&] {
                      c.pszText != nullptr ? CZNMUtil::ZNMessageConsole(c.nType, c.pszText)
                                           : CZNMUtil::ZNMessageConsole(c.nType, c.nID);
                  }),
                  c.strExpected);
    const std::string strAddress = Written([] { CZNMUtil::ZNMessageConsole(3, 20u); });
    EXPECT_EQ(strAddress.find_first_not_of("0123456789ABCDEF", 1), 17u) << strAddress;
}

TEST(Console, TracesBothOverloadsNested)
{
    Capture capture;
    Written([] { CZNMUtil::ZNMessageConsole(1, 44u); });
    EXPECT_THAT(capture.lines,
                ElementsAre("> 80", "# 80 CZNMUtil::ZNMessageConsole() (eMsgType = 1, nMessageID = 44)",
                            "> 82",
                            "# 82 CZNMUtil::ZNMessageConsole() (eMsgType = 1, mbcsMsg = Fatal Error: MFC "
                            "initialization failed.)",
                            "< 82 0", "< 80 0"));
}

TEST(Console, DamagedStringBlockIsAnEmptyMessage)
{
    // Blocks that end within, or announce more than they hold, before entry 4 (identifier 20).
    const std::wstring blocks[] = {
        L"", {L"\0\0\0", 3}, {L"\0\0\0\0\xFFFF"}, {L"\xFFFF"}, {L"\0\0\0\0\2x", 6}};
    for (const std::wstring& block : blocks)
    {
        ImportHook<decltype(LockResource)> lock("LockResource",
                                                [&](HGLOBAL) { return const_cast<wchar_t*>(block.data()); });
        ImportHook<decltype(SizeofResource)> size("SizeofResource", [&](HMODULE, HRSRC) {
            return static_cast<DWORD>(block.size() * sizeof(wchar_t));
        });
        EXPECT_EQ(Written([] { CZNMUtil::ZNMessageConsole(2, 20u); }), "|\n") << &block - blocks;
    }
}
