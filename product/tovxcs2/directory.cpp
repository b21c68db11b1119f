// Creates a directory. It gets its parent's access rights, never more.
#include <windows.h>

#include "operation.h"
#include "text.h"
#include "tovxcs2.h"

int32_t xcsCreateDirectory(const char* pszPath, int32_t, void*, void*, int32_t, uint32_t* pnReason)
{
    return Operation("xcsCreateDirectory", [&](const OperationTrace& trace) -> Outcome {
        trace.Parms("(pszPath = %s)", pszPath);
        if (pnReason == nullptr)
            return XCS_RC_PARAMETER;
        *pnReason = ERROR_INVALID_NAME;
        const auto strPath = pszPath != nullptr ? Widen(pszPath) : std::nullopt;
        if (!strPath)
            return XCS_RC_PARAMETER;
        const BOOL fCreated = CreateDirectoryW(strPath->c_str(), nullptr);
        const DWORD nError = GetLastError();
        *pnReason = fCreated ? ERROR_SUCCESS : nError;
        return fCreated ? Outcome(XCS_RC_OK) : Outcome(XCS_RC_SYSTEM, nError);
    });
}
