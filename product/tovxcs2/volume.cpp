// Asks volumes whether they keep access lists. Must not guess: what could not be asked has a code of its own.
#include "volume.h"

#include <windows.h>

#include <algorithm>

#include "returncodes.h"
#include "text.h"
#include "tovxcs2.h"
#include "trace.h"

Outcome TestVolumeSecurity(const std::wstring& strPath, std::wstring& strRoot)
{
    strRoot.clear();
    if (strPath.empty())
        return XCS_RC_PARAMETER;
    // The root is part of the path, or what the system adds to it.
    std::wstring strBuffer(strPath.size() + MAX_PATH + 2, L'\0');
    if (!GetVolumePathNameW(strPath.c_str(), strBuffer.data(), static_cast<DWORD>(strBuffer.size())))
        return SystemRefused();
    strRoot.assign(strBuffer, 0, strBuffer.find(L'\0'));
    DWORD fFlags = 0;
    if (!GetVolumeInformationW(strRoot.c_str(), nullptr, 0, nullptr, nullptr, &fFlags, nullptr, 0))
        return SystemRefused();
    return (fFlags & FILE_PERSISTENT_ACLS) != 0 ? int32_t{XCS_RC_OK} : XCS_RC_NO_VOLUME_SECURITY;
}

int32_t xcsVolumeSupportsSecurity(const char* pszPath, uint32_t* pnRootLength)
{
    return Operation("xcsVolumeSupportsSecurity", [&](const OperationTrace& trace) -> Outcome {
        trace.Parms("(pszPath = %s)", pszPath);
        const auto strPath = pszPath != nullptr ? Widen(pszPath) : std::nullopt;
        if (!strPath)
            return XCS_RC_PARAMETER;
        std::wstring strRoot;
        const Outcome outcome = TestVolumeSecurity(*strPath, strRoot);
        // "E:" lies on the root "E:\", of which it has only two characters.
        const size_t nLength = std::min(strRoot.size(), strPath->size());
        if (pnRootLength != nullptr && nLength > 0 &&
            CompareStringOrdinal(strRoot.c_str(), static_cast<int>(nLength), strPath->c_str(),
                                 static_cast<int>(nLength), TRUE) == CSTR_EQUAL)
            *pnRootLength = static_cast<uint32_t>(nLength);
        return outcome;
    });
}
