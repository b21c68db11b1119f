// Looks queue managers up for the product's programs, the way every program does: through the common
// services. Must not read the configuration by itself.
#include "qmclient.h"

#include <windows.h>

#include <memory>

#include "text.h"

namespace
{
constexpr int32_t CLIENT_COMPONENT = 31;

struct RecordDeleter
{
    void operator()(void* pRecord) const { xcsFreeMemFn(nullptr, CLIENT_COMPONENT, nullptr, pRecord); }
};
using Details = std::unique_ptr<XCS_QM_DETAILS, RecordDeleter>;
using Installation = std::unique_ptr<XCS_INSTALLATION_DETAILS, RecordDeleter>;

Installation FindInstallation(const char* pszName, int32_t nSelector)
{
    XCS_SCRATCH scratch = {};
    XCS_INSTALLATION_DETAILS* pInstallation = nullptr;
    const int32_t nResult =
        xcsGetInstallationDetails(pszName, nullptr, nullptr, nSelector, nullptr, &scratch, &pInstallation);
    return Installation(nResult == 0 ? pInstallation : nullptr);
}

// A queue manager of no named installation belongs to the primary one.
Installation FindInstallationOf(const XCS_QM_DETAILS& details)
{
    Installation installation = FindInstallation(details.szInstallationName, XCS_INSTALLATION_BY_NAME);
    const bool fUnnamed = details.szInstallationName[0] == '\0' ||
                          xcsCompareInstallations(details.szInstallationName, "Installation0") == 0;
    if (!installation && fUnnamed)
        installation = FindInstallation(nullptr, XCS_INSTALLATION_PRIMARY);
    return installation;
}
} // namespace

CommonServices::CommonServices() : m_nResult(xcsCheckConsistency(XCS_VERSION_LEVEL))
{
    if (m_nResult == 0)
        m_nResult =
            xcsInitializeEx(CLIENT_COMPONENT, 0, nullptr, nullptr, nullptr, nullptr, nullptr, &m_connection);
}

CommonServices::~CommonServices()
{
    if (m_nResult == 0)
        xcsTerminate(&m_connection, 0); // at the program's end there is nobody to tell
}

void CommonServices::ReportFailure() const
{
    fprintf(
        stderr,
        "The Vantor ZN common services could not be started (code 0x%08X).\n"
        "Use the programs and libraries of one installation, of level " XCS_VERSION_LEVEL
        ", and check that this user can read zns.ini in the work path, which ZN_WORK_PATH or the registry "
        "names.\n",
        static_cast<unsigned>(m_nResult));
}

std::optional<QueueManager> FindQueueManager(const std::wstring& strName)
{
    const auto strNarrow = Narrow(strName);
    XCS_SCRATCH scratch = {};
    XCS_QM_DETAILS* pDetails = nullptr;
    if (!strNarrow || xcsGetQMDetails(strNarrow->c_str(), &scratch, &pDetails) != 0)
        return std::nullopt;
    const Details details(pDetails);
    const Installation installation = FindInstallationOf(*details);
    if (!installation)
        return std::nullopt;
    // The library made these texts from wide ones: nothing of them is lost.
    const auto wide = [](const char* psz) { return WidenForDisplay(psz); };
    const auto runObjects = RunObjectNames::Make(wide(details->szSubpool), wide(details->szDirectory),
                                                 wide(installation->szIdentity));
    if (!runObjects)
        return std::nullopt;
    return QueueManager{strName, wide(details->szDataDirectory), *runObjects};
}

std::string PrimaryInstallationName()
{
    const Installation installation = FindInstallation(nullptr, XCS_INSTALLATION_PRIMARY);
    return installation ? installation->szName : "";
}

void PrintLine(FILE* pStream, std::wstring_view strText)
{
    fprintf(pStream, "%s\n", ForConsole(strText).c_str());
    fflush(pStream);
}

void RestrictLibrarySearch()
{
    SetDllDirectoryW(L""); // a failure leaves the system's own order, in which that directory comes late
}
