// Interface of the product's utility library tovxzu.dll.
#pragma once

#include <cstdint>

#include "tovxcs2.h"

#ifndef ZUT_API
#define ZUT_API __declspec(dllimport)
#endif

extern "C"
{
    // Maps a common-services return code, in place, to a value that fits an 8-bit exit status; 0 stays 0 and
    // no failure becomes 0.
    ZUT_API void zutMapRCTo8bit(int32_t* pnReturnCode);

    // Tells the user, on standard error, of a common-services failure: what may not be done and what to do
    // about it. nStatus is the exit status that the program is going to end with.
    ZUT_API void zutDisplayCSPError(const XCS_CONNECTION* pConnection, int32_t nStatus, int32_t nReturnCode,
                                    const XCS_INSERTS* pInserts);
}
