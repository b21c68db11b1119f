// Creates a directory. It gets its parent's access rights, never more.
#include <windows.h>

#include "returncodes.h"
#include "text.h"
#include "tovxcs2.h"
#include "trace.h"

int32_t xcsCreateDirectory(const char* pszPath, int32_t, void*, void*, int32_t, uint32_t* pnReason)
try
{
    OperationTrace trace("xcsCreateDirectory");
    trace.Parms("(pszPath = %s)", pszPath);
    if (pnReason == nullptr)
        return trace.Return(XCS_RC_PARAMETER);
    *pnReason = ERROR_INVALID_NAME;
    const auto strPath = pszPath != nullptr ? Widen(pszPath) : std::nullopt;
    if (!strPath)
        return trace.Return(XCS_RC_PARAMETER);
    const BOOL fCreated = CreateDirectoryW(strPath->c_str(), nullptr);
    const DWORD nError = GetLastError();
    *pnReason = fCreated ? ERROR_SUCCESS : nError;
    return trace.Return(fCreated ? XCS_RC_OK : XCS_RC_SYSTEM, *pnReason);
}
catch (...)
{
    return XCS_RC_NO_MEMORY; // nothing else is raised
}
