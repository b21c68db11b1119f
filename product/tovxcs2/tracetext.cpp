// Makes texts of numbers and parameters. A number keeps its meaning for ever: old traces are read with it.
#include "tracetext.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <iterator>

#include "returncodes.h"
#include "text.h"
#include "tovxcs2.h"

namespace
{
struct Entry
{
    int32_t nFunction;
    bool fResult;
    const char* pszName;
};
constexpr int32_t CLUSTER_COMPONENT = 42;
constexpr bool RESULT = true;
constexpr bool NO_RESULT = false;

constexpr Entry CATALOGUE[] = {
#define ZNM_TRACED_FUNCTION(constant, number, result, name) {number, result, name},
#include "znmfunctions.def"
#undef ZNM_TRACED_FUNCTION
};
static_assert(std::ranges::adjacent_find(CATALOGUE, std::ranges::greater_equal(), &Entry::nFunction) ==
              std::end(CATALOGUE)); // in order, no number twice

struct ReturnCode
{
    int32_t nCode;
    const char* pszMeaning;
};

constexpr ReturnCode RETURN_CODES[] = {
#define XCS_MEANING(constant, value, meaning) {constant, meaning},
    XCS_RETURN_CODES(XCS_MEANING)
#undef XCS_MEANING
        {XCS_RC_UNKNOWN_INSTALLATION, "no such installation"},
    {XCS_RC_NO_VOLUME_SECURITY, "volume keeps no access lists"},
};

const Entry* Find(int32_t nComponent, int32_t nFunction)
{
    const auto* const pEntry = std::ranges::find(CATALOGUE, nFunction, &Entry::nFunction);
    return nComponent == CLUSTER_COMPONENT && pEntry != std::end(CATALOGUE) ? pEntry : nullptr;
}

constexpr size_t MAX_LENGTH = 16'384; // of formatted parameters

// The text of the directive whose percent sign p points to; p is left behind it.
std::wstring FormatDirective(const char*& p, va_list* pArgs)
{
    const char* const pStart = p++;
    p += std::strspn(p, "0123456789");
    const char chConversion = *p;
    if (chConversion != '\0')
        ++p;
    const std::string strDirective(pStart, p);
    const int nWidth = static_cast<int>(std::min(std::strtoul(pStart + 1, nullptr, 10), 99UL));
    switch (chConversion)
    {
    case 's': {
        const char* const psz = va_arg(*pArgs, const char*);
        return psz != nullptr ? WidenForDisplay({psz, strnlen(psz, MAX_LENGTH)}) : L"(null)";
    }
    case 'S': {
        const wchar_t* const psz = va_arg(*pArgs, const wchar_t*);
        return psz != nullptr ? std::wstring(psz, wcsnlen(psz, MAX_LENGTH)) : L"(null)";
    }
    case 'd':
        return std::to_wstring(va_arg(*pArgs, int));
    case 'u':
        return std::to_wstring(va_arg(*pArgs, unsigned));
    case 'X':
        return WidenForDisplay(Format("%0*X", nWidth, va_arg(*pArgs, unsigned)));
    case 'p':
        return WidenForDisplay(Format("%016llX", static_cast<unsigned long long>(va_arg(*pArgs, uintptr_t))));
    default:
        return strDirective == "%%" ? L"%" : WidenForDisplay(strDirective);
    }
}
} // namespace

std::string FunctionName(int32_t nComponent, int32_t nFunction)
{
    const Entry* const pEntry = Find(nComponent, nFunction);
    return pEntry != nullptr ? pEntry->pszName : Format("component %d function %d", nComponent, nFunction);
}

bool HasResult(int32_t nComponent, int32_t nFunction)
{
    const Entry* const pEntry = Find(nComponent, nFunction);
    return pEntry == nullptr || pEntry->fResult;
}

std::string ReturnCodeText(int32_t nReturnCode)
{
    if (nReturnCode == XCS_RC_OK)
        return "0";
    const auto* const pCode = std::ranges::find(RETURN_CODES, nReturnCode, &ReturnCode::nCode);
    const std::string strCode = Format("0x%08X", static_cast<unsigned>(nReturnCode));
    return pCode != std::end(RETURN_CODES) ? strCode + " (" + pCode->pszMeaning + ")" : strCode;
}

// One directive at a time: the runtime's narrow formatter gives up at the first character outside the code
// page, and its wide one reads narrow text by another code page. Nothing is written through an argument.
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
    if (strResult.size() > MAX_LENGTH)
        strResult.resize(MAX_LENGTH);
    return strResult;
}
