// The exception that carries a diagnostic from where a problem is found to its handler. Made on the heap,
// thrown by pointer, deleted by whoever catches it.
#pragma once

#include <cstdint>

#include "afxstr.h"

class CZNMException
{
  public:
    // nModuleName: function number of the raising function; nProbe tells its raising sites apart; nSeverity:
    // ZNM_SEVERITY_...; lpszText: null is taken as empty.
    CZNMException(int32_t nModuleName, int32_t nProbe, uint32_t nSeverity, const wchar_t* lpszText);
    virtual ~CZNMException();
    CZNMException(const CZNMException&) = delete;
    CZNMException& operator=(const CZNMException&) = delete;

    // Hands the diagnostic to CZNMDebug. The text is used as a format there, so a "%%" in it becomes "%".
    void Report() const;

  private:
    CString m_strText;
    uint32_t m_nSeverity;
    int32_t m_nModuleName;
    int32_t m_nProbe;
};
