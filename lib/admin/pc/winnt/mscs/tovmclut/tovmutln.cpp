// Writes console messages. Must not add anything to a text: no prefix, no number, no time.
#include "tovmutln.h"

#include "afxwin.h"

#include <cstdio>

#include "tovmsrid.h"
#include "tovmtrce.h"

ZNM_SOURCE_ID(ZNM_CLUSTER_LIBRARY("tovmutln"));

void CZNMUtil::ZNMessageConsole(int32_t eMsgType, uint32_t nMessageID)
{
    const CZNMTrace trace(FN_MESSAGE_CONSOLE_BY_ID);
    trace.Parms("CZNMUtil::ZNMessageConsole() (eMsgType = %d, nMessageID = %u)", eMsgType, nMessageID);
    CString strMessage;
    // By design a message that cannot be loaded is an empty line: the usage line still tells of the failure.
    strMessage.LoadString(nMessageID);
    ZNMessageConsole(eMsgType, static_cast<const wchar_t*>(strMessage));
}

void CZNMUtil::ZNMessageConsole(int32_t eMsgType, const wchar_t* pszMessage)
{
    const CZNMTrace trace(FN_MESSAGE_CONSOLE_BY_TEXT);
    constexpr int MAX_MESSAGE = 2048;
    // By design the result is not checked, and what was converted is written: a text that was cut tells more
    // than none. The byte after the limit terminates it.
    char mbcsMsg[MAX_MESSAGE + 1] = {};
    WideCharToMultiByte(CP_OEMCP, 0, pszMessage, -1, mbcsMsg, MAX_MESSAGE, nullptr, nullptr);
    trace.Parms("CZNMUtil::ZNMessageConsole() (eMsgType = %d, mbcsMsg = %s)", eMsgType,
                static_cast<const char*>(mbcsMsg));

    FILE* const pStream = eMsgType == ZNM_MESSAGE_STDOUT ? stdout : stderr;
    if (eMsgType == ZNM_MESSAGE_STDOUT || eMsgType == ZNM_MESSAGE_STDERR)
        std::fputs(mbcsMsg, pStream);
    else // by design the address of a literal: no message of the command has another type
        std::fprintf(pStream, "%016llX",
                     static_cast<unsigned long long>(reinterpret_cast<uintptr_t>(L"???")));
    std::fputc('\n', pStream);
    std::fflush(pStream); // a failure cannot be reported to anyone
}
