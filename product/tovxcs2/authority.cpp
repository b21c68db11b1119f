// Decides whether the user may administer the product. Must not say yes where the answer could not be found.
#include <windows.h>

#include "access.h"
#include "returncodes.h"
#include "tovxcs2.h"
#include "trace.h"
#include "volume.h"
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
