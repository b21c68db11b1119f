// Looks queue managers and installations up. Must not report a directory that is not exactly the queue
// manager's own, nor an installation whose path depends on the caller's directory: its programs are started.
// Must say that a queue manager runs when that cannot be found out.
#include "details.h"

#include <cstring>

#include "path.h"
#include "replacefile.h"
#include "runobjects.h"
#include "workpath.h"

namespace
{
const IniFile::Stanza* FindPrimary(const IniFile& file)
{
    const IniFile::Stanza* const pMarked = file.Find({"Installation", "Primary", "Yes"});
    return pMarked != nullptr ? pMarked : file.Find({"Installation"});
}

int32_t Fill(const IniFile& file, const IniFile::Stanza& stanza, XCS_INSTALLATION_DETAILS& details)
{
    std::wstring strPath = WideValue(file, stanza, "Path");
    if (!IsAbsolutePath(strPath))
        return XCS_RC_BAD_CONFIGURATION;
    RemoveTrailingBackslash(strPath);
    const bool fFits = CopyToField(details.szName, WideValue(file, stanza, "Name")) &&
                       CopyToField(details.szPath, strPath) &&
                       CopyToField(details.szIdentity, WideValue(file, stanza, "Identity"));
    return fFits ? XCS_RC_OK : XCS_RC_BAD_CONFIGURATION;
}
} // namespace

DWORD ReadProductFile(std::string& strText)
{
    const std::wstring strWorkPath = WorkPath();
    return strWorkPath.empty() ? DWORD{ERROR_BAD_PATHNAME}
                               : ReadWholeFile(strWorkPath + L"\\zns.ini", strText);
}

std::wstring WideValue(const IniFile& file, const IniFile::Stanza& stanza, std::string_view strAttribute)
{
    return Widen(file.Value(stanza, strAttribute).value_or("")).value_or(L"");
}

int32_t ReadQueueManagerDetails(const IniFile& file, const IniFile::Stanza& stanza, XCS_QM_DETAILS& details)
{
    std::wstring strPrefix = WideValue(file, stanza, "Prefix");
    const std::wstring strDirectory = WideValue(file, stanza, "Directory");
    const std::wstring strName = WideValue(file, stanza, "Name");
    if (strName.empty() || !IsAbsolutePath(strPrefix) || !IsDirectoryName(strDirectory))
        return XCS_RC_BAD_CONFIGURATION;
    RemoveTrailingBackslash(strPrefix);

    details = {};
    if (WideValue(file, stanza, "MultiInstance") == L"Yes")
        details.fFlags |= XCS_QM_MULTI_INSTANCE;
    const bool fFits = CopyToField(details.szName, strName) && CopyToField(details.szSubpool, strName) &&
                       CopyToField(details.szDirectory, strDirectory) &&
                       CopyToField(details.szDataDirectory, strPrefix + L"\\qmgrs\\" + strDirectory) &&
                       CopyToField(details.szInstallationName, WideValue(file, stanza, "InstallationName"));
    return fFits ? XCS_RC_OK : XCS_RC_BAD_CONFIGURATION;
}

Outcome LookUpQueueManager(const char* pszName, XCS_QM_DETAILS& details)
{
    if (pszName == nullptr || *pszName == '\0')
        return XCS_RC_PARAMETER;
    std::string strText;
    if (const DWORD nError = ReadProductFile(strText))
        return {XCS_RC_SYSTEM, nError};
    const IniFile file(std::move(strText));
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

int32_t xcsGetInstallationDetails(const char* pszName, void*, void*, int32_t nSelector, void*, XCS_SCRATCH*,
                                  XCS_INSTALLATION_DETAILS** ppInstallation)
{
    return Operation("xcsGetInstallationDetails", [&](const OperationTrace& trace) -> Outcome {
        trace.Parms("(pszName = %s, nSelector = %d)", pszName, nSelector);
        if (ppInstallation == nullptr)
            return XCS_RC_PARAMETER;
        *ppInstallation = nullptr;
        const bool fByName = nSelector == XCS_INSTALLATION_BY_NAME && pszName != nullptr;
        if (!fByName && nSelector != XCS_INSTALLATION_PRIMARY)
            return XCS_RC_PARAMETER;
        std::string strText;
        if (const DWORD nError = ReadProductFile(strText))
            return {XCS_RC_SYSTEM, nError};
        const IniFile file(std::move(strText));
        const IniFile::Stanza* const pStanza =
            fByName ? file.Find({"Installation", "Name", pszName}) : FindPrimary(file);
        if (pStanza == nullptr)
            return XCS_RC_UNKNOWN_INSTALLATION;
        XCS_INSTALLATION_DETAILS details = {};
        if (const int32_t nResult = Fill(file, *pStanza, details))
            return nResult;
        *ppInstallation = new XCS_INSTALLATION_DETAILS(details);
        trace.Parms("szName = %s, szPath = %s, szIdentity = %s", details.szName, details.szPath,
                    details.szIdentity);
        return XCS_RC_OK;
    });
}

int32_t xcsCompareInstallations(const void* pInstallation, const char* pszName)
{
    return Operation("xcsCompareInstallations", [&](const OperationTrace& trace) -> Outcome {
        const auto* const pszInstallation = static_cast<const char*>(pInstallation);
        trace.Parms("(pInstallation = %s, pszName = %s)", pszInstallation, pszName);
        if (pszInstallation == nullptr || pszName == nullptr)
            return XCS_RC_PARAMETER;
        return std::strcmp(pszInstallation, pszName) == 0 ? XCS_RC_OK : XCS_RC_DIFFERENT;
    });
}

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
