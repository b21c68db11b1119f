// Finds stanzas and attributes in a text and makes changed texts from it. Must not call the system, and must
// not change a byte that it was not asked to change.
#include "inifile.h"

#include <algorithm>

namespace
{
constexpr std::string_view BYTE_ORDER_MARK = "\xEF\xBB\xBF";
constexpr std::string_view BLANKS = " \t\r";

std::string_view Trim(std::string_view text)
{
    const size_t nFirst = text.find_first_not_of(BLANKS);
    if (nFirst == std::string_view::npos)
        return text.substr(text.size());
    return text.substr(nFirst, text.find_last_not_of(BLANKS) - nFirst + 1);
}

struct Line
{
    std::string_view strName;  // heading or attribute name; empty for every other line
    std::string_view strValue; // of an attribute
    bool fHeading = false;
    size_t nNext = 0; // offset of the line after it
};

Line ScanLine(std::string_view text, size_t nOffset)
{
    const size_t nEnd = std::min(text.find('\n', nOffset), text.size());
    Line line;
    line.nNext = std::min(nEnd + 1, text.size());
    const std::string_view strLine = text.substr(nOffset, nEnd - nOffset);
    const std::string_view strTrimmed = Trim(strLine);
    if (strTrimmed.empty() || strTrimmed.front() == '#' || strTrimmed.front() == ';')
        return line;
    const size_t nEquals = strTrimmed.find('=');
    if (nEquals != std::string_view::npos)
    {
        line.strName = Trim(strTrimmed.substr(0, nEquals));
        line.strValue = Trim(strTrimmed.substr(nEquals + 1));
        if (line.strValue.empty()) // a value written here goes right behind the sign
            line.strValue = strTrimmed.substr(nEquals + 1, 0);
    }
    else if (strTrimmed.back() == ':')
    {
        line.strName = Trim(strTrimmed.substr(0, strTrimmed.size() - 1));
        line.fHeading = !line.strName.empty();
    }
    return line;
}
} // namespace

IniFile::IniFile(std::string strText)
    : m_strText(std::move(strText)),
      m_nStart(m_strText.starts_with(BYTE_ORDER_MARK) ? BYTE_ORDER_MARK.size() : 0)
{
    for (size_t nOffset = m_nStart; nOffset < m_strText.size();)
    {
        const Line line = ScanLine(m_strText, nOffset);
        if (line.fHeading)
        {
            if (!m_stanzas.empty())
                m_stanzas.back().nEnd = nOffset;
            m_stanzas.push_back({line.strName, line.nNext, m_strText.size()});
        }
        nOffset = line.nNext;
    }
}

const IniFile::Stanza* IniFile::Find(const IniSelector& selector) const
{
    for (const Stanza& stanza : m_stanzas)
        if (stanza.strName == selector.strStanza &&
            (selector.strKeyName.empty() || Value(stanza, selector.strKeyName) == selector.strKeyValue))
            return &stanza;
    return nullptr;
}

std::optional<std::string_view> IniFile::Value(const Stanza& stanza, std::string_view strAttribute) const
{
    for (size_t nOffset = stanza.nBegin; nOffset < stanza.nEnd;)
    {
        const Line line = ScanLine(m_strText, nOffset);
        if (!line.strName.empty() && line.strName == strAttribute)
            return IsUsable(line.strValue) ? std::optional(line.strValue) : std::nullopt;
        nOffset = line.nNext;
    }
    return std::nullopt;
}

bool IniFile::IsUsable(std::string_view strValue) const
{
    for (const char ch : strValue)
        if (ch == '\0' || (m_nStart != 0 && (ch & 0x80) != 0))
            return false;
    return true;
}

std::optional<std::string_view> IniFile::Read(const IniSelector& selector,
                                              std::string_view strAttribute) const
{
    const Stanza* const pStanza = Find(selector);
    return pStanza != nullptr ? Value(*pStanza, strAttribute) : std::nullopt;
}

std::optional<std::string> IniFile::Write(const IniSelector& selector, std::string_view strAttribute,
                                          std::string_view strValue) const
{
    const auto strOld = Read(selector, strAttribute);
    if (!strOld)
        return std::nullopt;
    std::string strResult = m_strText;
    strResult.replace(static_cast<size_t>(strOld->data() - m_strText.data()), strOld->size(), strValue);
    // A value that the syntax of the lines takes apart must not reach the file.
    if (IniFile(strResult).Read(selector, strAttribute) != strValue)
        return std::nullopt;
    return strResult;
}
