// Writes records and reads them. A damaged one is refused as a whole: half a record would pass for a tree of
// which files are missing.
#include "znmrecord.h"

#include <cwchar>
#include <map>
#include <string_view>

#include "tovmsrid.h"
#include "tovxcs2.h"

ZNM_SOURCE_ID("cmd/mscs/tools/znmcheck/znmrecord");

namespace
{
constexpr char FIRST_LINE[] = "tarvelcheck record 2\r\n";
constexpr char SEAL[] = "sha256\t";
constexpr size_t ESCAPE = 5; // %XXXX

std::wstring Escape(const std::wstring& strPlain)
{
    std::wstring strText;
    for (size_t i = 0; i < strPlain.size(); ++i)
    {
        const wchar_t ch = strPlain[i], chNext = i + 1 < strPlain.size() ? strPlain[i + 1] : L'\0';
        const bool fPair = IS_SURROGATE_PAIR(ch, chNext);
        if (!fPair && (ch < L' ' || ch == L'%' || IS_HIGH_SURROGATE(ch) || IS_LOW_SURROGATE(ch)))
        {
            wchar_t szEscape[ESCAPE + 1] = {};
            _snwprintf(szEscape, ESCAPE + 1, L"%%%04X", static_cast<unsigned>(ch));
            strText += szEscape;
        }
        else
            strText.append(strPlain, i, fPair ? 2 : 1);
        i += fPair ? 1 : 0;
    }
    return strText;
}

std::optional<std::wstring> Unescape(std::wstring_view text)
{
    std::wstring strPlain;
    for (; !text.empty(); text.remove_prefix(text[0] == L'%' ? ESCAPE : 1))
    {
        if (text[0] != L'%')
        {
            strPlain += text[0];
            continue;
        }
        const std::wstring strDigits(text.substr(1, ESCAPE - 1));
        if (strDigits.size() != ESCAPE - 1 ||
            strDigits.find_first_not_of(L"0123456789ABCDEF") != std::wstring::npos)
            return std::nullopt;
        strPlain += static_cast<wchar_t>(std::wcstoul(strDigits.c_str(), nullptr, 16));
    }
    return strPlain;
}

std::vector<std::wstring_view> Split(std::wstring_view text, std::wstring_view separator)
{
    std::vector<std::wstring_view> parts;
    for (size_t nEnd; (nEnd = text.find(separator)) != std::wstring_view::npos;)
    {
        parts.push_back(text.substr(0, nEnd));
        text.remove_prefix(nEnd + separator.size());
    }
    parts.push_back(text);
    return parts;
}

// Takes the line of an entry: word, size, digest, access list, path.
bool TakeEntry(const std::vector<std::wstring_view>& values, CZNInventory& tree)
{
    constexpr size_t VALUES = 5, DIGEST = 64, LONGEST_SIZE = 19;
    if (values.size() != VALUES)
        return false;
    const std::wstring strSize(values[1]);
    const auto sddl = Unescape(values[3]), path = Unescape(values[4]);
    const bool fDirectory = values[0].ends_with(L"-directory");
    if (!fDirectory && !values[0].ends_with(L"-file"))
        return false;
    const bool fDigest = values[2].size() == DIGEST &&
                         values[2].find_first_not_of(L"0123456789abcdef") == std::wstring_view::npos;
    if (!sddl || !path || path->empty() || fDigest == fDirectory || strSize.empty() ||
        strSize.size() > LONGEST_SIZE || strSize.find_first_not_of(L"0123456789") != std::wstring::npos)
        return false;
    ZNEntry entry;
    entry.fDirectory = fDirectory;
    entry.nSize = std::wcstoull(strSize.c_str(), nullptr, 10);
    entry.strSha256 = fDigest ? std::string(values[2].begin(), values[2].end()) : std::string();
    entry.strSddl = *sddl;
    return tree.entries.emplace(*path, entry).second;
}

// The lines that hold one text each.
std::map<std::wstring_view, std::wstring*> TextsOf(ZNRecord& record)
{
    return {{L"queue-manager", &record.strQueueManager},
            {L"old-data", &record.aTrees[ZN_DATA].strDir},
            {L"old-log", &record.aTrees[ZN_LOG].strDir},
            {L"new-data", &record.aNew[ZN_DATA]},
            {L"new-log", &record.aNew[ZN_LOG]}};
}

bool TakeLine(std::wstring_view line, ZNRecord& record)
{
    const auto values = Split(line, L"\t");
    for (const auto& [tree, pszPrefix] : {std::pair(ZN_DATA, L"data-"), std::pair(ZN_LOG, L"log-")})
        if (values[0].starts_with(pszPrefix))
            return TakeEntry(values, record.aTrees[tree]);
    const auto texts = TextsOf(record);
    const auto text = texts.find(values[0]);
    const auto plain = values.size() == 2 ? Unescape(values[1]) : std::nullopt;
    if (text == texts.end() || !plain || !text->second->empty())
        return line.starts_with(L"#");
    *text->second = *plain;
    return true;
}
} // namespace

std::string ZNSealRecord(const std::string& strText)
{
    return strText + SEAL + ZNSha256(strText) + "\r\n";
}

std::string ZNRecord::ToText(const std::wstring& strHead) const
{
    std::wstring strText;
    for (const std::wstring_view line : Split(strHead, L"\r\n"))
        strText.append(L"# ").append(Escape(std::wstring(line))).append(L"\r\n");
    ZNRecord record = *this;
    for (const auto& [word, pstrText] : TextsOf(record))
        strText.append(word).append(L"\t").append(Escape(*pstrText)).append(L"\r\n");
    for (const ZN_TREE eTree : {ZN_DATA, ZN_LOG})
        for (const auto& [strPath, entry] : aTrees[eTree].entries)
            strText +=
                std::wstring(eTree == ZN_DATA ? L"data-" : L"log-") +
                (entry.fDirectory ? L"directory" : L"file") + L"\t" + std::to_wstring(entry.nSize) + L"\t" +
                (entry.fDirectory ? L"-" : std::wstring(entry.strSha256.begin(), entry.strSha256.end())) +
                L"\t" + Escape(entry.strSddl) + L"\t" + Escape(strPath) + L"\r\n";
    return ZNSealRecord(FIRST_LINE + ZNUtf8(strText));
}

std::optional<ZNRecord> ZNRecord::FromText(const std::string& strText, size_t& nLine)
{
    nLine = 0;
    const size_t nSeal = strText.rfind(std::string("\n") + SEAL);
    if (!strText.starts_with(FIRST_LINE) || nSeal == std::string::npos ||
        ZNSealRecord(strText.substr(0, nSeal + 1)) != strText)
        return std::nullopt;
    std::wstring strWide(nSeal, L'\0');
    strWide.resize(static_cast<size_t>(MultiByteToWideChar(
        CP_UTF8, 0, strText.data(), static_cast<int>(nSeal), strWide.data(), static_cast<int>(nSeal))));
    ZNRecord record;
    strWide.pop_back(); // of the line end before the seal
    const auto lines = Split(strWide, L"\r\n");
    for (nLine = 2; nLine <= lines.size(); ++nLine)
        if (!TakeLine(lines[nLine - 1], record))
            return std::nullopt;
    for (const auto& [word, pstrText] : TextsOf(record))
        if (pstrText->empty())
            return std::nullopt;
    return record;
}
