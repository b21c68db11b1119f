// Keeps the thread's trace area up to date and hands records to the product's trace facility, which decides
// whether and where they are written. Must stay cheap while tracing is off: one slot read, two stores and two
// increments, and nothing is formatted here.
#include "tovmtrce.h"

#include "tovmsrid.h"
#include "tovxcs2.h"

ZNM_SOURCE_ID(ZNM_CLUSTER_LIBRARY("tovmtrce"));

namespace
{
XTR_THREAD_AREA* ThreadArea() noexcept
{
    return static_cast<XTR_THREAD_AREA*>(TlsGetValue(xihTLSIndex));
}

constexpr uint32_t Identifier(ZNM_FUNCTION nFunction)
{
    return (uint32_t{ZNM_COMPONENT} << XTR_COMPONENT_SHIFT) | static_cast<uint32_t>(nFunction);
}

void AddToHistory(XTR_THREAD_AREA& area, uint32_t nEntry) noexcept
{
    area.aHistory[area.nHistory++ & (XTR_HISTORY_SIZE - 1)] = nEntry;
}
} // namespace

CZNMTrace::CZNMTrace(ZNM_FUNCTION nFunction) noexcept : m_nFunction(nFunction)
{
    XTR_THREAD_AREA* const pArea = ThreadArea();
    if (pArea == nullptr)
        return;
    const uint32_t nEntry = Identifier(nFunction) | XTR_ENTRY_MARK;
    // A tree may be deeper than the array; its depth is counted all the same.
    if (pArea->nDepth < XTR_CALL_STACK_SIZE)
        pArea->aCallStack[pArea->nDepth] = nEntry;
    ++pArea->nDepth;
    AddToHistory(*pArea, nEntry);
    if (pArea->fTraceActive)
        xtr_FNC_entry(pArea, ZNM_COMPONENT, nFunction);
}

CZNMTrace::~CZNMTrace()
{
    if (!m_fLeft)
        RecordExit(m_nFunction, m_nReturnCode);
}

void CZNMTrace::Leave(int nReturnCode) noexcept
{
    RecordExit(m_nFunction, nReturnCode);
    m_fLeft = true;
}

void CZNMTrace::RecordExit(ZNM_FUNCTION nFunction, int nReturnCode) noexcept
{
    XTR_THREAD_AREA* const pArea = ThreadArea();
    if (pArea == nullptr)
        return;
    // The one exit without an entry, after a failed authority check, finds the depth at zero.
    if (pArea->nDepth > 0)
        --pArea->nDepth;
    AddToHistory(*pArea, (static_cast<uint32_t>(nReturnCode) << 16) + Identifier(nFunction));
    if (pArea->fTraceActive)
        xtr_FNC_retcode(pArea, ZNM_COMPONENT, nFunction, nReturnCode);
}

void CZNMTrace::Text(const char* pszText) const
{
    if (XTR_THREAD_AREA* const pArea = AreaIfWanted(XTR_OPTIONS_TEXT))
        xtr_FNC_text(ZNM_COMPONENT, m_nFunction, pArea, 0, pszText);
}

XTR_THREAD_AREA* CZNMTrace::AreaIfWanted(uint32_t nOptions) noexcept
{
    const bool fEverything = xihProcess.fTraceEverything != 0;
    if (xihProcess.fTraceEnabled == 0 || (xihProcess.nConsumers <= 0 && !fEverything))
        return nullptr;
    XTR_THREAD_AREA* const pArea = ThreadArea();
    if (pArea == nullptr)
        return nullptr;
    return fEverything || (pArea->fDetailed != 0 && (pArea->nOptions & nOptions) != 0) ? pArea : nullptr;
}
