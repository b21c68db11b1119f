// The library's side of the function trace.
#pragma once

#include <cstdint>

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

// Gives the calling thread a zeroed state, or takes it away again. False when there is no memory for one.
bool CreateThreadState();
void DestroyThreadState();

// Ends the trace of this process.
void CloseTrace();
