// Looks installations up. Must not report one whose path could be resolved against the caller's directory:
// its programs are started.
#include <cstring>
#include <new>

#include "config.h"
#include "returncodes.h"
#include "tovxcs2.h"
#include "trace.h"

namespace
{
const IniFile::Stanza* FindPrimary(const ConfigFile& file)
{
    const IniSelector marked = {"Installation", "Primary", "Yes"};
    const IniFile::Stanza* const pMarked = file.Ini().Find(marked);
    return pMarked != nullptr ? pMarked : file.Ini().Find({"Installation"});
}

// Names of installations are plain ASCII, the same in every code page.
const IniFile::Stanza* FindByName(const ConfigFile& file, const char* pszName)
{
    return file.Ini().Find({"Installation", "Name", pszName});
}

int32_t Fill(const ConfigFile& file, const IniFile::Stanza& stanza, XCS_INSTALLATION_DETAILS& details)
{
    std::string strPath = file.ValueOrEmpty(stanza, "Path");
    if (!IsAbsolutePath(strPath))
        return XCS_RC_BAD_CONFIGURATION;
    if (strPath.back() == '\\')
        strPath.pop_back();
    const bool fFits = CopyToField(details.szName, file.ValueOrEmpty(stanza, "Name")) &&
                       CopyToField(details.szPath, strPath) &&
                       CopyToField(details.szIdentity, file.ValueOrEmpty(stanza, "Identity"));
    return fFits ? XCS_RC_OK : XCS_RC_BAD_CONFIGURATION;
}
} // namespace

int32_t xcsGetInstallationDetails(const char* pszName, void*, void*, int32_t nSelector, void*, XCS_SCRATCH*,
                                  XCS_INSTALLATION_DETAILS** ppInstallation)
try
{
    OperationTrace trace("xcsGetInstallationDetails");
    trace.Parms("(pszName = %s, nSelector = %d)", pszName, nSelector);
    if (ppInstallation == nullptr)
        return trace.Return(XCS_RC_PARAMETER);
    *ppInstallation = nullptr;
    const bool fByName = nSelector == XCS_INSTALLATION_BY_NAME && pszName != nullptr;
    if (!fByName && nSelector != XCS_INSTALLATION_PRIMARY)
        return trace.Return(XCS_RC_PARAMETER);
    const auto file = ConfigFile::OpenProduct();
    const DWORD nError = GetLastError();
    if (!file)
        return trace.Return(XCS_RC_SYSTEM, nError);
    const IniFile::Stanza* const pStanza = fByName ? FindByName(*file, pszName) : FindPrimary(*file);
    if (pStanza == nullptr)
        return trace.Return(XCS_RC_UNKNOWN_INSTALLATION);
    XCS_INSTALLATION_DETAILS details = {};
    if (const int32_t nResult = Fill(*file, *pStanza, details))
        return trace.Return(nResult);
    void* const pRecord = ::operator new(sizeof details, std::nothrow);
    if (pRecord == nullptr)
        return trace.Return(XCS_RC_NO_MEMORY);
    *ppInstallation = new (pRecord) XCS_INSTALLATION_DETAILS(details);
    trace.Parms("szName = %s, szPath = %s, szIdentity = %s", details.szName, details.szPath,
                details.szIdentity);
    return trace.Return(XCS_RC_OK);
}
catch (...)
{
    return XCS_RC_NO_MEMORY; // nothing else is raised
}

int32_t xcsCompareInstallations(const void* pInstallation, const char* pszName)
{
    OperationTrace trace("xcsCompareInstallations");
    const auto* const pszInstallation = static_cast<const char*>(pInstallation);
    trace.Parms("(pInstallation = %s, pszName = %s)", pszInstallation, pszName);
    if (pszInstallation == nullptr || pszName == nullptr)
        return trace.Return(XCS_RC_PARAMETER);
    return trace.Return(std::strcmp(pszInstallation, pszName) == 0 ? XCS_RC_OK : XCS_RC_DIFFERENT);
}
