// The stanza engine: what is read from texts of every shape, and that a change changes nothing else.
#include "inifile.h"

#include <gtest/gtest.h>

namespace {
using namespace std::string_literals;
using namespace std::string_view_literals;
using Text = std::optional<std::string>;

constexpr IniSelector QM2 = {"QueueManager", "Name", "QM2"};

Text Read(std::string_view text, const IniSelector& selector, std::string_view strAttribute) {
    const IniFile ini{std::string(text)};
    const auto strValue = ini.Read(selector, strAttribute);
    return strValue ? Text(std::string(*strValue)) : std::nullopt;
}

Text Write(std::string_view text, const IniSelector& selector, std::string_view strAttribute, std::string_view strValue) {
    return IniFile(std::string(text)).Write(selector, strAttribute, strValue);
}

TEST(IniFile, ReadsTextsOfEveryShape) {
    const struct {
        const char* pszCase;
        std::string_view text;
        Text strExpected; // LogPath of the first Log
    } cases[] = {
        {"empty", "", std::nullopt},
        {"only a byte-order mark", "\xEF\xBB\xBF", std::nullopt},
        {"plain", "Log:\n   LogPath=C:\\l\\\n", "C:\\l\\"},
        {"byte-order mark and CRLF", "\xEF\xBB\xBFLog:\r\n   LogPath=C:\\l\r\n", "C:\\l"},
        {"no last line end, blanks", "\t Log : \n LogPath \t=  a b  ", "a b"},
        {"cut off in the name", "Log:\n   LogPa", std::nullopt},
        {"heading alone", "Log:", std::nullopt},
        {"comments", "#Log:\n;Log:\nLog:\n #LogPath=x\n ;LogPath=y\nLogPath=z", "z"},
        {"attribute before any stanza", "LogPath=x\nLog:\n", std::nullopt},
        {"in another stanza", "Log:\nOther:\nLogPath=x\n", std::nullopt},
        {"first stanza counts", "Log:\nA=1\nLog:\nLogPath=x\n", std::nullopt},
        {"first attribute counts", "Log:\nLogPath=x\nLogPath=y\n", "x"},
        {"case differs", "log:\nLogPath=x\nLog:\nlogpath=y\n", std::nullopt},
        {"value with sign and colon", "Log:\nLogPath=a=b:\n", "a=b:"},
        {"empty value", "Log:\nLogPath=\n", ""},
        {"no name", "Log:\n=x\n:\nLogPath=y\n", "y"},
        {"zero bytes", "Log:\nLogPath=a\0b\n"sv, "a\0b"s},
        {"mixed line ends", "A:\r\nB=1\nLog:\nC=2\r\nLogPath=x\r\r\n", "x"},
    };
    for (const auto& c : cases) EXPECT_EQ(Read(c.text, {"Log"}, "LogPath"), c.strExpected) << c.pszCase;
}

TEST(IniFile, ChangesOneValueAndNothingElse) {
    const struct {
        const char* pszCase;
        std::string_view text, strValue;
        Text strExpected; // Prefix of QM2; nothing: refused
    } cases[] = {
        {"among others",
            "# top\r\n\r\nQueueManager:\r\n\tName=QM1\r\n\tPrefix=C:\\1\r\nQueueManager:\n  Prefix = C:\\2 \n  "
            "Name=QM2\n\nX:\n",
            "D:",
            "# top\r\n\r\nQueueManager:\r\n\tName=QM1\r\n\tPrefix=C:\\1\r\nQueueManager:\n  Prefix = D: \n  "
            "Name=QM2\n\nX:\n"},
        {"byte-order mark, no last line end", "\xEF\xBB\xBFQueueManager:\r\nName=QM2\r\nPrefix=C:", "D:\\d",
            "\xEF\xBB\xBFQueueManager:\r\nName=QM2\r\nPrefix=D:\\d"},
        {"value was empty", "QueueManager:\nName=QM2\nPrefix=  \nA=b\n", "D:", "QueueManager:\nName=QM2\nPrefix=D:  \nA=b\n"},
        {"value becomes empty", "QueueManager:\nName=QM2\nPrefix=x\n", "", "QueueManager:\nName=QM2\nPrefix=\n"},
        {"added before the next stanza's comment", "QueueManager:\r\n  Name=QM2\r\n\r\n# next\r\nLog:\r\n",
            "D:", "QueueManager:\r\n  Name=QM2\r\n  Prefix=D:\r\n\r\n# next\r\nLog:\r\n"},
        {"added to an open line", "QueueManager:\n Name=QM2", "D:", "QueueManager:\n Name=QM2\n Prefix=D:"},
        {"only the first of two stanzas", "QueueManager:\nName=QM2\nPrefix=1\nQueueManager:\nName=QM2\nPrefix=2\n", "3",
            "QueueManager:\nName=QM2\nPrefix=3\nQueueManager:\nName=QM2\nPrefix=2\n"},
        {"zero bytes elsewhere", "\0\nQueueManager:\nName=QM2\nPrefix=1\n\0"sv, "2", "\0\nQueueManager:\nName=QM2\nPrefix=2\n\0"s},
        {"no such stanza", "QueueManager:\nName=QM1\nPrefix=1\n", "2", std::nullopt},
        {"case of the name", "QueueManager:\nName=qm2\nPrefix=1\n", "2", std::nullopt},
        {"line feed", "QueueManager:\nName=QM2\n", "a\nb", std::nullopt},
        {"carriage return", "QueueManager:\nName=QM2\n", "a\rb", std::nullopt},
        {"zero byte", "QueueManager:\nName=QM2\n", "a\0b"sv, std::nullopt},
        {"blank in front", "QueueManager:\nName=QM2\nPrefix=1\n", " a", std::nullopt},
        {"blank behind", "QueueManager:\nName=QM2\nPrefix=1\n", "a\t", std::nullopt},
    };
    for (const auto& c : cases) EXPECT_EQ(Write(c.text, QM2, "Prefix", c.strValue), c.strExpected) << c.pszCase;
}

TEST(IniFile, RefusesAttributeNamesThatWouldReadDifferently) {
    for (const char* pszName : {"", "a=b", "#a", ";a", " a", "a\nLog:\nb"})
        EXPECT_EQ(Write("Log:\n", {"Log"}, pszName, "x"), std::nullopt) << pszName;
    EXPECT_EQ(Write("Log:\n", {"Log"}, "a", "x"), "Log:\n   a=x\n");
}

// However a text is cut, a change either is refused or reads back, and all the rest is there.
TEST(IniFile, SurvivesTruncationAtEveryByte) {
    const std::string strText = "\xEF\xBB\xBF# c\r\nQueueManager:\r\n  Name=QM2\r\n  Prefix=C:\\a\r\nLog:\n A=b";
    for (size_t n = 0; n <= strText.size(); ++n) {
        const std::string strCut = strText.substr(0, n);
        const Text strChanged = Write(strCut, QM2, "Prefix", "E:\\new");
        ASSERT_EQ(strChanged.has_value(), Read(strCut, QM2, "Name").has_value()) << n;
        if (strChanged) {
            EXPECT_EQ(Read(*strChanged, QM2, "Prefix"), "E:\\new") << n;
            EXPECT_EQ(Read(*strChanged, {"Log"}, "A"), Read(strCut, {"Log"}, "A")) << n;
        }
    }
}

TEST(IniFile, ServesLargeFilesAndLongValues) {
    constexpr int STANZAS = 100'000; // a quadratic engine would not come back
    std::string strText;
    for (int n = 0; n < STANZAS; ++n) strText += "QueueManager:\n   Name=M" + std::to_string(n) + "\n   Prefix=C:\\p\n";
    const std::string strLong(1'000'000, 'v');
    const IniSelector last = {"QueueManager", "Name", "M99999"};
    const Text strChanged = Write(strText, last, "Prefix", strLong);
    ASSERT_TRUE(strChanged);
    EXPECT_EQ(Read(*strChanged, last, "Prefix"), strLong);
    EXPECT_EQ(strChanged->size(), strText.size() - 4 + strLong.size());
}

TEST(IniFile, AddsStanzas) {
    const auto add = [](std::string_view text, std::string_view strName, const IniFile::Attributes& attributes) {
        return IniFile(std::string(text)).AddStanza(strName, attributes);
    };
    EXPECT_EQ(add("", "Log", {{"A", "1"}}), "Log:\r\n   A=1\r\n");
    EXPECT_EQ(add("X:\nY=1", "Log", {{"A", "1"}, {"B", ""}}), "X:\nY=1\nLog:\n   A=1\n   B=\n");
    EXPECT_EQ(add("\xEF\xBB\xBF", "Log", {}), "\xEF\xBB\xBFLog:\r\n");
    EXPECT_EQ(add("", "Lo=g", {}), std::nullopt);
    EXPECT_EQ(add("", "Log", {{"A", "1\nOther:"}}), std::nullopt);
    EXPECT_EQ(add("", "Log", {{"A", "1"}, {"A", "2"}}), std::nullopt);
}
} // namespace
