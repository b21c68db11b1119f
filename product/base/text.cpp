// Converts texts between code pages. Must not change or drop a character silently where the result names a
// file.
#include "text.h"

#include <windows.h>

#include <climits>
#include <cstdarg>
#include <cstdio>

#include "owner.h"

namespace
{
std::optional<std::wstring> Decode(std::string_view text, UINT nCodePage, DWORD fFlags)
{
    if (text.empty())
        return std::wstring();
    if (text.size() > INT_MAX)
        return std::nullopt;
    const int nSize = static_cast<int>(text.size());
    const int nLength = MultiByteToWideChar(nCodePage, fFlags, text.data(), nSize, nullptr, 0);
    if (nLength <= 0)
        return std::nullopt;
    std::wstring strResult(static_cast<size_t>(nLength), L'\0');
    MultiByteToWideChar(nCodePage, fFlags, text.data(), nSize, strResult.data(), nLength);
    return strResult;
}

// The number behind CP_THREAD_ACP, which can be UTF-8.
UINT Resolve(UINT nCodePage)
{
    CPINFOEXW info = {};
    return GetCPInfoExW(nCodePage, 0, &info) ? info.CodePage : nCodePage;
}

std::optional<std::string> Encode(std::wstring_view text, UINT nCodePage)
{
    if (text.empty())
        return std::string();
    if (text.size() > INT_MAX)
        return std::nullopt;
    // UTF-8 takes neither the flag nor the lost-character indicator of the other code pages.
    const bool fUtf8 = Resolve(nCodePage) == CP_UTF8;
    BOOL fLost = FALSE;
    const DWORD fFlags = fUtf8 ? WC_ERR_INVALID_CHARS : WC_NO_BEST_FIT_CHARS;
    const int nSize = static_cast<int>(text.size());
    const int nLength = WideCharToMultiByte(nCodePage, fFlags, text.data(), nSize, nullptr, 0, nullptr,
                                            fUtf8 ? nullptr : &fLost);
    if (nLength <= 0 || fLost)
        return std::nullopt;
    std::string strResult(static_cast<size_t>(nLength), '\0');
    WideCharToMultiByte(nCodePage, fFlags, text.data(), nSize, strResult.data(), nLength, nullptr, nullptr);
    return strResult;
}
} // namespace

std::optional<std::wstring> Widen(std::string_view text)
{
    return Widen(text, CP_THREAD_ACP);
}

std::optional<std::wstring> Widen(std::string_view text, unsigned nCodePage)
{
    return Decode(text, nCodePage, MB_ERR_INVALID_CHARS);
}

std::optional<std::string> Narrow(std::wstring_view text)
{
    return Encode(text, CP_THREAD_ACP);
}

std::optional<std::string> Recode(std::string_view text, unsigned nFrom, unsigned nTo)
{
    if (nFrom == nTo)
        return std::string(text);
    const std::optional<std::wstring> strWide = Widen(text, nFrom);
    return strWide ? Encode(*strWide, nTo) : std::nullopt;
}

std::wstring WidenForDisplay(std::string_view text)
{
    return Decode(text, CP_THREAD_ACP, 0).value_or(L"(unreadable text)");
}

std::string ToUtf8Line(std::wstring_view text)
{
    const auto isHalf = [text](size_t i, unsigned nHalf) {
        return i < text.size() && (text[i] & 0xFC00u) == nHalf;
    };
    std::wstring strLine;
    strLine.reserve(text.size());
    const auto escape = [&strLine](const std::string& str) { strLine.append(str.begin(), str.end()); };
    for (size_t i = 0; i < text.size(); ++i)
    {
        const wchar_t ch = text[i];
        if (isHalf(i, 0xD800) && isHalf(i + 1, 0xDC00))
            strLine.append(text, i++, 2);
        else if (isHalf(i, 0xD800) || isHalf(i, 0xDC00))
            escape(Format("\\u%04X", ch));
        else if (ch == L'\n' || ch == L'\r' || ch == L'\t')
            strLine += ch == L'\n' ? L"\\n" : ch == L'\r' ? L"\\r" : L"\\t";
        else if (ch < 0x20 || ch == 0x7F)
            escape(Format("\\x%02X", ch));
        else
            strLine += ch;
    }
    return Encode(strLine, CP_UTF8).value_or("");
}

std::string Format(const char* pszFormat, ...)
{
    char szBuffer[512];
    va_list args;
    va_start(args, pszFormat);
    const int nLength = __mingw_vsnprintf(szBuffer, sizeof szBuffer, pszFormat, args);
    va_end(args);
    return nLength >= 0 ? szBuffer : "";
}

std::wstring ErrorText(unsigned long nError)
{
    LocalText text;
    const DWORD nLength =
        FormatMessageW(FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM |
                           FORMAT_MESSAGE_IGNORE_INSERTS | FORMAT_MESSAGE_MAX_WIDTH_MASK,
                       nullptr, nError, 0, reinterpret_cast<wchar_t*>(text.Out()), 0, nullptr);
    std::wstring strResult = L"error " + std::to_wstring(nError);
    if (nLength > 0)
        strResult += L": " + std::wstring(text.Get(), nLength);
    while (!strResult.empty() && strResult.back() == L' ')
        strResult.pop_back();
    return strResult;
}
