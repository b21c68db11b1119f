// Looks queue managers up. Must not report a directory that is not exactly the queue manager's own.
#include "qmdetails.h"

#include <windows.h>

#include <new>
#include <string_view>

#include "config.h"
#include "returncodes.h"
#include "trace.h"

namespace
{
// One component of a path, and the same one for the system: it would drop a dot or blank from the end.
bool IsDirectoryName(std::string_view strName)
{
    if (strName.empty() || strName.back() == '.' || strName.back() == ' ')
        return false;
    for (const char ch : strName)
        if (static_cast<unsigned char>(ch) < ' ')
            return false;
    return strName.find_first_of("\\/:?*<>|\"") == std::string_view::npos;
}
} // namespace

int32_t FindQueueManager(const char* pszName, XCS_QM_DETAILS& details)
{
    if (pszName == nullptr || *pszName == '\0')
        return XCS_RC_PARAMETER;
    const auto file = ConfigFile::OpenProduct();
    if (!file)
        return XCS_RC_SYSTEM;
    const IniFile::Stanza* const pStanza = file->Find({"QueueManager", "Name", pszName});
    if (pStanza == nullptr)
        return XCS_RC_NOT_FOUND;
    std::optional<std::string> strPrefix = file->Value(*pStanza, "Prefix");
    const auto strDirectory = file->Value(*pStanza, "Directory");
    if (!strPrefix || !strDirectory || !IsAbsolutePath(*strPrefix) || !IsDirectoryName(*strDirectory))
        return XCS_RC_BAD_CONFIGURATION;
    if (strPrefix->back() == '\\') // "E:\" and "E:" are the same prefix
        strPrefix->pop_back();

    details = {};
    if (file->Value(*pStanza, "MultiInstance") == "Yes")
        details.fFlags |= XCS_QM_MULTI_INSTANCE;
    const bool fFits =
        CopyToField(details.szName, pszName) && CopyToField(details.szDirectory, *strDirectory) &&
        CopyToField(details.szDataDirectory, *strPrefix + "\\qmgrs\\" + *strDirectory) &&
        CopyToField(details.szInstallationName, file->ValueOrEmpty(*pStanza, "InstallationName")) &&
        CopyToField(details.szSubpool, pszName);
    return fFits ? XCS_RC_OK : XCS_RC_BAD_CONFIGURATION;
}

int32_t xcsGetQMDetails(const char* pszQMName, XCS_SCRATCH*, XCS_QM_DETAILS** ppDetails)
try
{
    OperationTrace trace("xcsGetQMDetails");
    trace.Parms("(pszQMName = %s)", pszQMName);
    if (ppDetails == nullptr)
        return trace.Return(XCS_RC_PARAMETER);
    *ppDetails = nullptr;
    XCS_QM_DETAILS details = {};
    const int32_t nResult = FindQueueManager(pszQMName, details);
    const DWORD nError = GetLastError();
    if (nResult != XCS_RC_OK)
        return trace.Return(nResult, nError);
    void* const pRecord = ::operator new(sizeof details, std::nothrow);
    if (pRecord == nullptr)
        return trace.Return(XCS_RC_NO_MEMORY);
    *ppDetails = new (pRecord) XCS_QM_DETAILS(details);
    trace.Parms("szDataDirectory = %s, szInstallationName = %s, fFlags = %d", details.szDataDirectory,
                details.szInstallationName, details.fFlags);
    return trace.Return(XCS_RC_OK);
}
catch (...)
{
    return XCS_RC_NO_MEMORY; // nothing else is raised
}

void xcsFreeMemFn(void*, int32_t, void*, void* pRecord)
{
    ::operator delete(pRecord); // as both kinds of record are allocated
}
