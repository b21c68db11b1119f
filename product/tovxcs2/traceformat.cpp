// Formats parameter records one directive at a time: the runtime's narrow formatter gives up at the first
// character outside the code page, and its wide one reads narrow text by another code page. Must not write
// through an argument, nor read a text beyond its precision.
#include "traceformat.h"

#include <windows.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "text.h"

namespace
{
constexpr size_t MAX_LENGTH = 16'384;
constexpr size_t MAX_SPECIFICATION = 16; // flags, width and precision; none in use is half as long

std::wstring NarrowText(const char* psz, size_t nLimit)
{
    return psz != nullptr ? WidenForDisplay({psz, strnlen(psz, nLimit)}) : L"(null)";
}

std::wstring WideText(const wchar_t* psz, size_t nLimit)
{
    return psz != nullptr ? std::wstring(psz, wcsnlen(psz, nLimit)) : L"(null)";
}

// A number by the runtime's own rules.
template <class Value>
std::wstring Number(const std::string& strSpecification, Value value)
{
    char szBuffer[512];
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    const int nLength = __mingw_snprintf(szBuffer, sizeof szBuffer, strSpecification.c_str(), value);
#pragma GCC diagnostic pop
    const size_t nUsed = nLength < 0 ? 0 : std::min(static_cast<size_t>(nLength), sizeof szBuffer - 1);
    return std::wstring(szBuffer, szBuffer + nUsed);
}

// The text of the directive whose percent sign p points to; p is left behind it. What is no directive, or one
// that would write, is shown as it stands.
std::wstring FormatDirective(const char*& p, va_list* pArgs)
{
    const char* const pStart = p++;
    const size_t nOptions = std::strspn(p, "-+ #0123456789.");
    const std::string strOptions(p, std::min(nOptions, MAX_SPECIFICATION));
    p += nOptions;
    const size_t nDot = strOptions.find('.');
    const size_t nLimit = nDot != std::string::npos
                              ? static_cast<size_t>(std::strtoul(strOptions.c_str() + nDot + 1, nullptr, 10))
                              : MAX_LENGTH;
    const bool fInt64 = std::strncmp(p, "ll", 2) == 0 || std::strncmp(p, "I64", 3) == 0 || *p == 'z';
    p += std::strncmp(p, "I64", 3) == 0 ? 3 : std::strspn(p, "lhzw");
    const char chConversion = *p;
    if (chConversion != '\0')
        ++p;
    const std::string strNumber = "%" + strOptions + (fInt64 ? "ll" : "") + chConversion;
    switch (chConversion)
    {
    case 's':
        return NarrowText(va_arg(*pArgs, const char*), nLimit);
    case 'S':
        return WideText(va_arg(*pArgs, const wchar_t*), nLimit);
    case 'c': {
        const char ch = static_cast<char>(va_arg(*pArgs, int));
        return NarrowText(&ch, 1);
    }
    case 'd':
    case 'i':
    case 'u':
    case 'o':
    case 'x':
    case 'X':
        return fInt64 ? Number(strNumber, va_arg(*pArgs, long long)) : Number(strNumber, va_arg(*pArgs, int));
    case 'e':
    case 'f':
    case 'g':
        return Number(strNumber, va_arg(*pArgs, double));
    case 'p':
        return Number("%016llX", static_cast<unsigned long long>(va_arg(*pArgs, uintptr_t)));
    case '%':
        return L"%";
    case 'n':
        va_arg(*pArgs, void*); // passed over
        [[fallthrough]];
    default:
        return NarrowText(pStart, static_cast<size_t>(p - pStart));
    }
}
} // namespace

std::wstring FormatTrace(const char* pszFormat, va_list args)
{
    va_list rest;
    va_copy(rest, args);
    std::wstring strResult;
    const char* p = pszFormat != nullptr ? pszFormat : "(null)";
    while (*p != '\0' && strResult.size() < MAX_LENGTH)
    {
        const size_t nPlain = std::strcspn(p, "%");
        strResult += WidenForDisplay({p, nPlain});
        p += nPlain;
        if (*p == '%')
            strResult += FormatDirective(p, &rest);
    }
    va_end(rest);
    strResult.resize(std::min(strResult.size(), MAX_LENGTH));
    return strResult;
}
