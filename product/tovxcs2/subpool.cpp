// Tells whether a queue manager runs. Must answer "runs" when it cannot find out.
#include "returncodes.h"
#include "runobjects.h"
#include "text.h"
#include "tovxcs2.h"
#include "trace.h"

int32_t xcsIsSubpoolActive(const char* pszSubpool, const char* pszDirectory, void*, int32_t,
                           const char* pszInstallationIdentity)
{
    return Operation(
        "xcsIsSubpoolActive",
        [&](const OperationTrace& trace) -> Outcome {
            trace.Parms("(pszSubpool = %s, pszDirectory = %s, pszInstallationIdentity = %s)", pszSubpool,
                        pszDirectory, pszInstallationIdentity);
            if (pszSubpool == nullptr || pszDirectory == nullptr || pszInstallationIdentity == nullptr)
                return XCS_RC_PARAMETER;
            const auto strSubpool = Widen(pszSubpool);
            const auto strDirectory = Widen(pszDirectory);
            const auto strIdentity = Widen(pszInstallationIdentity);
            if (!strSubpool || !strDirectory || !strIdentity)
                return XCS_RC_PARAMETER;
            const auto names = RunObjectNames::Make(*strSubpool, *strDirectory, *strIdentity);
            if (!names) // a queue manager with such names cannot have been started
                return XCS_RC_NOT_ACTIVE;
            return IsRunning(*names) ? XCS_RC_OK : XCS_RC_NOT_ACTIVE;
        },
        XCS_RC_OK);
}
