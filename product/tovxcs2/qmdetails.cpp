// Looks queue managers up. Must not report a directory that is not exactly the queue manager's own.
#include "qmdetails.h"

#include "path.h"
#include "trace.h"

int32_t ReadQueueManagerDetails(const ConfigFile& file, const IniFile::Stanza& stanza,
                                XCS_QM_DETAILS& details)
{
    std::wstring strPrefix = file.ValueOrEmpty(stanza, "Prefix");
    const std::wstring strDirectory = file.ValueOrEmpty(stanza, "Directory");
    const std::wstring strName = file.ValueOrEmpty(stanza, "Name");
    if (strName.empty() || !IsAbsolutePath(strPrefix) || !IsDirectoryName(strDirectory))
        return XCS_RC_BAD_CONFIGURATION;
    RemoveTrailingBackslash(strPrefix);

    details = {};
    if (file.Value(stanza, "MultiInstance") == L"Yes")
        details.fFlags |= XCS_QM_MULTI_INSTANCE;
    const bool fFits = CopyToField(details.szName, strName) && CopyToField(details.szSubpool, strName) &&
                       CopyToField(details.szDirectory, strDirectory) &&
                       CopyToField(details.szDataDirectory, strPrefix + L"\\qmgrs\\" + strDirectory) &&
                       CopyToField(details.szInstallationName, file.ValueOrEmpty(stanza, "InstallationName"));
    return fFits ? XCS_RC_OK : XCS_RC_BAD_CONFIGURATION;
}

Outcome LookUpQueueManager(const char* pszName, XCS_QM_DETAILS& details)
{
    if (pszName == nullptr || *pszName == '\0')
        return XCS_RC_PARAMETER;
    ConfigFile file;
    if (const DWORD nError = file.OpenProduct())
        return {XCS_RC_SYSTEM, nError};
    const IniFile::Stanza* const pStanza = file.Find({"QueueManager", "Name", pszName});
    return pStanza != nullptr ? ReadQueueManagerDetails(file, *pStanza, details) : int32_t{XCS_RC_NOT_FOUND};
}

int32_t xcsGetQMDetails(const char* pszQMName, XCS_SCRATCH*, XCS_QM_DETAILS** ppDetails)
{
    return Operation("xcsGetQMDetails", [&](const OperationTrace& trace) -> Outcome {
        trace.Parms("(pszQMName = %s)", pszQMName);
        if (ppDetails == nullptr)
            return XCS_RC_PARAMETER;
        *ppDetails = nullptr;
        XCS_QM_DETAILS details = {};
        const Outcome outcome = LookUpQueueManager(pszQMName, details);
        if (outcome.nCode != XCS_RC_OK)
            return outcome;
        *ppDetails = new XCS_QM_DETAILS(details);
        trace.Parms("szDataDirectory = %s, szInstallationName = %s, fFlags = %d", details.szDataDirectory,
                    details.szInstallationName, details.fFlags);
        return XCS_RC_OK;
    });
}

void xcsFreeMemFn(void*, int32_t, void*, void* pRecord)
{
    ::operator delete(pRecord); // both kinds of record are plain data from operator new
}
