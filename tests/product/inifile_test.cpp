// The stanza engine: what is read from texts of every shape, and what a change puts where. That a change
// changes nothing else, and reads back, is what fuzz/inifile_fuzz.cpp shows.
#include "inifile.h"

#include <gtest/gtest.h>

namespace
{
using namespace std::string_literals;
using Text = std::optional<std::string>;

constexpr auto REFUSED = std::nullopt;

TEST(IniFile, ReadsTextsOfEveryShape)
{
    const std::pair<std::string, std::optional<std::string_view>> cases[] = {
        // LogPath of the first Log
        {"Log:\nOther:\nLogPath=x\n", REFUSED},
        {"Log:\nA=1\nLog:\nLogPath=x\n", REFUSED},
        {"log:\nLogPath=x\nLog:\nlogpath=y\n", REFUSED},
        {"\xEF\xBB\xBFLog:\r\n   LogPath=C:\\l\\\r\n", "C:\\l\\"},
        {"\t Log : \n LogPath \t=  a b  ", "a b"},
        {"#Log:\n;Log:\nLog:\n #LogPath=x\n ;LogPath=y\nLogPath=z", "z"},
        {"Log:\nLogPath=x\nLogPath=y\n", "x"},
        {"Log:\nLogPath=a\0b\n"s, std::string_view("a\0b", 3)},
        {"A:\r\nB=1\nLog:\nC=2\r\nLogPath=x\r\r\n", "x"}};
    for (const auto& [strText, strExpected] : cases)
        EXPECT_EQ(IniFile(strText).Read({"Log"}, "LogPath"), strExpected) << strText;
}

TEST(IniFile, ChangesAndAddsWhereAReaderWouldLook)
{
    const std::string strQm2 = "QueueManager:\nName=QM2\n",
                      strQm1 = "# top\r\n\r\nQueueManager:\r\n\tName=QM1\r\n\tPrefix=C:\\1\r\n";
    const std::tuple<std::string, std::string, Text> cases[] = {
        // text, prefix of QM2; changed text
        {strQm1 + "QueueManager:\n  Prefix = C:\\2 \n  Name=QM2\n\nX:\n",
         "D:", strQm1 + "QueueManager:\n  Prefix = D: \n  Name=QM2\n\nX:\n"},
        {strQm2 + "Prefix=  \nA=b\n", "D:", strQm2 + "Prefix=D:  \nA=b\n"},
        {"QueueManager:\r\n  Name=QM2\r\n\r\n# next\r\nLog:\r\n",
         "D:", "QueueManager:\r\n  Name=QM2\r\n  Prefix=D:\r\n\r\n# next\r\nLog:\r\n"},
        {"QueueManager:\n Name=QM2", "D:", "QueueManager:\n Name=QM2\n Prefix=D:"},
        {strQm2, "a\nb", REFUSED}};
    for (const auto& [strText, strValue, strExpected] : cases)
        EXPECT_EQ(IniFile(strText).Write({"QueueManager", "Name", "QM2"}, "Prefix", strValue), strExpected)
            << strText;
    EXPECT_EQ(IniFile("X:\nY=1").AddStanza("Log", {{"A", "1"}, {"B", ""}}), "X:\nY=1\nLog:\n   A=1\n   B=\n");
    EXPECT_EQ(IniFile("").AddStanza("Log", {{"A", "1\nOther:"}}), REFUSED);
}
} // namespace
