// Return codes of the library beyond those that its interface names.
#pragma once

#include <windows.h>

#include <cstdint>

enum XCS_RC : int32_t
{
    XCS_RC_OK = 0,
    XCS_RC_PARAMETER = 0x10006109,         // an argument is null, too long or not one of the allowed values
    XCS_RC_LEVEL_MISMATCH = 0x10006110,    // the caller was built for another level
    XCS_RC_NOT_FOUND = 0x10006162,         // no such queue manager, stanza or attribute
    XCS_RC_BAD_CONFIGURATION = 0x20006163, // a stanza is there, but what it says cannot be used
    XCS_RC_TRUNCATED = 0x10006165,         // the value does not fit the buffer
    XCS_RC_BAD_VALUE = 0x10006166,         // the value cannot be kept in a configuration file
    XCS_RC_NOT_AUTHORIZED = 0x40806170,    // the user is in neither group
    XCS_RC_NOT_ACTIVE = 0x10006171,        // the queue manager does not run
    XCS_RC_NOT_INITIALIZED = 0x20006172,   // the thread has no trace area, or the connection is not one
    XCS_RC_INITIALIZED = 0x20006173,       // the thread is initialised already
    XCS_RC_SYSTEM = 0x20006118,            // the system refused; nothing was changed
    XCS_RC_NO_MEMORY = 0x20006121,
    XCS_RC_DIFFERENT = 1, // two things that were compared are not the same
};

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
