// CZNMException. Making one must only trace: its handler decides whether to report it.
#include "tovmexpn.h"

#include "atlconv.h"
#include "tovmdbgn.h"
#include "tovmsrid.h"
#include "tovmtrce.h"

ZNM_SOURCE_ID(ZNM_CLUSTER_LIBRARY("tovmexpn"));

CZNMException::CZNMException(int32_t nModuleName, int32_t nProbe, uint32_t nSeverity, const wchar_t* lpszText)
    : m_strText(lpszText), m_nSeverity(nSeverity), m_nModuleName(nModuleName), m_nProbe(nProbe)
{
    const CZNMTrace trace(FN_EXCEPTION_CTOR);
    if (CZNMTrace::WantsParms())
        trace.Parms(
            "CZNMException::CZNMException() (nModuleName=%d, nProbe=%d, nSeverity = %u, lpszText = %s)",
            nModuleName, nProbe, nSeverity, CW2A(m_strText));
}

CZNMException::~CZNMException()
{
    const CZNMTrace trace(FN_EXCEPTION_DTOR);
}

void CZNMException::Report() const
{
    const CZNMTrace trace(FN_EXCEPTION_REPORT);
    const CString strText = CString(L"***CZNMException Caught***: ") + m_strText;
    CZNMDebug::GetInstance()->DebugOutput(m_nModuleName, m_nProbe, m_nSeverity, strText);
}
