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

bool CanStandInLine(std::string_view text)
{
    return text.find_first_of(std::string_view("\r\n\0", 3)) == std::string_view::npos;
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
            m_stanzas.push_back({line.strName, nOffset, line.nNext, m_strText.size()});
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
            return line.strValue;
        nOffset = line.nNext;
    }
    return std::nullopt;
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
    const Stanza* const pStanza = Find(selector);
    if (pStanza == nullptr || !CanStandInLine(strValue))
        return std::nullopt;
    std::string strResult = m_strText;
    if (const auto strOld = Value(*pStanza, strAttribute))
        strResult.replace(static_cast<size_t>(strOld->data() - m_strText.data()), strOld->size(), strValue);
    else
    {
        // Behind the last attribute and indented like it, so that blank lines and comments that lead to the
        // next stanza stay with that one.
        size_t nInsert = pStanza->nBegin;
        std::string_view strIndent = "   ";
        for (size_t nOffset = pStanza->nBegin; nOffset < pStanza->nEnd;)
        {
            const Line line = ScanLine(m_strText, nOffset);
            if (!line.strName.empty())
            {
                nInsert = line.nNext;
                const size_t nName = static_cast<size_t>(line.strName.data() - m_strText.data());
                strIndent = std::string_view(m_strText).substr(nOffset, nName - nOffset);
            }
            nOffset = line.nNext;
        }
        const std::string strLine = std::string(strIndent).append(strAttribute).append("=").append(strValue);
        const bool fLineOpen = m_strText[nInsert - 1] != '\n'; // only the text's last line can be
        strResult.insert(nInsert,
                         fLineOpen ? std::string(LineEnd()) + strLine : strLine + std::string(LineEnd()));
    }
    // A name or value that the line's syntax takes apart must not reach the file.
    if (IniFile(strResult).Read(selector, strAttribute) != strValue)
        return std::nullopt;
    return strResult;
}

std::optional<std::string> IniFile::AddStanza(std::string_view strName, const Attributes& attributes) const
{
    const std::string strEnd(LineEnd());
    std::string strResult = m_strText;
    if (strResult.size() > m_nStart && strResult.back() != '\n')
        strResult += strEnd;
    strResult.append(strName).append(":").append(strEnd);
    for (const auto& [strAttribute, strValue] : attributes)
    {
        if (!CanStandInLine(strValue))
            return std::nullopt;
        strResult.append("   ").append(strAttribute).append("=").append(strValue).append(strEnd);
    }
    const IniFile added(strResult);
    if (added.Stanzas().size() != m_stanzas.size() + 1 || added.Stanzas().back().strName != strName)
        return std::nullopt;
    for (const auto& [strAttribute, strValue] : attributes)
        if (added.Value(added.Stanzas().back(), strAttribute) != strValue)
            return std::nullopt;
    return strResult;
}

std::string_view IniFile::LineEnd() const
{
    const size_t nEnd = m_strText.find('\n');
    return nEnd != std::string::npos && (nEnd == 0 || m_strText[nEnd - 1] != '\r') ? "\n" : "\r\n";
}
