// The product's utility library: tells users of common-services failures. Must write nothing but to standard
// error.
#include "tovxzu.h"

#include <windows.h>
#include <lmcons.h>

#include <cstdio>

void zutMapRCTo8bit(int32_t* pnReturnCode)
{
    if (pnReturnCode == nullptr || *pnReturnCode == 0)
        return;
    constexpr int32_t LOW_BYTE = 0xFF;
    const int32_t nLow = *pnReturnCode & LOW_BYTE;
    *pnReturnCode = nLow != 0 ? nLow : LOW_BYTE;
}

void zutDisplayCSPError(const XCS_CONNECTION*, int32_t nStatus, int32_t nReturnCode, const XCS_INSERTS*)
{
    wchar_t szName[UNLEN + 1] = L"?";
    DWORD nSize = ARRAYSIZE(szName);
    GetUserNameW(szName, &nSize);            // leaves the question mark where it fails
    char szUser[4 * ARRAYSIZE(szName)] = ""; // the console's code page may need so many bytes a character
    WideCharToMultiByte(CP_OEMCP, 0, szName, -1, szUser, sizeof szUser, nullptr, nullptr);
    const auto nCode = static_cast<unsigned>(nReturnCode);
    constexpr char NO_VOLUME_SECURITY[] =
        "User '%s' may not administer Vantor ZN queue managers, nor may anybody else: the work path "
        "lies on a volume that keeps no access lists (code 0x%08X, status %d).\n"
        "Move the work path, which ZN_WORK_PATH or the registry names, to a volume that keeps them "
        "(NTFS or ReFS), then run the command again.\n";
    constexpr char NOT_AUTHORIZED[] =
        "User '%s' is not authorized to administer Vantor ZN queue managers (code 0x%08X, status %d).\n"
        "Ask for membership of the local group 'znm' or 'Administrators', sign in again, and run the "
        "command from an elevated command prompt.\n";
    fprintf(stderr, nReturnCode == XCS_RC_NO_VOLUME_SECURITY ? NO_VOLUME_SECURITY : NOT_AUTHORIZED, szUser,
            nCode, nStatus);
}
