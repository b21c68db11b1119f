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
constexpr size_t MAX_BYTES = 4; // that a UTF-16 unit needs in any code page

std::optional<std::wstring> Decode(std::string_view text, DWORD fFlags)
{
    if (text.empty())
        return std::wstring();
    if (text.size() > INT_MAX)
        return std::nullopt;
    const int nSize = static_cast<int>(text.size());
    std::wstring strResult(text.size(), L'\0');
    const int nLength =
        MultiByteToWideChar(CP_THREAD_ACP, fFlags, text.data(), nSize, strResult.data(), nSize);
    if (nLength <= 0)
        return std::nullopt;
    strResult.resize(static_cast<size_t>(nLength));
    return strResult;
}

// An empty text when the text cannot be converted.
std::string Encode(std::wstring_view text, UINT nCodePage, DWORD fFlags = 0, BOOL* pfLost = nullptr)
{
    if (text.size() > INT_MAX / MAX_BYTES)
        return "";
    std::string strResult(text.size() * MAX_BYTES, '\0');
    const int nLength =
        WideCharToMultiByte(nCodePage, fFlags, text.data(), static_cast<int>(text.size()), strResult.data(),
                            static_cast<int>(strResult.size()), nullptr, pfLost);
    strResult.resize(static_cast<size_t>(nLength));
    return strResult;
}
} // namespace

std::optional<std::wstring> Widen(std::string_view text)
{
    return Decode(text, MB_ERR_INVALID_CHARS);
}

std::optional<std::string> Narrow(std::wstring_view text)
{
    // Where the thread's code page is UTF-8, the call takes neither the flag nor the indicator of the others.
    CPINFOEXW info = {};
    const bool fUtf8 = GetCPInfoExW(CP_THREAD_ACP, 0, &info) && info.CodePage == CP_UTF8;
    BOOL fLost = FALSE;
    std::string strResult = fUtf8 ? Encode(text, CP_UTF8, WC_ERR_INVALID_CHARS)
                                  : Encode(text, CP_THREAD_ACP, WC_NO_BEST_FIT_CHARS, &fLost);
    if (fLost || strResult.empty() != text.empty())
        return std::nullopt;
    return strResult;
}

std::wstring WidenForDisplay(std::string_view text)
{
    return Decode(text, 0).value_or(L"(unreadable text)");
}

std::string ForConsole(std::wstring_view text)
{
    return Encode(text, CP_OEMCP);
}

std::string ToUtf8Line(std::wstring_view text)
{
    std::string strLine;
    for (const char ch : Encode(text, CP_UTF8))
        if (const auto n = static_cast<unsigned char>(ch); n < 0x20 || n == 0x7F)
            strLine += Format("\\x%02X", n);
        else
            strLine += ch;
    return strLine;
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
    while (strResult.ends_with(L' '))
        strResult.pop_back();
    return strResult;
}

std::string UtcNow()
{
    SYSTEMTIME now = {};
    GetSystemTime(&now);
    return Format("%04u-%02u-%02u %02u:%02u:%02u.%03uZ", now.wYear, now.wMonth, now.wDay, now.wHour,
                  now.wMinute, now.wSecond, now.wMilliseconds);
}
