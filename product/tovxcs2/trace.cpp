// Writes the function trace: a file for each process, a line for each record, a call tree by indentation.
// Must not fail or stop the program that it watches. Every record is handed to the system at once, so that a
// program that is killed leaves its whole story.
#include "trace.h"

#include <windows.h>

#include <cstdarg>
#include <memory>

#include "funcnames.h"
#include "owner.h"
#include "returncodes.h"
#include "text.h"
#include "traceformat.h"
#include "tovxcs2.h"
#include "workfile.h"

uint32_t xihTLSIndex = TlsAlloc(); // lives as long as the library
XIH_PROCESS xihProcess = {};

namespace
{
constexpr uint32_t MAX_INDENT = 64; // deeper levels are told by their number

struct TraceFile
{
    SRWLOCK lock = SRWLOCK_INIT;
    FileHandle file;
    int64_t nStart = 0;     // performance counter
    int64_t nFrequency = 1; // counts a second
};
TraceFile s_trace;

int64_t Now()
{
    LARGE_INTEGER n = {};
    QueryPerformanceCounter(&n);
    return n.QuadPart;
}

double Seconds(int64_t nCounts)
{
    return static_cast<double>(nCounts) / static_cast<double>(s_trace.nFrequency);
}

std::string Spent(int64_t nEntered)
{
    return Format("  (%.3f ms)", Seconds(Now() - nEntered) * 1000);
}

bool WantsTrace(bool& fDetail)
{
    wchar_t szValue[16] = {};
    const DWORD nLength = GetEnvironmentVariableW(L"ZN_TRACE", szValue, ARRAYSIZE(szValue));
    const std::wstring_view strValue(szValue, nLength < ARRAYSIZE(szValue) ? nLength : 0);
    fDetail = strValue == L"detail";
    return fDetail || strValue == L"flow";
}
} // namespace

ThreadState* CurrentThreadState()
{
    // TlsGetValue clears the last error; the callers' callers may still want theirs.
    const DWORD nError = GetLastError();
    auto* const pState = static_cast<ThreadState*>(TlsGetValue(xihTLSIndex));
    SetLastError(nError);
    return pState;
}

bool CreateThreadState()
{
    auto pState = std::make_unique<ThreadState>();
    return TlsSetValue(xihTLSIndex, pState.get()) && pState.release() != nullptr;
}

void DestroyThreadState()
{
    delete CurrentThreadState();
    TlsSetValue(xihTLSIndex, nullptr); // cannot fail where setting a value did not
}

void CloseTrace()
{
    const Lock lock(s_trace.lock);
    xihProcess = {};
    s_trace.file.Close();
}

bool IsTraced()
{
    const ThreadState* const pState = CurrentThreadState();
    return xihProcess.fTraceEnabled != 0 && pState != nullptr && pState->area.fTraceActive != 0;
}

uint32_t TraceDepth()
{
    const ThreadState* const pState = CurrentThreadState();
    return pState != nullptr ? pState->area.nDepth : 0;
}

void WriteTraceLine(uint32_t nDepth, const std::string& strText)
{
    const Lock lock(s_trace.lock);
    if (!s_trace.file)
        return;
    std::string strLine = Format("%12.6f  ", Seconds(Now() - s_trace.nStart));
    for (uint32_t i = 0; i < nDepth && i < MAX_INDENT; ++i)
        strLine += "|  ";
    if (nDepth > MAX_INDENT)
        strLine += Format("(depth %u) ", nDepth);
    WriteWorkFile(s_trace.file, strLine + strText + "\r\n"); // what cannot be written is lost
}

void OperationTrace::Enter() noexcept
{
    WithoutFailing([&] {
        m_fTraced = IsTraced();
        m_nEntered = Now();
        if (m_fTraced)
            WriteTraceLine(TraceDepth(), std::string("> ") + m_pszName);
    });
}

void OperationTrace::Leave() const noexcept
{
    WithoutFailing([&] {
        std::string strLine = std::string("< ") + m_pszName + " = " + ReturnCodeText(m_outcome.nCode);
        if (m_outcome.nSystemError != 0)
            strLine += ", " + ToUtf8Line(ErrorText(m_outcome.nSystemError));
        WriteTraceLine(TraceDepth(), strLine + Spent(m_nEntered));
    });
}

void OperationTrace::Write(const char* pszFormat, ...) const noexcept
{
    va_list args;
    va_start(args, pszFormat);
    WithoutFailing([&] {
        const ThreadState* const pState = CurrentThreadState();
        if (pState != nullptr && pState->area.fDetailed != 0)
            WriteTraceLine(pState->area.nDepth + 1,
                           std::string(". ") + m_pszName + "() " + ToUtf8Line(FormatTrace(pszFormat, args)));
    });
    va_end(args);
}

int32_t xtrEstablishTraceStatus()
{
    ThreadState* const pState = CurrentThreadState();
    if (pState == nullptr)
        return XCS_RC_NOT_INITIALIZED;
    bool fDetail = false;
    if (!WantsTrace(fDetail))
        return XCS_RC_OK;
    int32_t nResult = XCS_RC_SYSTEM;
    WithoutFailing([&] {
        const Lock lock(s_trace.lock);
        if (!s_trace.file)
            s_trace.file = CreateWorkFile(L"trace", L".trc").file;
        if (!s_trace.file)
            return;
        LARGE_INTEGER nFrequency = {};
        QueryPerformanceFrequency(&nFrequency);
        s_trace.nFrequency = nFrequency.QuadPart;
        s_trace.nStart = Now();
        WriteWorkFile(s_trace.file,
                      "Started " + UtcNow() + Format(", process %lu: ", GetCurrentProcessId()) +
                          ToUtf8Line(GetCommandLineW()) +
                          "\r\n     seconds  > entered, < left with its return code (time spent)\r\n");
        xihProcess = {1, 1, 0};
        pState->area.fTraceActive = 1;
        pState->area.fDetailed = fDetail;
        pState->area.nOptions = fDetail ? XTR_OPTIONS_PARMS | XTR_OPTIONS_TEXT : 0;
        nResult = XCS_RC_OK;
    });
    return nResult;
}

void xtr_FNC_entry(XTR_THREAD_AREA* pArea, int32_t nComponent, int32_t nFunction)
{
    WithoutFailing([&] {
        ThreadState* const pState = CurrentThreadState();
        if (pState == nullptr || pArea != &pState->area)
            return;
        const uint32_t nDepth = pArea->nDepth > 0 ? pArea->nDepth - 1 : 0; // the entry is counted already
        if (nDepth < XTR_CALL_STACK_SIZE)
            pState->anEntered[nDepth] = Now();
        WriteTraceLine(nDepth, "> " + FunctionName(nComponent, nFunction));
    });
}

void xtr_FNC_retcode(XTR_THREAD_AREA* pArea, int32_t nComponent, int32_t nFunction, int32_t nReturnCode)
{
    WithoutFailing([&] {
        ThreadState* const pState = CurrentThreadState();
        if (pState == nullptr || pArea != &pState->area)
            return;
        std::string strLine = "< " + FunctionName(nComponent, nFunction);
        if (nReturnCode != 0 || HasResult(nComponent, nFunction))
            strLine += Format(" = %d", nReturnCode);
        const uint32_t nDepth = pArea->nDepth;
        if (nDepth < XTR_CALL_STACK_SIZE && pState->anEntered[nDepth] != 0)
        {
            strLine += Spent(pState->anEntered[nDepth]);
            pState->anEntered[nDepth] = 0;
        }
        WriteTraceLine(nDepth, strLine);
    });
}

void xtr_parms(const char* pszFormat, ...)
{
    va_list args;
    va_start(args, pszFormat);
    WithoutFailing([&] {
        if (const ThreadState* const pState = CurrentThreadState())
            WriteTraceLine(pState->area.nDepth, ". " + ToUtf8Line(FormatTrace(pszFormat, args)));
    });
    va_end(args);
}

void xtr_FNC_text(int32_t, int32_t, XTR_THREAD_AREA* pArea, int32_t, const char* pszText)
{
    WithoutFailing([&] {
        if (pArea != nullptr && pszText != nullptr)
            WriteTraceLine(pArea->nDepth, "- " + ToUtf8Line(WidenForDisplay(pszText)));
    });
}
