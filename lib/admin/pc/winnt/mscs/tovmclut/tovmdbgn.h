// Internal diagnostics: a text goes into a failure record or into the function trace, never to the console.
#pragma once

#include <cstddef>
#include <cstdint>

#include "afxstr.h"

// Severities of a diagnostic. Only the first makes a failure record; the others are told apart by readers.
constexpr uint32_t ZNM_SEVERITY_FAILURE = 1;
constexpr uint32_t ZNM_SEVERITY_ERROR = 2;
constexpr uint32_t ZNM_SEVERITY_INFORMATION = 4;

class CZNMDebug
{
  public:
    virtual ~CZNMDebug();

    // The one instance of the process, made by the first call.
    static CZNMDebug* GetInstance();

    // Reports a diagnostic of function nFunction at nProbe. pszFormat is a wide printf format in which %s
    // takes wide text. A text of more than 1,024 characters is reported as an empty one. A directive for
    // which there is no argument stands for itself.
    template <class... Args>
    void DebugOutput(int nFunction, int nProbe, uint32_t nSeverity, const wchar_t* pszFormat, Args... args)
    {
        Output(nFunction, nProbe, nSeverity, pszFormat, sizeof...(Args), args...);
    }

    // Writes a failure record for function nFunction at nProbe, as DebugOutput formats it.
    template <class... Args>
    static void RecordFailure(int nFunction, int nProbe, const wchar_t* pszFormat, Args... args)
    {
        GetInstance()->DebugOutput(nFunction, nProbe, ZNM_SEVERITY_FAILURE, pszFormat, args...);
    }

  private:
    CZNMDebug() = default;
    void Output(int nFunction, int nProbe, uint32_t nSeverity, const wchar_t* pszFormat, size_t nArguments,
                ...);
};
