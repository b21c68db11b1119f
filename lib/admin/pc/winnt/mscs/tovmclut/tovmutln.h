// Console messages: everything that the program itself writes for the user.
#pragma once

#include <cstdint>

// Message types.
constexpr int32_t ZNM_MESSAGE_STDOUT = 1;
constexpr int32_t ZNM_MESSAGE_STDERR = 2;

class CZNMUtil
{
  public:
    // Writes message nMessageID of the string table, in the user's language, in the same way as the overload
    // below. A number that the table does not contain writes an empty line.
    static void ZNMessageConsole(int32_t eMsgType, uint32_t nMessageID);

    // Writes pszMessage (zero-terminated, not null) as one line in the OEM code page to the stream of the
    // message type and flushes that stream. Of a longer text only the first 2,048 bytes are written. For an
    // unknown message type the text is not written: standard error receives a line with the address of a
    // literal.
    static void ZNMessageConsole(int32_t eMsgType, const wchar_t* pszMessage);
};
