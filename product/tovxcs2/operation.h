// The frame of the library's exported operations: their outcome, and their lines in the trace.
#pragma once

#include <windows.h>

#include <cstdint>

#include "returncodes.h"

// What an operation came to: its return code and, with XCS_RC_SYSTEM, the system's error code where it gave
// one.
struct Outcome
{
    Outcome(int32_t nResult, uint32_t nReason = 0) : nCode(nResult), nSystemError(nReason) {}

    int32_t nCode;
    uint32_t nSystemError;
};

// The outcome of a call to the system that has just failed.
inline Outcome SystemRefused()
{
    return {XCS_RC_SYSTEM, GetLastError()};
}

// An exported operation in the trace, at the depth of the function that calls it. What operations call within
// the library leaves no lines. The area's history, call stack and depth are the program's and stay as they
// are.
class OperationTrace
{
  public:
    // Traces the entry.
    explicit OperationTrace(const char* pszName) noexcept;

    // Traces a line made from a format as xtr_parms takes it, behind the operation's name.
    template <class... Args>
    void Parms(const char* pszFormat, Args... args) const noexcept
    {
        if (m_fTraced)
            Write(pszFormat, args...);
    }

    // Traces the exit. Returns the outcome's code.
    int32_t Leave(const Outcome& outcome) const noexcept;

  private:
    void Write(const char* pszFormat, ...) const noexcept;

    const char* m_pszName;
    bool m_fTraced;
};

// Runs the body of an exported operation, which gets the operation's trace and returns its outcome. Nothing
// is raised but a shortage of memory, whose outcome is nOutOfMemory.
template <class Body>
int32_t Operation(const char* pszName, Body body, int32_t nOutOfMemory = XCS_RC_NO_MEMORY) noexcept
{
    const OperationTrace trace(pszName);
    try
    {
        return trace.Leave(body(trace));
    }
    catch (...)
    {
        return trace.Leave(nOutOfMemory);
    }
}
