// The stanza engine: reads and rewrites the product's configuration files as text.
//
// A line "Name:" opens a stanza, "Attribute=Value" lines follow, indented or not; a line that begins with #
// or ; is a comment, and so, in effect, is every other line. Lines end in LF or CRLF, the last one perhaps in
// neither; blanks around names and values do not belong to them; a UTF-8 byte-order mark at the front is
// passed over. Names are compared byte by byte, and of several that match the first one counts. Plain C++, no
// system calls: every operation takes time linear in the text's size.
//
// Texts are in an ANSI code page, or in UTF-8 behind a byte-order mark. There only values of plain ASCII can
// be used, because their readers know only the code page; a value with a zero byte can be used nowhere.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

// Selects the first stanza of a name or, if strKeyName is not empty, the first one of that name whose
// attribute strKeyName is strKeyValue.
struct IniSelector
{
    std::string_view strStanza;
    std::string_view strKeyName = {};
    std::string_view strKeyValue = {};
};

class IniFile
{
  public:
    // A stanza of the text: its name and the lines that follow the heading.
    struct Stanza
    {
        std::string_view strName;
        size_t nBegin; // offset of the line after the heading
        size_t nEnd;   // offset of the next heading, or the text's size
    };

    explicit IniFile(std::string strText);
    IniFile(const IniFile&) = delete; // stanza names are views of the text
    IniFile& operator=(const IniFile&) = delete;

    const std::string& Text() const { return m_strText; }
    const std::vector<Stanza>& Stanzas() const { return m_stanzas; }

    // The selected stanza, or null.
    const Stanza* Find(const IniSelector& selector) const;

    // The attribute's value, without the blanks around it; valid as long as this object. Nothing if there is
    // no such attribute, or its value cannot be used.
    std::optional<std::string_view> Value(const Stanza& stanza, std::string_view strAttribute) const;
    std::optional<std::string_view> Read(const IniSelector& selector, std::string_view strAttribute) const;

    // The text with the attribute's value replaced; every other byte stays. Nothing if there is no such
    // value, or if reading would not give the same value back.
    std::optional<std::string> Write(const IniSelector& selector, std::string_view strAttribute,
                                     std::string_view strValue) const;

  private:
    bool IsUsable(std::string_view strValue) const;

    std::string m_strText;
    size_t m_nStart; // behind the byte-order mark
    std::vector<Stanza> m_stanzas;
};
