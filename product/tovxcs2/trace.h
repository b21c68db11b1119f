// The library's side of the function trace.
#pragma once

#include <windows.h>

#include <cstdint>
#include <string>

#include "returncodes.h"
#include "tovxtrc.h"

// A thread's trace area and what the library keeps with it. The area comes first: programs see nothing else.
struct ThreadState
{
    XTR_THREAD_AREA area;
    int64_t anEntered[XTR_CALL_STACK_SIZE]; // performance counter at each depth's entry
    const char* pszSourceId;                // for the next failure record; by reference
    int32_t nSourceLine;
};

// The calling thread's state, or null before its initialisation.
ThreadState* CurrentThreadState();

// Gives the calling thread a zeroed state, or takes it away again. False when the system has no room for it.
bool CreateThreadState();
void DestroyThreadState();

// Ends the trace of this process.
void CloseTrace();

// Whether the calling thread's records are wanted, and how deep it is.
bool IsTraced();
uint32_t TraceDepth();

// Writes a line into the trace, if there is one: time since the start, a bar for each level, the text.
void WriteTraceLine(uint32_t nDepth, const std::string& strText);

// Runs what must neither fail its caller nor change the last error, which the traced program has yet to read.
// False when memory was short: nothing else can fail.
template <class Body>
bool WithoutFailing(Body body) noexcept
{
    const DWORD nError = GetLastError();
    bool fDone = false;
    try
    {
        body();
        fDone = true;
    }
    catch (...)
    {
    }
    SetLastError(nError);
    return fDone;
}

// One of the library's own operations in the trace, at the depth of the function that calls it. Made for
// exported operations only: what these call within the library leaves no lines. The area's
// history, call stack and depth are the program's and stay as they are.
class OperationTrace
{
  public:
    explicit OperationTrace(const char* pszName) noexcept
        : m_pszName(pszName), m_fTraced(xihProcess.fTraceEnabled != 0)
    {
        if (m_fTraced)
            Enter();
    }
    ~OperationTrace()
    {
        if (m_fTraced)
            Leave();
    }
    OperationTrace(const OperationTrace&) = delete;
    OperationTrace& operator=(const OperationTrace&) = delete;

    // A line made from a format as xtr_parms takes it, behind the operation's name.
    template <class... Args>
    void Parms(const char* pszFormat, Args... args) const noexcept
    {
        if (m_fTraced)
            Write(pszFormat, args...);
    }

    // Makes this the operation's result, and hands its code back.
    int32_t Return(const Outcome& outcome) noexcept
    {
        m_outcome = outcome;
        return outcome.nCode;
    }

  private:
    void Enter() noexcept;
    void Leave() const noexcept;
    void Write(const char* pszFormat, ...) const noexcept;

    const char* m_pszName;
    Outcome m_outcome = XCS_RC_OK;
    bool m_fTraced;
    int64_t m_nEntered = 0;
};

// Runs the body of an exported operation, which gets the operation's trace and returns its outcome. Nothing
// is raised but a shortage of memory, whose outcome is nOutOfMemory.
template <class Body>
int32_t Operation(const char* pszName, Body body, int32_t nOutOfMemory = XCS_RC_NO_MEMORY) noexcept
{
    OperationTrace trace(pszName);
    try
    {
        return trace.Return(body(trace));
    }
    catch (...)
    {
        return trace.Return(nOutOfMemory);
    }
}
