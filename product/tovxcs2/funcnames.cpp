// Names functions by their numbers. A number, once given, keeps its meaning: old traces are read with it.
#include "funcnames.h"

#include <algorithm>
#include <iterator>

#include "text.h"

namespace
{
struct Entry
{
    int32_t nFunction;
    const char* pszName;
};

constexpr Entry CATALOGUE[] = {
    {26, "CZNMException::CZNMException"},
    {27, "CZNMException::~CZNMException"},
    {28, "CZNMException::Report"},
    {29, "CZNMFileSecurity::CZNMFileSecurity"},
    {30, "CZNMFileSecurity::~CZNMFileSecurity"},
    {31, "CZNMFileSecurity::SetSecurityOnFiles"},
    {32, "CZNMFileSecurity::DiskSupportsSecurity"},
    {33, "CZNMFileSecurity::ChangeFileSecurity"},
    {34, "CZNMFileSecurity::ChangeDirSecurity"},
    {35, "CZNMFileSecurity::GetFileSecurityInfo"},
    {36, "CZNMFileSecurity::SetFileSecurityInfo"},
    {43, "CZNMSecurityID::CZNMSecurityID"},
    {44, "CZNMSecurityID::~CZNMSecurityID"},
    {45, "CZNMSecurityID::CreateAdminSid"},
    {46, "CZNMSecurityID::CreateZnmSid"},
    {47, "CZNMSecurityID::CreateWorldSid"},
    {48, "CZNMSecurityID::CreateSystemSid"},
    {50, "CZNMSecurityID::SetOwner"},
    {51, "CZNMSecurityID::CreateUserSid"},
    {53, "CZNMQueueMgr::CZNMQueueMgr"},
    {54, "CZNMQueueMgr::~CZNMQueueMgr"},
    {55, "CZNMQueueMgr::IsRunning"},
    {57, "CZNMQueueMgr::Stop"},
    {58, "CZNMQueueMgr::GetState"},
    {59, "CZNMQueueMgr::GetDataDirectory"},
    {60, "CZNMQueueMgr::IsMultiInstance"},
    {61, "CZNMQueueMgr::GetDirectoryName"},
    {62, "CZNMQueueMgr::Refresh"},
    {80, "CZNMUtil::ZNMessageConsole(number)"},
    {82, "CZNMUtil::ZNMessageConsole(text)"},
    {166, "CZNMSCSApp::CZNMSCSApp"},
    {167, "CZNMSCSApp::~CZNMSCSApp"},
    {168, "CZNMSCSApp::MigrateQueueManager"},
    {169, "CZNMSCSApp::InitInstance"},
    {170, "CZNMSCSApp::ExitInstance"},
    {171, "CZNMSCSApp::CreateZNDirectory"},
    {173, "CZNMSCSApp::CheckAndCreateZNDirectory"},
    {174, "CZNMSCSApp::CopyZNFiles"},
    {176, "CZNMSCSApp::DeleteZNFiles"},
    {177, "CZNMSCSApp::SetDataDest"},
    {178, "CZNMSCSApp::SetLogDest"},
    {179, "_tmain"},
    {180, "CZNCmdLineInfo::CZNCmdLineInfo"},
    {181, "CZNCmdLineInfo::ParseParam"},
};
static_assert(std::ranges::is_sorted(CATALOGUE, {}, &Entry::nFunction));
} // namespace

std::string FunctionName(int32_t nComponent, int32_t nFunction)
{
    const auto* const pEntry = std::ranges::lower_bound(CATALOGUE, nFunction, {}, &Entry::nFunction);
    if (nComponent == CLUSTER_COMPONENT && pEntry != std::end(CATALOGUE) && pEntry->nFunction == nFunction)
        return pEntry->pszName;
    return Format("component %d function %d", nComponent, nFunction);
}
