// Console messages: the only way in which this program writes to its user.
#pragma once

#include <windows.h>

#include <cstdint>

// Message types. Any other value writes no message; see ZNMessageConsole.
constexpr int32_t ZNM_MESSAGE_STDOUT = 1;
constexpr int32_t ZNM_MESSAGE_STDERR = 2;

class CZNMUtil
{
  public:
    // Writes message nMessageID of the string table, in the user's language, as the overload below does. An
    // identifier that the table lacks writes an empty line.
    static void ZNMessageConsole(int32_t eMsgType, uint32_t nMessageID);

    // Writes the text (zero-terminated, not null) as one line in the OEM code page and flushes the stream.
    // What of it does not fit 2,048 bytes is not written. For a type that is neither of the two above,
    // standard error receives the address of a literal instead.
    static void ZNMessageConsole(int32_t eMsgType, const wchar_t* pszMessage);
};
