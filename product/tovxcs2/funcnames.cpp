// Gives numbers their words. A number, once given, keeps its meaning: old traces are read with it.
#include "funcnames.h"

#include <algorithm>
#include <iterator>

#include "returncodes.h"
#include "text.h"
#include "tovxcs2.h"

namespace
{
struct Entry
{
    int32_t nFunction;
    bool fResult;
    const char* pszName;
};
constexpr bool RESULT = true;
constexpr bool NO_RESULT = false;

constexpr Entry CATALOGUE[] = {
    {26, NO_RESULT, "CZNMException::CZNMException"},
    {27, NO_RESULT, "CZNMException::~CZNMException"},
    {28, NO_RESULT, "CZNMException::Report"},
    {29, NO_RESULT, "CZNMFileSecurity::CZNMFileSecurity"},
    {30, NO_RESULT, "CZNMFileSecurity::~CZNMFileSecurity"},
    {31, RESULT, "CZNMFileSecurity::SetSecurityOnFiles"},
    {32, RESULT, "CZNMFileSecurity::DiskSupportsSecurity"},
    {33, RESULT, "CZNMFileSecurity::ChangeFileSecurity"},
    {34, RESULT, "CZNMFileSecurity::ChangeDirSecurity"},
    {35, RESULT, "CZNMFileSecurity::GetFileSecurityInfo"},
    {36, RESULT, "CZNMFileSecurity::SetFileSecurityInfo"},
    {43, NO_RESULT, "CZNMSecurityID::CZNMSecurityID"},
    {44, NO_RESULT, "CZNMSecurityID::~CZNMSecurityID"},
    {45, NO_RESULT, "CZNMSecurityID::CreateAdminSid"},
    {46, NO_RESULT, "CZNMSecurityID::CreateZnmSid"},
    {47, NO_RESULT, "CZNMSecurityID::CreateWorldSid"},
    {48, NO_RESULT, "CZNMSecurityID::CreateSystemSid"},
    {50, RESULT, "CZNMSecurityID::SetOwner"},
    {51, NO_RESULT, "CZNMSecurityID::CreateUserSid"},
    {53, NO_RESULT, "CZNMQueueMgr::CZNMQueueMgr"},
    {54, NO_RESULT, "CZNMQueueMgr::~CZNMQueueMgr"},
    {55, RESULT, "CZNMQueueMgr::IsRunning"},
    {57, RESULT, "CZNMQueueMgr::Stop"},
    {58, RESULT, "CZNMQueueMgr::GetState"},
    {59, RESULT, "CZNMQueueMgr::GetDataDirectory"},
    {60, RESULT, "CZNMQueueMgr::IsMultiInstance"},
    {61, RESULT, "CZNMQueueMgr::GetDirectoryName"},
    {62, RESULT, "CZNMQueueMgr::Refresh"},
    {80, NO_RESULT, "CZNMUtil::ZNMessageConsole(number)"},
    {82, NO_RESULT, "CZNMUtil::ZNMessageConsole(text)"},
    {166, NO_RESULT, "CZNMSCSApp::CZNMSCSApp"},
    {167, NO_RESULT, "CZNMSCSApp::~CZNMSCSApp"},
    {168, RESULT, "CZNMSCSApp::MigrateQueueManager"},
    {169, RESULT, "CZNMSCSApp::InitInstance"},
    {170, RESULT, "CZNMSCSApp::ExitInstance"},
    {171, RESULT, "CZNMSCSApp::CreateZNDirectory"},
    {173, RESULT, "CZNMSCSApp::CheckAndCreateZNDirectory"},
    {174, RESULT, "CZNMSCSApp::CopyZNFiles"},
    {176, RESULT, "CZNMSCSApp::DeleteZNFiles"},
    {177, NO_RESULT, "CZNMSCSApp::SetDataDest"},
    {178, NO_RESULT, "CZNMSCSApp::SetLogDest"},
    {179, RESULT, "_tmain"},
    {180, NO_RESULT, "CZNCmdLineInfo::CZNCmdLineInfo"},
    {181, NO_RESULT, "CZNCmdLineInfo::ParseParam"},
};
static_assert(std::ranges::is_sorted(CATALOGUE, {}, &Entry::nFunction));

struct ReturnCode
{
    int32_t nCode;
    const char* pszMeaning;
};

constexpr ReturnCode RETURN_CODES[] = {
    {XCS_RC_DIFFERENT, "different"},
    {XCS_RC_PARAMETER, "argument not allowed"},
    {XCS_RC_NOT_FOUND, "not found"},
    {XCS_RC_BAD_CONFIGURATION, "configuration cannot be used"},
    {XCS_RC_UNKNOWN_INSTALLATION, "no such installation"},
    {XCS_RC_TRUNCATED, "does not fit"},
    {XCS_RC_BAD_VALUE, "value cannot be kept in the file"},
    {XCS_RC_NOT_ACTIVE, "does not run"},
    {XCS_RC_SYSTEM, "the system refused"},
    {XCS_RC_NO_MEMORY, "out of memory"},
    {XCS_RC_NO_VOLUME_SECURITY, "volume keeps no access lists"},
};

const Entry* Find(int32_t nComponent, int32_t nFunction)
{
    const auto* const pEntry = std::ranges::lower_bound(CATALOGUE, nFunction, {}, &Entry::nFunction);
    const bool fFound =
        nComponent == CLUSTER_COMPONENT && pEntry != std::end(CATALOGUE) && pEntry->nFunction == nFunction;
    return fFound ? pEntry : nullptr;
}
} // namespace

std::string FunctionName(int32_t nComponent, int32_t nFunction)
{
    const Entry* const pEntry = Find(nComponent, nFunction);
    return pEntry != nullptr ? pEntry->pszName : Format("component %d function %d", nComponent, nFunction);
}

bool HasResult(int32_t nComponent, int32_t nFunction)
{
    const Entry* const pEntry = Find(nComponent, nFunction);
    return pEntry == nullptr || pEntry->fResult;
}

std::string ReturnCodeText(int32_t nReturnCode)
{
    if (nReturnCode == XCS_RC_OK)
        return "0";
    const auto* const pCode = std::ranges::find(RETURN_CODES, nReturnCode, &ReturnCode::nCode);
    const std::string strCode = Format("0x%08X", static_cast<unsigned>(nReturnCode));
    return pCode != std::end(RETURN_CODES) ? strCode + " (" + pCode->pszMeaning + ")" : strCode;
}
