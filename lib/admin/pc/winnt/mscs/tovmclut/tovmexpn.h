// The exception that carries a diagnostic from the place where a problem is found to its handler. It is made
// on the heap and thrown by pointer; the handler deletes it.
#pragma once

#include <cstdint>

#include "afxwin.h"

class CZNMException
{
  public:
    // nModuleName: function number of the raising function. nProbe: identifies the place in that function.
    // nSeverity: ZNM_SEVERITY_... lpszText: null is taken as empty.
    CZNMException(int32_t nModuleName, int32_t nProbe, uint32_t nSeverity, const wchar_t* lpszText);
    virtual ~CZNMException();
    CZNMException(const CZNMException&) = delete;
    CZNMException& operator=(const CZNMException&) = delete;

    // Passes the diagnostic to CZNMDebug, which uses the text as a format: "%%" in it becomes "%".
    void Report() const;

  private:
    CString m_strText;
    uint32_t m_nSeverity;
    int32_t m_nModuleName;
    int32_t m_nProbe;
};
