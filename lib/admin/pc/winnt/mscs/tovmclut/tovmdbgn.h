// Internal diagnostics: a text goes into a failure record or into the function trace, never to the console.
#pragma once

#include <cstddef>
#include <cstdint>

#include "afxwin.h"

// Severities of a diagnostic. Only the first writes a failure record; the others differ only for the reader.
constexpr uint32_t ZNM_SEVERITY_FAILURE = 1;
constexpr uint32_t ZNM_SEVERITY_ERROR = 2;
constexpr uint32_t ZNM_SEVERITY_INFORMATION = 4;

// A diagnostic that stands in a table: its probe and its text as a format.
struct ZNM_DIAGNOSTIC
{
    int nProbe;
    const wchar_t* pszFormat;
};

class CZNMDebug
{
  public:
    virtual ~CZNMDebug();

    // Returns the one instance of the process. The first call makes it.
    static CZNMDebug* GetInstance();

    // Reports a diagnostic of function nFunction at nProbe. pszFormat is a wide printf format in which %s
    // takes wide text. A text of more than 1,024 characters is reported as an empty text. A directive
    // without an argument is reported as it stands.
    template <class... Args>
    void DebugOutput(int nFunction, int nProbe, uint32_t nSeverity, const wchar_t* pszFormat, Args... args)
    {
        Output(nFunction, nProbe, nSeverity, pszFormat, sizeof...(Args), args...);
    }

    // Write a failure record for function nFunction. The text is formatted as by DebugOutput.
    template <class... Args>
    static void RecordFailure(int nFunction, int nProbe, const wchar_t* pszFormat, Args... args)
    {
        GetInstance()->DebugOutput(nFunction, nProbe, ZNM_SEVERITY_FAILURE, pszFormat, args...);
    }
    template <class... Args>
    static void RecordFailure(int nFunction, const ZNM_DIAGNOSTIC& diagnostic, Args... args)
    {
        RecordFailure(nFunction, diagnostic.nProbe, diagnostic.pszFormat, args...);
    }

  private:
    CZNMDebug() = default;
    void Output(int nFunction, int nProbe, uint32_t nSeverity, const wchar_t* pszFormat, size_t nArguments,
                ...);
};
