// The stanza engine: what is read from texts of every shape, and that a change changes nothing else.
#include "inifile.h"

#include <gtest/gtest.h>

namespace
{
using namespace std::string_literals;
using namespace std::string_view_literals;
using Text = std::optional<std::string>;

constexpr auto REFUSED = std::nullopt;
constexpr IniSelector QM2 = {"QueueManager", "Name", "QM2"};

Text Read(std::string_view text, const IniSelector& selector, std::string_view strAttribute)
{
    const IniFile ini{std::string(text)};
    const auto strValue = ini.Read(selector, strAttribute);
    return strValue ? Text(std::string(*strValue)) : std::nullopt;
}

Text Write(std::string_view text, std::string_view strValue)
{
    return IniFile(std::string(text)).Write(QM2, "Prefix", strValue);
}

TEST(IniFile, ReadsTextsOfEveryShape)
{
    const std::pair<std::string_view, Text> cases[] = {
        // LogPath of the first Log
        {"", REFUSED},
        {"\xEF\xBB\xBF", REFUSED},
        {"Log:", REFUSED},
        {"Log:\n   LogPa", REFUSED},
        {"LogPath=x\nLog:\n", REFUSED},
        {"Log:\nOther:\nLogPath=x\n", REFUSED},
        {"Log:\nA=1\nLog:\nLogPath=x\n", REFUSED},
        {"log:\nLogPath=x\nLog:\nlogpath=y\n", REFUSED},
        {"Log:\n   LogPath=C:\\l\\\n", "C:\\l\\"},
        {"\xEF\xBB\xBFLog:\r\n   LogPath=C:\\l\r\n", "C:\\l"},
        {"\t Log : \n LogPath \t=  a b  ", "a b"},
        {"#Log:\n;Log:\nLog:\n #LogPath=x\n ;LogPath=y\nLogPath=z", "z"},
        {"Log:\nLogPath=x\nLogPath=y\n", "x"},
        {"Log:\nLogPath=a=b:\n", "a=b:"},
        {"Log:\nLogPath=\n", ""},
        {"Log:\n=x\n:\nLogPath=y\n", "y"},
        {"Log:\nLogPath=a\0b\n"sv, "a\0b"s},
        {"A:\r\nB=1\nLog:\nC=2\r\nLogPath=x\r\r\n", "x"}};
    for (const auto& [text, strExpected] : cases)
        EXPECT_EQ(Read(text, {"Log"}, "LogPath"), strExpected) << text;
}

TEST(IniFile, ChangesOneValueAndNothingElse)
{
    const std::string strQm2 = "QueueManager:\nName=QM2\nPrefix=",
                      strOther = "# top\r\n\r\nQueueManager:\r\n\tName=QM1\r\n\tPrefix=C:\\1\r\n";
    const struct
    {
        std::string text;
        std::string_view strValue;
        Text strExpected; // Prefix of QM2
    } cases[] = {{strOther + "QueueManager:\n  Prefix = C:\\2 \n  Name=QM2\n\nX:\n",
                  "D:", strOther + "QueueManager:\n  Prefix = D: \n  Name=QM2\n\nX:\n"},
                 {"\xEF\xBB\xBFQueueManager:\r\nName=QM2\r\nPrefix=C:", "D:\\d",
                  "\xEF\xBB\xBFQueueManager:\r\nName=QM2\r\nPrefix=D:\\d"},
                 {strQm2 + "  \nA=b\n", "D:", strQm2 + "D:  \nA=b\n"},
                 {strQm2 + "x\n", "", strQm2 + "\n"},
                 {"QueueManager:\r\n  Name=QM2\r\n\r\n# next\r\nLog:\r\n",
                  "D:", "QueueManager:\r\n  Name=QM2\r\n  Prefix=D:\r\n\r\n# next\r\nLog:\r\n"},
                 {"QueueManager:\n Name=QM2", "D:", "QueueManager:\n Name=QM2\n Prefix=D:"},
                 {strQm2 + "1\n" + strQm2 + "2\n", "3", strQm2 + "3\n" + strQm2 + "2\n"},
                 {"\0\n"s + strQm2 + "1\n\0"s, "2", "\0\n"s + strQm2 + "2\n\0"s},
                 {strOther, "2", REFUSED},
                 {"QueueManager:\nName=qm2\nPrefix=1\n", "2", REFUSED},
                 {strQm2, "a\nb", REFUSED},
                 {strQm2, "a\rb", REFUSED},
                 {strQm2, "a\0b"sv, REFUSED},
                 {strQm2, " a", REFUSED},
                 {strQm2, "a\t", REFUSED}};
    for (const auto& c : cases)
        EXPECT_EQ(Write(c.text, c.strValue), c.strExpected) << c.text;
}

TEST(IniFile, AddsStanzasThatReadBack)
{
    const auto add = [](const char* psz, std::string_view strName, const IniFile::Attributes& all) {
        return IniFile(psz).AddStanza(strName, all);
    };
    EXPECT_EQ(add("X:\nY=1", "Log", {{"A", "1"}, {"B", ""}}), "X:\nY=1\nLog:\n   A=1\n   B=\n");
    EXPECT_EQ(add("\xEF\xBB\xBF", "Log", {}), "\xEF\xBB\xBFLog:\r\n");
    EXPECT_EQ(add("", "Lo=g", {}), REFUSED);
    EXPECT_EQ(add("", "Log", {{"A", "1\nOther:"}}), REFUSED);
    for (const char* psz : {"", "a=b", "#a", ";a", " a", "a\nLog:\nb"})
        EXPECT_EQ(add("", "Log", {{psz, "x"}}), REFUSED) << psz;
}
} // namespace
