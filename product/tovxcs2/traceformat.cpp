// Formats parameter records one directive at a time: the runtime's narrow formatter gives up at the first
// character outside the code page, and its wide one reads narrow text by another code page. Must not write
// through an argument, nor read a text beyond its precision.
#include "traceformat.h"

#include <windows.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "text.h"

namespace
{
constexpr size_t MAX_LENGTH = 16'384;
constexpr int MAX_FIELD = 1024; // widths and precisions beyond it are cut

struct Directive
{
    bool fLeft = false;
    std::string strFlags;
    int nWidth = 0;
    int nPrecision = -1;
    enum
    {
        INT,
        SHORT,
        INT64
    } eSize = INT;
    char chConversion = 0; // zero at the format's end
};

int ParseNumber(const char*& p)
{
    int n = 0;
    for (; *p >= '0' && *p <= '9'; ++p)
        n = n < MAX_FIELD ? n * 10 + (*p - '0') : MAX_FIELD;
    return n < MAX_FIELD ? n : MAX_FIELD;
}

// From behind the percent sign; p is left behind the directive.
Directive Parse(const char*& p, va_list* pArgs)
{
    Directive directive;
    for (; *p != '\0' && std::strchr("-+ #0", *p) != nullptr; ++p)
        directive.strFlags += *p;
    auto number = [&] { return *p == '*' ? (++p, va_arg(*pArgs, int)) : ParseNumber(p); };
    directive.nWidth = number();
    if (directive.nWidth < 0)
    {
        directive.strFlags += '-';
        directive.nWidth = directive.nWidth < -MAX_FIELD ? MAX_FIELD : -directive.nWidth;
    }
    directive.nWidth = directive.nWidth < MAX_FIELD ? directive.nWidth : MAX_FIELD;
    if (*p == '.')
        directive.nPrecision = (++p, number());
    directive.fLeft = directive.strFlags.find('-') != std::string::npos;
    for (; *p != '\0' && std::strchr("hlLqjztIw", *p) != nullptr; ++p)
    {
        if (std::strncmp(p, "I32", 3) == 0)
            p += 2;
        else if (std::strncmp(p, "I64", 3) == 0)
        {
            p += 2;
            directive.eSize = Directive::INT64;
        }
        else if (*p == 'h')
            directive.eSize = Directive::SHORT;
        else if (std::strchr("qjztI", *p) != nullptr || (*p == 'l' && p[1] == 'l'))
            directive.eSize = Directive::INT64;
    }
    directive.chConversion = *p != '\0' ? *p++ : '\0';
    return directive;
}

std::wstring NarrowText(const char* psz, int nPrecision)
{
    const size_t nLimit = nPrecision >= 0 ? static_cast<size_t>(nPrecision) : MAX_LENGTH;
    return psz != nullptr ? WidenForDisplay({psz, strnlen(psz, nLimit)}) : L"(null)";
}

std::wstring WideText(const wchar_t* psz, int nPrecision)
{
    const size_t nLimit = nPrecision >= 0 ? static_cast<size_t>(nPrecision) : MAX_LENGTH;
    return psz != nullptr ? std::wstring(psz, wcsnlen(psz, nLimit)) : L"(null)";
}

// A number by the runtime's own rules, from a specification made anew of what was parsed.
template <class Value>
std::wstring Number(const Directive& directive, const char* pszSize, Value value)
{
    const std::string strSpecification = "%" + directive.strFlags + "*.*" + pszSize + directive.chConversion;
    char szBuffer[2 * MAX_FIELD]; // a double has 309 digits, its precision may add what a field may have
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    const int nLength = __mingw_snprintf(szBuffer, sizeof szBuffer, strSpecification.c_str(),
                                         directive.nWidth, directive.nPrecision, value);
#pragma GCC diagnostic pop
    const size_t nUsed =
        nLength < 0 ? 0 : std::min<size_t>(static_cast<size_t>(nLength), sizeof szBuffer - 1);
    return std::wstring(szBuffer, szBuffer + nUsed);
}

void AppendPadded(std::wstring& strResult, const Directive& directive, const std::wstring& strText)
{
    const size_t nWidth = static_cast<size_t>(directive.nWidth);
    const size_t nPadding = nWidth > strText.size() ? nWidth - strText.size() : 0;
    if (!directive.fLeft)
        strResult.append(nPadding, L' ');
    strResult += strText;
    if (directive.fLeft)
        strResult.append(nPadding, L' ');
}

void AppendDirective(std::wstring& strResult, const Directive& directive, va_list* pArgs)
{
    switch (directive.chConversion)
    {
    case 's':
        return AppendPadded(strResult, directive,
                            NarrowText(va_arg(*pArgs, const char*), directive.nPrecision));
    case 'S':
        return AppendPadded(strResult, directive,
                            WideText(va_arg(*pArgs, const wchar_t*), directive.nPrecision));
    case 'c': {
        const char ch = static_cast<char>(va_arg(*pArgs, int));
        return AppendPadded(strResult, directive, NarrowText(&ch, 1));
    }
    case 'C':
        return AppendPadded(strResult, directive, {static_cast<wchar_t>(va_arg(*pArgs, int))});
    case 'd':
    case 'i':
        if (directive.eSize == Directive::INT64)
            strResult += Number(directive, "ll", va_arg(*pArgs, long long));
        else
            strResult +=
                Number(directive, directive.eSize == Directive::SHORT ? "h" : "", va_arg(*pArgs, int));
        return;
    case 'u':
    case 'o':
    case 'x':
    case 'X':
        if (directive.eSize == Directive::INT64)
            strResult += Number(directive, "ll", va_arg(*pArgs, unsigned long long));
        else
            strResult +=
                Number(directive, directive.eSize == Directive::SHORT ? "h" : "", va_arg(*pArgs, unsigned));
        return;
    case 'e':
    case 'E':
    case 'f':
    case 'F':
    case 'g':
    case 'G':
        strResult += Number(directive, "", va_arg(*pArgs, double));
        return;
    case 'p': {
        const std::string strPointer =
            Format("%016llX", static_cast<unsigned long long>(va_arg(*pArgs, uintptr_t)));
        return AppendPadded(strResult, directive, std::wstring(strPointer.begin(), strPointer.end()));
    }
    case '%':
        strResult += L'%';
        return;
    case 'n':
        va_arg(*pArgs, void*); // consumed, never written through
        strResult += L"%n";
        return;
    default: // no directive at all: shown as it stands
        strResult += L'%';
        if (directive.chConversion != '\0')
            strResult += NarrowText(&directive.chConversion, 1);
        return;
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
            AppendDirective(strResult, Parse(++p, &rest), &rest);
    }
    va_end(rest);
    if (strResult.size() > MAX_LENGTH)
        strResult.resize(MAX_LENGTH);
    return strResult;
}
