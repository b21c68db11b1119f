// Looks installations up. Must not report one whose path could be resolved against the caller's directory:
// its programs are started.
#include <cstring>

#include "config.h"
#include "path.h"
#include "returncodes.h"
#include "tovxcs2.h"
#include "trace.h"

namespace
{
const IniFile::Stanza* FindPrimary(const ConfigFile& file)
{
    const IniFile::Stanza* const pMarked = file.Find({"Installation", "Primary", "Yes"});
    return pMarked != nullptr ? pMarked : file.Find({"Installation"});
}

int32_t Fill(const ConfigFile& file, const IniFile::Stanza& stanza, XCS_INSTALLATION_DETAILS& details)
{
    std::wstring strPath = file.ValueOrEmpty(stanza, "Path");
    if (!IsAbsolutePath(strPath))
        return XCS_RC_BAD_CONFIGURATION;
    RemoveTrailingBackslash(strPath);
    const bool fFits = CopyToField(details.szName, file.ValueOrEmpty(stanza, "Name")) &&
                       CopyToField(details.szPath, strPath) &&
                       CopyToField(details.szIdentity, file.ValueOrEmpty(stanza, "Identity"));
    return fFits ? XCS_RC_OK : XCS_RC_BAD_CONFIGURATION;
}
} // namespace

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
        ConfigFile file;
        if (const DWORD nError = file.OpenProduct())
            return {XCS_RC_SYSTEM, nError};
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
