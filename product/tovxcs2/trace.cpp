// Writes the function trace: a file for each process, a line for each record, a call tree by indentation.
// Must not fail or stop the program that it watches. Every record is handed to the system at once, so that
// the trace of a program that is killed is complete.
#include "trace.h"

#include <windows.h>

#include <algorithm>
#include <chrono>
#include <cstdarg>
#include <memory>

#include "operation.h"
#include "owner.h"
#include "text.h"
#include "tovxcs2.h"
#include "tracetext.h"
#include "workpath.h"

uint32_t xihTLSIndex = TlsAlloc(); // lives as long as the library
XIH_PROCESS xihProcess = {};

namespace
{
constexpr uint32_t MAX_INDENT = 64; // deeper levels are not told apart

using Clock = std::chrono::steady_clock;

struct TraceFile
{
    SRWLOCK lock = SRWLOCK_INIT;
    FileHandle file;
    Clock::time_point start;
};
TraceFile s_trace;

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

void EndTrace()
{
    const Lock lock(s_trace.lock);
    xihProcess = {};
    s_trace.file.Close();
    delete CurrentThreadState();
    TlsSetValue(xihTLSIndex, nullptr); // cannot fail where setting a value did not
}

void WriteTraceLine(uint32_t nDepth, const std::string& strText)
{
    const Lock lock(s_trace.lock);
    if (!s_trace.file)
        return;
    const std::chrono::duration<double> passed = Clock::now() - s_trace.start;
    std::string strLine = Format("%12.6f  ", passed.count());
    for (uint32_t i = 0; i < nDepth && i < MAX_INDENT; ++i)
        strLine += "|  ";
    WriteWorkFile(s_trace.file, strLine + strText + "\r\n"); // what cannot be written is lost
}

void WriteTraceLine(const std::string& strText)
{
    if (const ThreadState* const pState = CurrentThreadState())
        WriteTraceLine(pState->area.nDepth, strText);
}

OperationTrace::OperationTrace(const char* pszName) noexcept
    : m_pszName(pszName), m_fTraced(xihProcess.fTraceEnabled != 0)
{
    if (m_fTraced)
        WithoutFailing([&] { WriteTraceLine(std::string("> ") + m_pszName); });
}

int32_t OperationTrace::Leave(const Outcome& outcome) const noexcept
{
    if (m_fTraced)
        WithoutFailing([&] {
            std::string strLine = std::string("< ") + m_pszName + " = " + ReturnCodeText(outcome.nCode);
            if (outcome.nSystemError != 0)
                strLine += ", " + ToUtf8Line(ErrorText(outcome.nSystemError));
            WriteTraceLine(strLine);
        });
    return outcome.nCode;
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
        s_trace.start = Clock::now();
        WriteWorkFile(s_trace.file, "Started " + UtcNow() + Format(", process %lu: ", GetCurrentProcessId()) +
                                        ToUtf8Line(GetCommandLineW()) +
                                        "\r\n     seconds  > entered, < left with its return code\r\n");
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
        if (pArea != nullptr) // the entry is counted already
            WriteTraceLine(std::max(pArea->nDepth, 1u) - 1, "> " + FunctionName(nComponent, nFunction));
    });
}

void xtr_FNC_retcode(XTR_THREAD_AREA* pArea, int32_t nComponent, int32_t nFunction, int32_t nReturnCode)
{
    WithoutFailing([&] {
        const bool fResult = nReturnCode != 0 || HasResult(nComponent, nFunction);
        if (pArea != nullptr)
            WriteTraceLine(pArea->nDepth, "< " + FunctionName(nComponent, nFunction) +
                                              (fResult ? Format(" = %d", nReturnCode) : ""));
    });
}

void xtr_parms(const char* pszFormat, ...)
{
    va_list args;
    va_start(args, pszFormat);
    WithoutFailing([&] { WriteTraceLine(". " + ToUtf8Line(FormatTrace(pszFormat, args))); });
    va_end(args);
}

void xtr_FNC_text(int32_t, int32_t, XTR_THREAD_AREA* pArea, int32_t, const char* pszText)
{
    WithoutFailing([&] {
        if (pArea != nullptr && pszText != nullptr)
            WriteTraceLine(pArea->nDepth, "- " + ToUtf8Line(WidenForDisplay(pszText)));
    });
}
