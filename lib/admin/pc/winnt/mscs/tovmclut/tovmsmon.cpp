// Finds, queries and stops a queue manager through the product's common services. Must not write messages:
// the migration procedure decides what an answer means for the move.
#include "tovmsmon.h"

#include <cstring>
#include <optional>
#include <string>

#include "atlconv.h"
#include "tovmsrid.h"
#include "tovmtrce.h"

ZNM_SOURCE_ID(ZNM_CLUSTER_LIBRARY("tovmsmon"));

namespace
{
constexpr int STATE_UNAVAILABLE = -1;
constexpr int STATE_NOT_RUNNING = 0;
constexpr int STATE_RUNNING = 3;

// A queue manager of this installation, or of none, belongs to the primary installation if there is no
// installation of this name.
constexpr char DEFAULT_INSTALLATION[] = "Installation0";

const char* StopOption(int16_t nStopType)
{
    switch (nStopType)
    {
    case ZNM_STOP_IMMEDIATE:
        return "-i";
    case ZNM_STOP_PREEMPTIVE:
        return "-p";
    case ZNM_STOP_RECONNECT_PREEMPTIVE:
        return "-rp";
    case ZNM_STOP_RECONNECT_IMMEDIATE:
        return "-ri";
    default:
        return "-w";
    }
}

// Returns the text of a record's field, or nothing if the field has no terminator.
template <size_t SIZE>
std::optional<std::string> TextOf(const char (&szField)[SIZE])
{
    const size_t nLength = strnlen(szField, SIZE);
    return nLength < SIZE ? std::optional(std::string(szField, nLength)) : std::nullopt;
}
} // namespace

IMPLEMENT_DYNAMIC(CZNMQueueMgr, CCmdTarget)

void CZNMRecordDeleter::operator()(void* pRecord) const noexcept
{
    constexpr int32_t MEMORY_COMPONENT = 23;
    xcsFreeMemFn(nullptr, MEMORY_COMPONENT, nullptr, pRecord);
}

CZNMQueueMgr::CZNMQueueMgr(const wchar_t* pszQueueManagerName) : m_strName(pszQueueManagerName)
{
    CZNMTrace trace(FN_QUEUE_MGR_CTOR);
    trace.Parms("CZNMQueueMgr::CZNMQueueMgr()(pszQueueManagerName = %S)", m_strName);
    if (Refresh() != 1)
        trace.Text("Queue manager could not be found");
}

CZNMQueueMgr::~CZNMQueueMgr()
{
    const CZNMTrace trace(FN_QUEUE_MGR_DTOR);
    m_pDetails.reset();
    m_pInstallation.reset();
}

int CZNMQueueMgr::Refresh()
{
    CZNMTrace trace(FN_QUEUE_MGR_REFRESH);
    m_pDetails.reset();
    if (!m_strName.IsEmpty() && FetchDetails() && FetchInstallation())
        return trace.Return(1);
    m_pDetails.reset();
    m_pInstallation.reset();
    return trace.Return(0);
}

bool CZNMQueueMgr::FetchDetails()
{
    XCS_SCRATCH scratch = {};
    XCS_QM_DETAILS* pDetails = nullptr;
    const int32_t nResult = xcsGetQMDetails(CW2A(m_strName), &scratch, &pDetails);
    m_pDetails.reset(pDetails);
    return nResult == 0 && m_pDetails != nullptr;
}

// Keeps the installation record as long as it is the one that the details name.
bool CZNMQueueMgr::FetchInstallation()
{
    const char* const pszName = m_pDetails->szInstallationName;
    if (m_pInstallation && xcsCompareInstallations(m_pInstallation.get(), pszName) == 0)
        return true;
    m_pInstallation.reset();

    const int32_t nResult = FetchInstallation(pszName, XCS_INSTALLATION_BY_NAME);
    if (nResult != XCS_RC_UNKNOWN_INSTALLATION)
        return nResult == 0 && m_pInstallation != nullptr;
    if (*pszName != '\0' && xcsCompareInstallations(pszName, DEFAULT_INSTALLATION) != 0)
        return false;
    return FetchInstallation(nullptr, XCS_INSTALLATION_PRIMARY) == 0 && m_pInstallation != nullptr;
}

int32_t CZNMQueueMgr::FetchInstallation(const char* pszName, int32_t nSelector)
{
    XCS_SCRATCH scratch = {};
    XCS_INSTALLATION_DETAILS* pInstallation = nullptr;
    const int32_t nResult =
        xcsGetInstallationDetails(pszName, nullptr, nullptr, nSelector, nullptr, &scratch, &pInstallation);
    m_pInstallation.reset(pInstallation);
    return nResult;
}

int CZNMQueueMgr::IsMultiInstance()
{
    CZNMTrace trace(FN_QUEUE_MGR_IS_MULTI_INSTANCE);
    return trace.Return(Refresh() == 1 && (m_pDetails->fFlags & XCS_QM_MULTI_INSTANCE) != 0 ? 1 : 0);
}

int CZNMQueueMgr::IsRunning()
{
    CZNMTrace trace(FN_QUEUE_MGR_IS_RUNNING);
    if (Refresh() != 1)
        return trace.Return(0);
    if (GetState() == STATE_RUNNING)
    {
        trace.Text("Queue manager is RUNNING");
        return trace.Return(1);
    }
    trace.Text("Queue manager is NOT RUNNING");
    return trace.Return(0);
}

int CZNMQueueMgr::GetState()
{
    CZNMTrace trace(FN_QUEUE_MGR_GET_STATE);
    if (Refresh() != 1)
    {
        trace.Text("Queue Manager not available!");
        return trace.Return(STATE_UNAVAILABLE);
    }
    constexpr int32_t ACTIVITY_OPTIONS = 2;
    const int32_t nResult = xcsIsSubpoolActive(m_pDetails->szSubpool, m_pDetails->szDirectory, nullptr,
                                               ACTIVITY_OPTIONS, m_pInstallation->szIdentity);
    return trace.Return(nResult == 0 ? STATE_RUNNING : STATE_NOT_RUNNING);
}

const char* CZNMQueueMgr::GetDirectoryName()
{
    CZNMTrace trace(FN_QUEUE_MGR_GET_DIRECTORY_NAME);
    const bool fFound = trace.Return(Refresh()) == 1;
    return fFound ? m_pDetails->szDirectory : nullptr;
}

const char* CZNMQueueMgr::GetDataDirectory()
{
    CZNMTrace trace(FN_QUEUE_MGR_GET_DATA_DIRECTORY);
    const bool fFound = trace.Return(Refresh()) == 1;
    return fFound ? m_pDetails->szDataDirectory : nullptr;
}

std::string CZNMQueueMgr::GetPlace() const
{
    if (!m_pDetails)
        return {};
    return TextOf(m_pDetails->szDataDirectory).value_or("") + '\0' +
           TextOf(m_pDetails->szDirectory).value_or("");
}

int32_t CZNMQueueMgr::Stop(int16_t nStopType)
{
    CZNMTrace trace(FN_QUEUE_MGR_STOP);
    trace.Parms("CZNMQueueMgr::Stop()(nStopType = %d)", nStopType);
    if (Refresh() != 1)
    {
        trace.Text("Queue Manager not available!");
        return trace.Return(-1);
    }
    if (IsRunning() != 1)
    {
        trace.Text("Queue Manager not running!");
        return trace.Return(0);
    }
    if (!m_pDetails || !m_pInstallation) // released by a refresh of the running test
        return trace.Return(-1);
    const auto strInstallationPath = TextOf(m_pInstallation->szPath);
    const auto strName = TextOf(m_pDetails->szName);
    if (!strInstallationPath || !strName)
        return trace.Return(-1);

    const std::string strProgram = *strInstallationPath + "\\bin64\\endznm.exe";
    // Zero-separated words; the string's own terminator is the empty word at the end.
    const std::string strWords = strProgram + '\0' + StopOption(nStopType) + '\0' + *strName + '\0';

    // The meaning of these values is the library's own.
    constexpr int32_t CALLER_COMPONENT = 31;
    constexpr int32_t WAIT_FOR_END = 1;
    constexpr int32_t HANDLE_OPTION = 2;
    constexpr int32_t START_OPTIONS = 34;
    int32_t nExitCode = 0;
    const int32_t nResult =
        xcsExecProgramHandle(CALLER_COMPONENT, strProgram.c_str(), WAIT_FOR_END, strWords.c_str(), nullptr,
                             HANDLE_OPTION, START_OPTIONS, nullptr, nullptr, nullptr, &nExitCode, nullptr);
    return trace.Return(nResult != 0 ? -1 : nExitCode);
}
