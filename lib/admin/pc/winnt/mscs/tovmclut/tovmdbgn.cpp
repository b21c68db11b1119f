// Formats diagnostics and passes them to the product's failure-data facility or to the trace. Must never
// write to the console and must not fail its caller, which is already handling a failure.
#include "tovmdbgn.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <string>

#include "atlconv.h"
#include "tovmsrid.h"
#include "tovmtrce.h"
#include "tovxcs2.h"

ZNM_SOURCE_ID(ZNM_CLUSTER_LIBRARY("tovmdbgn"));

namespace
{
CZNMDebug* s_pInstance = nullptr;

constexpr size_t MAX_TEXT = 1024;

// Returns the format with every directive that has no argument turned into plain text. Texts that were
// formatted once are used as formats again. They can contain what a user typed, and a directive in that must
// not read or write memory.
template <class Char>
std::basic_string<Char> Neutralized(const Char* pszFormat, size_t nArguments)
{
    std::basic_string<Char> strResult;
    while (*pszFormat != 0)
    {
        const Char ch = *pszFormat++;
        strResult += ch;
        if (ch != '%')
            continue;
        if (*pszFormat == '%')
            strResult += *pszFormat++;
        else if (nArguments == 0)
            strResult += ch;
        else
            --nArguments; // from a format in this library, which matches its arguments
    }
    return strResult;
}
} // namespace

CZNMDebug::~CZNMDebug()
{
    s_pInstance = nullptr;
}

CZNMDebug* CZNMDebug::GetInstance()
{
    if (s_pInstance == nullptr)
        s_pInstance = new CZNMDebug; // lives as long as the process
    return s_pInstance;
}

void CZNMDebug::Output(int nFunction, int nProbe, uint32_t nSeverity, const wchar_t* pszFormat,
                       size_t nArguments, ...)
{
    // Called by its own name because the compiler replaces the standard one, in whose formats %s takes narrow
    // text. A text of exactly MAX_TEXT characters is complete but not terminated.
    wchar_t szText[MAX_TEXT] = {};
    va_list args;
    va_start(args, nArguments);
    const int nLength = _vsnwprintf(szText, MAX_TEXT, Neutralized(pszFormat, nArguments).c_str(), args);
    va_end(args);
    const CString strText = nLength < 0 ? CString() : CString(szText, nLength);

    if (nSeverity == ZNM_SEVERITY_FAILURE)
    {
        const CW2A narrowText(strText);
        XCS_INSERTS inserts = {};
        std::memcpy(inserts.achEyeCatcher, "XMSA", sizeof inserts.achEyeCatcher);
        inserts.apszText[0] = narrowText;
        // By design every failure record names this line, wherever the call stands: function and probe tell
        // records apart.
        constexpr int RECORD_LINE = 140;
        xcsSaveFileContextSccsId(ZNM_CLUSTER_LIBRARY("tovmdbgn"), RECORD_LINE);
        xcsVORTFn(ZNM_COMPONENT, static_cast<uint16_t>(nFunction), nProbe, XCS_RC_PROGRAM_FAILURE, &inserts,
                  nullptr, nullptr, nullptr);
    }
    else if (CZNMTrace::WantsParms())
    {
        // By design the text is used as a format: "%%" in it is "%" in the trace.
        const CW2A narrowText(strText);
        if (const char* const pszText = narrowText)
            CZNMTrace::Record(nFunction, Neutralized(pszText, 0).c_str());
    }
}
