// Decides whether the user may administer the product, and whether volumes keep access lists. Must not say
// yes where the answer could not be found.
#include <windows.h>

#include <algorithm>

#include "access.h"
#include "operation.h"
#include "text.h"
#include "tovxcs2.h"
#include "workpath.h"

namespace
{
// Of the calling thread's token, so that an elevated member of a group counts and a filtered one does not.
bool IsMember(PSID pSid)
{
    BOOL fMember = FALSE;
    return CheckTokenMembership(nullptr, pSid, &fMember) && fMember;
}

bool IsAdministrator()
{
    unsigned char abSid[SECURITY_MAX_SID_SIZE];
    DWORD nSize = sizeof abSid;
    return CreateWellKnownSid(WinBuiltinAdministratorsSid, nullptr, abSid, &nSize) && IsMember(abSid);
}

bool IsZnmMember()
{
    auto sid = ZnmGroupSid();
    return !sid.empty() && IsMember(sid.data());
}

// XCS_RC_OK, XCS_RC_NO_VOLUME_SECURITY, or another code when it could not be found out. strRoot is the
// volume's root, with a backslash at its end, once it is known.
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
} // namespace

int32_t xcsCheckAuthorization(int32_t)
{
    return Operation("xcsCheckAuthorization", [](const OperationTrace&) -> Outcome {
        // Where the work path's volume keeps no access lists anybody could have written what is read from it.
        std::wstring strRoot;
        if (TestVolumeSecurity(WorkPath(), strRoot).nCode == XCS_RC_NO_VOLUME_SECURITY)
            return XCS_RC_NO_VOLUME_SECURITY;
        return IsAdministrator() || IsZnmMember() ? XCS_RC_OK : XCS_RC_NOT_AUTHORIZED;
    });
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
