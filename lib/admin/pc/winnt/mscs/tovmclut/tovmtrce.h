// Function trace: one object on the stack of each traced function.
//
//     CZNMTrace trace(FN_SET_DATA_DEST);
//     trace.Parms("CZNMSCSApp::SetDataDest() (strDataDest = %S)", strDataDest);
//     ...
//     return trace.Return(1);
//
// The entry is recorded when the object is made, the exit when it is destroyed. If the thread has no trace
// area, nothing is recorded: the application object, for example, is made before there is an area and
// destroyed after it is gone.
//
// While tracing is off, a traced function must cost no more than the bookkeeping: a read of the thread's
// slot, two stores and two increments. So everything up to the call of the facility is in this header, where
// the compiler can inline it, and nothing is formatted here.
#pragma once

#include "afxwin.h"

#include <utility>

#include "atlconv.h"
#include "tovxtrc.h"

// The component number of this program in every record.
constexpr int ZNM_COMPONENT = 42;

// The traced functions, from the table that those who read a trace have too.
enum ZNM_FUNCTION : int
{
#define ZNM_TRACED_FUNCTION(constant, number, result, name) constant = (number),
#include "znmfunctions.def"
#undef ZNM_TRACED_FUNCTION
};

class CZNMTrace
{
  public:
    // Records the entry of nFunction.
    explicit CZNMTrace(ZNM_FUNCTION nFunction) noexcept;

    // Records the exit, with the code that Return or Leave set, or 0.
    ~CZNMTrace();

    CZNMTrace(const CZNMTrace&) = delete;
    CZNMTrace& operator=(const CZNMTrace&) = delete;

    // Sets the return code of the exit and returns it.
    template <class Code>
    Code Return(Code nReturnCode) noexcept
    {
        m_nReturnCode = static_cast<int>(nReturnCode);
        return nReturnCode;
    }

    // Records the exit now; the destructor then records none.
    void Leave(int nReturnCode) noexcept;

    // Records a line if such lines are wanted. pszFormat is a narrow printf format: %s takes narrow text, %S
    // wide text or a CString.
    template <class... Args>
    void Parms(const char* pszFormat, const Args&... args) const
    {
        Record(m_nFunction, pszFormat, args...);
    }

    // Records a fixed text if texts are wanted.
    void Text(const char* pszText) const;

    // The same as Parms for a line of another function.
    template <class... Args>
    static void Record(int nFunction, const char* pszFormat, const Args&... args)
    {
        if (XTR_THREAD_AREA* const pArea = AreaIfWanted(XTR_OPTIONS_PARMS))
        {
            pArea->nCurrentFunction =
                (static_cast<uint32_t>(nFunction) << 16) | static_cast<uint32_t>(ZNM_COMPONENT);
            xtr_parms(pszFormat, Raw(args)...);
        }
    }

    // Returns true if Parms and Record would record a line. For arguments that are expensive to make.
    static bool WantsParms() noexcept { return AreaIfWanted(XTR_OPTIONS_PARMS) != nullptr; }

    // Records the exit of a function whose entry was not recorded.
    static void RecordExit(ZNM_FUNCTION nFunction, int nReturnCode) noexcept;

  private:
    static XTR_THREAD_AREA* ThreadArea() noexcept;
    static XTR_THREAD_AREA* AreaIfWanted(uint32_t nOptions) noexcept;
    static void AddToHistory(XTR_THREAD_AREA& area, uint32_t nEntry) noexcept;

    static constexpr uint32_t Identifier(ZNM_FUNCTION nFunction)
    {
        return (uint32_t{ZNM_COMPONENT} << XTR_COMPONENT_SHIFT) | static_cast<uint32_t>(nFunction);
    }

    // Converts an argument to what can be passed through a variable argument list.
    template <class Arg>
    static Arg Raw(Arg arg)
    {
        return arg;
    }
    static const wchar_t* Raw(const CString& str) { return str; }
    static const char* Raw(const CW2A& narrow) { return narrow; }

    ZNM_FUNCTION m_nFunction;
    int m_nReturnCode = 0;
    bool m_fLeft = false;
};

inline CZNMTrace::CZNMTrace(ZNM_FUNCTION nFunction) noexcept : m_nFunction(nFunction)
{
    XTR_THREAD_AREA* const pArea = ThreadArea();
    if (pArea == nullptr)
        return;
    const uint32_t nEntry = Identifier(nFunction) | XTR_ENTRY_MARK;
    // Beyond the end of the array only the depth is counted: a tree can be deeper.
    if (pArea->nDepth < XTR_CALL_STACK_SIZE)
        pArea->aCallStack[pArea->nDepth] = nEntry;
    ++pArea->nDepth;
    AddToHistory(*pArea, nEntry);
    if (pArea->fTraceActive)
        xtr_FNC_entry(pArea, ZNM_COMPONENT, nFunction);
}

inline CZNMTrace::~CZNMTrace()
{
    if (!m_fLeft)
        RecordExit(m_nFunction, m_nReturnCode);
}

inline void CZNMTrace::Leave(int nReturnCode) noexcept
{
    RecordExit(m_nFunction, nReturnCode);
    m_fLeft = true;
}

inline void CZNMTrace::Text(const char* pszText) const
{
    if (XTR_THREAD_AREA* const pArea = AreaIfWanted(XTR_OPTIONS_TEXT))
        xtr_FNC_text(ZNM_COMPONENT, m_nFunction, pArea, 0, pszText);
}

inline void CZNMTrace::RecordExit(ZNM_FUNCTION nFunction, int nReturnCode) noexcept
{
    XTR_THREAD_AREA* const pArea = ThreadArea(); // not the entry's, which can be another or none
    if (pArea == nullptr)
        return;
    // After a failed authority check an exit is recorded without an entry, at depth 0.
    if (pArea->nDepth > 0)
        --pArea->nDepth;
    AddToHistory(*pArea, (static_cast<uint32_t>(nReturnCode) << 16) + Identifier(nFunction));
    if (pArea->fTraceActive)
        xtr_FNC_retcode(pArea, ZNM_COMPONENT, nFunction, nReturnCode);
}

inline XTR_THREAD_AREA* CZNMTrace::ThreadArea() noexcept
{
    return static_cast<XTR_THREAD_AREA*>(TlsGetValue(xihTLSIndex));
}

inline XTR_THREAD_AREA* CZNMTrace::AreaIfWanted(uint32_t nOptions) noexcept
{
    const bool fEverything = xihProcess.fTraceEverything != 0;
    if (xihProcess.fTraceEnabled == 0 || (xihProcess.nConsumers <= 0 && !fEverything))
        return nullptr;
    XTR_THREAD_AREA* const pArea = ThreadArea();
    if (pArea == nullptr)
        return nullptr;
    return fEverything || (pArea->fDetailed != 0 && (pArea->nOptions & nOptions) != 0) ? pArea : nullptr;
}

inline void CZNMTrace::AddToHistory(XTR_THREAD_AREA& area, uint32_t nEntry) noexcept
{
    area.aHistory[area.nHistory++ & (XTR_HISTORY_SIZE - 1)] = nEntry;
}
