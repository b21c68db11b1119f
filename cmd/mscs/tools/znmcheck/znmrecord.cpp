// Writes records and reads them. A damaged one is refused as a whole: half a record would pass for a tree of
// which files are missing.
#include "znmrecord.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <vector>

#include "tovmsrid.h"
#include "tovxcs2.h"

ZNM_SOURCE_ID("cmd/mscs/tools/znmcheck/znmrecord");

namespace
{
constexpr char FIRST_LINE[] = "tarvelcheck record 1\r\n";
constexpr char SEAL[] = "sha256\t";
constexpr char LINE_END[] = "\r\n";

void AppendHex(std::string& strText, unsigned nValue, int nDigits)
{
    for (int n = (nDigits - 1) * 4; n >= 0; n -= 4)
        strText += "0123456789ABCDEF"[nValue >> n & 15];
}

bool ParseHex(std::string_view text, unsigned& nValue)
{
    const auto [pEnd, error] = std::from_chars(text.data(), text.data() + text.size(), nValue, 16);
    return error == std::errc() && pEnd == text.data() + text.size();
}

// Bytes of a configuration file: what is not ASCII is written as its byte, whatever the code page.
std::string EscapeBytes(const std::string& strBytes)
{
    std::string strText;
    for (const char ch : strBytes)
        if (const auto byte = static_cast<unsigned char>(ch); byte < ' ' || byte > '~' || byte == '%')
            AppendHex(strText += '%', byte, 2);
        else
            strText += ch;
    return strText;
}

std::string EscapeText(const std::wstring& strWide)
{
    std::string strText;
    for (size_t i = 0; i < strWide.size(); ++i)
    {
        const wchar_t ch = strWide[i];
        const bool fPair =
            IS_HIGH_SURROGATE(ch) && i + 1 < strWide.size() && IS_LOW_SURROGATE(strWide[i + 1]);
        if (ch < L' ' || ch == L'%')
            AppendHex(strText += '%', ch, 2);
        else if ((IS_HIGH_SURROGATE(ch) || IS_LOW_SURROGATE(ch)) && !fPair)
            AppendHex(strText += "%u", ch, 4);
        else
        {
            constexpr int LONGEST = 4;
            char achUtf8[LONGEST];
            const int nUnits = fPair ? 2 : 1;
            const int nBytes =
                WideCharToMultiByte(CP_UTF8, 0, &strWide[i], nUnits, achUtf8, LONGEST, nullptr, nullptr);
            strText.append(achUtf8, static_cast<size_t>(nBytes));
            i += fPair ? 1 : 0;
        }
    }
    return strText;
}

bool UnescapeBytes(std::string_view text, std::string& strBytes)
{
    for (size_t i = 0; i < text.size(); ++i)
    {
        unsigned nByte = static_cast<unsigned char>(text[i]);
        if (text[i] == '%' && (i + 2 >= text.size() || !ParseHex(text.substr(i + 1, 2), nByte)))
            return false;
        i += text[i] == '%' ? size_t{2} : 0;
        strBytes += static_cast<char>(nByte);
    }
    return true;
}

bool UnescapeText(std::string_view text, std::wstring& strWide)
{
    while (!text.empty())
    {
        unsigned nUnit = 0;
        const size_t nPlain = std::min(text.find('%'), text.size());
        if (nPlain > 0)
        {
            std::wstring strPlain(nPlain, L'\0');
            const int nUnits =
                MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, text.data(), static_cast<int>(nPlain),
                                    strPlain.data(), static_cast<int>(nPlain));
            if (nUnits <= 0)
                return false;
            strWide.append(strPlain, 0, static_cast<size_t>(nUnits));
            text.remove_prefix(nPlain);
            continue;
        }
        const bool fUnit = text.size() > 1 && text[1] == 'u';
        const size_t nFirst = fUnit ? 2 : 1, nDigits = fUnit ? 4 : 2;
        if (text.size() < nFirst + nDigits || !ParseHex(text.substr(nFirst, nDigits), nUnit))
            return false;
        strWide += static_cast<wchar_t>(nUnit);
        text.remove_prefix(nFirst + nDigits);
    }
    return true;
}

void AppendEntries(std::string& strText, const char* pszTree, const CZNInventory& tree)
{
    for (const auto& [strPath, entry] : tree.entries)
    {
        strText += std::string(pszTree) + (entry.fDirectory ? "-directory\t" : "-file\t") +
                   std::to_string(entry.nSize) + "\t" + EscapeText(entry.strCreated) + "\t" +
                   EscapeText(entry.strWritten) + "\t";
        AppendHex(strText, entry.nAttributes, 8);
        strText += "\t" + (entry.strSha256.empty() ? "-" : entry.strSha256) + "\t" +
                   (entry.strSddl.empty() ? "-" : EscapeText(entry.strSddl)) + "\t" + EscapeText(strPath) +
                   LINE_END;
    }
}

std::vector<std::string_view> Split(std::string_view text, std::string_view separator)
{
    std::vector<std::string_view> parts;
    for (size_t nEnd; (nEnd = text.find(separator)) != std::string_view::npos;)
    {
        parts.push_back(text.substr(0, nEnd));
        text.remove_prefix(nEnd + separator.size());
    }
    parts.push_back(text);
    return parts;
}

bool ParseEntry(const std::vector<std::string_view>& values, bool fDirectory, CZNInventory& tree)
{
    constexpr size_t VALUES = 8, DIGEST = 64, TIME = 28;
    ZNEntry entry;
    std::wstring strPath;
    unsigned nAttributes = 0;
    if (values.size() != VALUES || !ParseHex(values[4], nAttributes) ||
        !UnescapeText(values[2], entry.strCreated) || !UnescapeText(values[3], entry.strWritten) ||
        !UnescapeText(values[6], entry.strSddl) || !UnescapeText(values[7], strPath) || strPath.empty())
        return false;
    const auto [pEnd, error] =
        std::from_chars(values[1].data(), values[1].data() + values[1].size(), entry.nSize);
    const bool fDigest = values[5].size() == DIGEST &&
                         values[5].find_first_not_of("0123456789abcdef") == std::string_view::npos;
    if (error != std::errc() || pEnd != values[1].data() + values[1].size() ||
        entry.strWritten.size() != TIME || entry.strCreated.size() != TIME || (!fDigest && values[5] != "-"))
        return false;
    entry.fDirectory = fDirectory;
    entry.nAttributes = nAttributes;
    entry.strSha256 = entry.strContent = fDigest ? values[5] : "";
    tree.nFiles += fDirectory ? 0 : 1;
    tree.nBytes += entry.nSize;
    return tree.entries.emplace(strPath, entry).second;
}

// The lines of a record that hold one text each.
using Texts = std::map<std::string_view, std::wstring*>;
Texts TextsOf(CZNRecord& record)
{
    return {{"queue-manager", &record.strQueueManager},
            {"directory", &record.strDirectory},
            {"old-data", &record.strOldData},
            {"old-log", &record.strOldLog},
            {"new-data", &record.strNewData},
            {"new-log", &record.strNewLog},
            {"zns.ini", &record.strZnsIni},
            {"qm.ini", &record.strQmIni}};
}

// Takes one line, whose first value is its word. False if no record has such a line.
bool ParseLine(const std::vector<std::string_view>& values, const Texts& texts, CZNRecord& record)
{
    const std::string_view word = values[0];
    if (word == "data-file" || word == "data-directory")
        return ParseEntry(values, word == "data-directory", record.data);
    if (word == "log-file" || word == "log-directory")
        return ParseEntry(values, word == "log-directory", record.log);
    if (values.size() != 2)
        return false;
    if (const auto text = texts.find(word); text != texts.end())
        return text->second->empty() && UnescapeText(values[1], *text->second);
    if (word == "running")
    {
        record.fRunning = values[1] == "yes";
        return true;
    }
    if (word != "zns.ini-line" && word != "qm.ini-line")
        return false;
    std::string& strFile = word[0] == 'z' ? record.strZnsText : record.strQmText;
    const bool fUnescaped = UnescapeBytes(values[1], strFile);
    strFile += '\n';
    return fUnescaped;
}
} // namespace

std::string ZNSealRecord(const std::string& strText)
{
    return strText + SEAL + ZNSha256(strText) + LINE_END;
}

std::string CZNRecord::ToText() const
{
    std::string strText = FIRST_LINE;
    const auto add = [&](const char* pszWord, const std::string& strValue) {
        strText += std::string(pszWord) + "\t" + strValue + LINE_END;
    };
    add("queue-manager", EscapeText(strQueueManager));
    add("directory", EscapeText(strDirectory));
    add("running", fRunning ? "yes" : "no");
    add("old-data", EscapeText(strOldData));
    add("old-log", EscapeText(strOldLog));
    add("new-data", EscapeText(strNewData));
    add("new-log", EscapeText(strNewLog));
    add("zns.ini", EscapeText(strZnsIni));
    for (const std::string_view line : Split(strZnsText, "\n"))
        add("zns.ini-line", EscapeBytes(std::string(line)));
    add("qm.ini", EscapeText(strQmIni));
    for (const std::string_view line : Split(strQmText, "\n"))
        add("qm.ini-line", EscapeBytes(std::string(line)));
    AppendEntries(strText, "data", data);
    AppendEntries(strText, "log", log);
    return ZNSealRecord(strText);
}

std::optional<CZNRecord> CZNRecord::FromText(const std::string& strText, std::string& strError)
{
    const auto refuse = [&](const std::string& strWhy) {
        strError = strWhy;
        return std::nullopt;
    };
    if (!strText.starts_with(FIRST_LINE))
        return refuse("its first line is not \"tarvelcheck record 1\"");
    const size_t nSeal = strText.rfind(std::string("\n") + SEAL);
    if (nSeal == std::string::npos || ZNSealRecord(strText.substr(0, nSeal + 1)) != strText)
        return refuse("its checksum in the last line does not fit: it is damaged or was changed");

    CZNRecord record;
    const Texts texts = TextsOf(record);
    const auto lines = Split(std::string_view(strText).substr(0, nSeal - 1), LINE_END);
    for (size_t nLine = 1; nLine < lines.size(); ++nLine)
    {
        if (!ParseLine(Split(lines[nLine], "\t"), texts, record))
            return refuse("line " + std::to_string(nLine + 1) + " is none of a record");
    }
    for (const auto& [word, pstrText] : texts)
        if (pstrText->empty())
            return refuse("it has no line \"" + std::string(word) + "\"");
    for (std::string* const pstrFile : {&record.strZnsText, &record.strQmText})
        if (!pstrFile->empty())
            pstrFile->pop_back(); // each line brought an end; the last had none
    record.data.strDir = record.strOldData;
    record.log.strDir = record.strOldLog;
    record.data.fThere = record.log.fThere = true;
    if (const auto qmIni = record.data.entries.find(L"qm.ini"); qmIni != record.data.entries.end())
        if (!qmIni->second.strSha256.empty())
            qmIni->second.strContent = ZNDigestWithoutLogPath(record.strQmText);
    return record;
}
