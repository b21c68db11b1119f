// Return codes of the library beyond those that its interface names.
#pragma once

#include <cstdint>

// Constant, value, meaning: the trace shows it.
#define XCS_RETURN_CODES(CODE)                                                                               \
    CODE(XCS_RC_DIFFERENT, 1, "different")                                                                   \
    CODE(XCS_RC_PARAMETER, 0x10006109, "argument not allowed")                                               \
    CODE(XCS_RC_LEVEL_MISMATCH, 0x10006110, "the caller was built for another level")                        \
    CODE(XCS_RC_NOT_FOUND, 0x10006162, "not found")                                                          \
    CODE(XCS_RC_TRUNCATED, 0x10006165, "does not fit the buffer")                                            \
    CODE(XCS_RC_BAD_VALUE, 0x10006166, "value cannot be kept in the file")                                   \
    CODE(XCS_RC_NOT_ACTIVE, 0x10006171, "does not run")                                                      \
    CODE(XCS_RC_SYSTEM, 0x20006118, "the system refused")                                                    \
    CODE(XCS_RC_NO_MEMORY, 0x20006121, "out of memory")                                                      \
    CODE(XCS_RC_BAD_CONFIGURATION, 0x20006163, "configuration cannot be used")                               \
    CODE(XCS_RC_NOT_INITIALIZED, 0x20006172, "not initialised")                                              \
    CODE(XCS_RC_INITIALIZED, 0x20006173, "initialised already")                                              \
    CODE(XCS_RC_NOT_AUTHORIZED, 0x40806170, "the user is in neither group")

#define XCS_ENUMERATOR(constant, value, meaning) constant = (value),
enum XCS_RC : int32_t
{
    XCS_RC_OK = 0,
    XCS_RETURN_CODES(XCS_ENUMERATOR)
};
#undef XCS_ENUMERATOR
