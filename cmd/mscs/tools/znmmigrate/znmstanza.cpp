// Takes the text apart line by line. Must not call the system.
#include "znmstanza.h"

#include <algorithm>
#include <utility>

#include "tovmsrid.h"

ZNM_SOURCE_ID(ZNM_MIGRATE_TOOL("znmstanza"));

namespace
{
std::string_view Trim(std::string_view text)
{
    constexpr std::string_view BLANKS = " \t\r\n";
    const size_t nFirst = std::min(text.find_first_not_of(BLANKS), text.size());
    text.remove_prefix(nFirst);
    return text.substr(0, text.find_last_not_of(BLANKS) + 1);
}
} // namespace

std::vector<ZNStanzaLine> ZNReadStanzas(std::string_view text)
{
    constexpr std::string_view BYTE_ORDER_MARK = "\xEF\xBB\xBF";
    std::vector<ZNStanzaLine> lines;
    size_t nStanza = 0;
    std::string_view stanza;
    bool fFirst = true;
    while (!text.empty())
    {
        ZNStanzaLine line;
        line.text = text.substr(0, std::min(text.find('\n'), text.size() - 1) + 1);
        text.remove_prefix(line.text.size());
        const bool fMark = std::exchange(fFirst, false) && line.text.starts_with(BYTE_ORDER_MARK);
        const std::string_view content = Trim(line.text.substr(fMark ? BYTE_ORDER_MARK.size() : 0));
        const bool fComment = content.empty() || content.front() == '#' || content.front() == ';';
        const size_t nEquals = content.find('=');
        if (!fComment && nEquals != std::string_view::npos)
        {
            line.attribute = Trim(content.substr(0, nEquals));
            line.value = Trim(content.substr(nEquals + 1));
        }
        else if (!fComment && content.back() == ':' && content.size() > 1)
        {
            stanza = Trim(content.substr(0, content.size() - 1));
            ++nStanza;
        }
        line.stanza = stanza;
        line.nStanza = nStanza;
        lines.push_back(line);
    }
    return lines;
}

std::string_view ZNFindValue(std::string_view text, std::string_view stanza, std::string_view attribute)
{
    size_t nStanza = 0;
    for (const ZNStanzaLine& line : ZNReadStanzas(text))
    {
        if (nStanza == 0 && line.stanza == stanza)
            nStanza = line.nStanza;
        if (nStanza != 0 && line.nStanza == nStanza && line.attribute == attribute)
            return line.value;
    }
    return {};
}

std::string ZNWithoutAttribute(std::string_view text, std::string_view stanza, std::string_view attribute)
{
    std::string strRest;
    for (const ZNStanzaLine& line : ZNReadStanzas(text))
        if (line.stanza != stanza || line.attribute != attribute)
            strRest += line.text;
    return strRest;
}
