// Brings the library up for a process and down again. Must leave nothing behind when it fails.
#include <windows.h>

#include <cstring>

#include "details.h"
#include "trace.h"

constexpr uint64_t CONNECTION_MARK = 0x4E4F435A4E54524CULL;

int32_t xcsCheckConsistency(const char* pszVersionLevel)
{
    return pszVersionLevel != nullptr && std::strcmp(pszVersionLevel, XCS_VERSION_LEVEL) == 0
               ? XCS_RC_OK
               : XCS_RC_LEVEL_MISMATCH;
}

int32_t xcsInitializeEx(int32_t, int32_t, void*, void*, void*, void*, void*, XCS_CONNECTION* pConnection)
{
    return Operation("xcsInitializeEx", [&](const OperationTrace&) -> Outcome {
        if (pConnection == nullptr)
            return XCS_RC_PARAMETER;
        *pConnection = {};
        if (CurrentThreadState() != nullptr)
            return XCS_RC_INITIALIZED;
        std::string strText; // without zns.ini no other operation would succeed
        if (const DWORD nError = ReadProductFile(strText))
            return {XCS_RC_SYSTEM, nError};
        if (!CreateThreadState())
            return XCS_RC_NO_MEMORY;
        *pConnection = {CONNECTION_MARK, GetCurrentProcessId()};
        return XCS_RC_OK;
    });
}

int32_t xcsTerminate(XCS_CONNECTION* pConnection, int32_t)
{
    if (pConnection == nullptr || pConnection->nHandle != CONNECTION_MARK || CurrentThreadState() == nullptr)
        return XCS_RC_NOT_INITIALIZED;
    EndTrace();
    *pConnection = {};
    return XCS_RC_OK;
}
