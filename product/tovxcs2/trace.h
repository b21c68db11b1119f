// The library's side of the function trace.
#pragma once

#include <windows.h>

#include <cstdint>
#include <string>

#include "tovxtrc.h"

// A thread's trace area and what the library keeps with it. The area comes first: programs see nothing else.
struct ThreadState
{
    XTR_THREAD_AREA area;
    const char* pszSourceId; // for the next failure record; by reference
    int32_t nSourceLine;
};

// The calling thread's state, or null before its initialisation.
ThreadState* CurrentThreadState();

// Gives the calling thread a zeroed state. False when the system has no room for it.
bool CreateThreadState();

// Takes the calling thread's state away again, and ends the trace of this process.
void EndTrace();

// Writes a line into the trace, if there is one: time since the start, a bar for each level, the text.
// Without a depth it is that of the calling thread, and nothing is written if the thread has no trace area.
void WriteTraceLine(uint32_t nDepth, const std::string& strText);
void WriteTraceLine(const std::string& strText);

// Runs what must neither fail its caller nor change the last error, which the traced program has yet to read.
template <class Body>
void WithoutFailing(Body body) noexcept
{
    const DWORD nError = GetLastError();
    try
    {
        body();
    }
    catch (...)
    {
        // Out of memory, the only failure: the record is lost.
    }
    SetLastError(nError);
}
