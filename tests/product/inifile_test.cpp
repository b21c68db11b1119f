// The stanza engine: what is read. That a change changes nothing else is what fuzz/inifile_fuzz.cpp shows.
#include "inifile.h"

#include <gtest/gtest.h>

TEST(IniFile, ReadsTextsOfEveryShape)
{
    const std::pair<std::string, std::optional<std::string_view>> cases[] = {
        {"Log:\nA=1\nLog:\nLogPath=x\n", std::nullopt},
        {"log:\nLogPath=x\nLog:\nlogpath=y\n", std::nullopt},
        {"\xEF\xBB\xBFLog:\r\n   LogPath=C:\\l\\\r\n", "C:\\l\\"},
        {"\t Log : \n LogPath \t=  a b  ", "a b"},
        {"#Log:\n;Log:\nLog:\n #LogPath=x\n ;LogPath=y\nLogPath=z", "z"},
        {"\xEF\xBB\xBFLog:\nLogPath=\xC3\xA4", std::nullopt}, // not the code page's characters
        {"A:\r\nB=1\nLog:\nC=2\r\nLogPath=x\r\r\n", "x"}};
    for (const auto& [strText, strExpected] : cases)
        EXPECT_EQ(IniFile(strText).Read({"Log"}, "LogPath"), strExpected) << strText;
}
