// Makes the security identifiers and takes ownership. A failure is recorded and leaves the member null; it
// must not throw or stop the caller.
#include "tovmsebs.h"

#include <cstdlib>
#include <cwchar>
#include <iterator>

#include "tovmdbgn.h"
#include "tovmsrid.h"
#include "tovmtrce.h"

ZNM_SOURCE_ID(ZNM_CLUSTER_LIBRARY("tovmsebs"));

namespace
{
// True once the take-ownership privilege is enabled in the process token. Never reset.
bool s_fPrivilegeEnabled = false;

// Makes a caller's SID the member, unless it is null. Returns true if there was one. It may be the member.
template <class Owner>
bool Adopt(Owner& member, PSID pSidIn)
{
    if (pSidIn != nullptr && pSidIn != member.Get())
        member = Owner(pSidIn);
    return pSidIn != nullptr;
}

// Returns a SID of up to two sub-authorities, or null with the last error set.
AllocatedSid WellKnownSid(SID_IDENTIFIER_AUTHORITY authority, BYTE nCount, DWORD nFirst, DWORD nSecond = 0)
{
    AllocatedSid sid;
    AllocateAndInitializeSid(&authority, nCount, nFirst, nSecond, 0, 0, 0, 0, 0, 0, sid.Out());
    return sid;
}

// The failures of an account look-up, which the two accounts report differently.
struct LookupFailures
{
    ZNM_FUNCTION nFunction;
    ZNM_DIAGNOSTIC firstAllocation, firstLookup, secondAllocation, secondLookup;
};

constexpr LookupFailures ZNM_LOOKUP = {
    .nFunction = FN_CREATE_ZNM_SID,
    .firstAllocation = {.nProbe = 1, .pszFormat = L"Error allocating ZNM SID buffer (1)"},
    .firstLookup = {.nProbe = 5, .pszFormat = L"Error %d looking up ZNM account (1)"},
    .secondAllocation = {.nProbe = 3, .pszFormat = L"Error allocating ZNM SID buffer (2)"},
    .secondLookup = {.nProbe = 4, .pszFormat = L"Error %d looking up ZNM account name (2)"},
};
constexpr LookupFailures USER_LOOKUP = {
    .nFunction = FN_CREATE_USER_SID,
    .firstAllocation = {.nProbe = 12, .pszFormat = L"Error allocating User SID buffer (1)"},
    .firstLookup = {.nProbe = 16, .pszFormat = L"Error %d looking up User account (1)"},
    .secondAllocation = {.nProbe = 14, .pszFormat = L"Error allocating User SID buffer (2)"},
    .secondLookup = {.nProbe = 15, .pszFormat = L"Error %d looking up User account name (2)"},
};

// Puts the SID of an account into the member, in a new buffer. After a failure, which is recorded, the member
// is null.
void LookUpAccount(HeapSid& member, const wchar_t* pszAccount, const LookupFailures& failures)
{
    constexpr DWORD FIRST_SID_SIZE = 64;
    constexpr DWORD DOMAIN_SIZE = 1024;
    constexpr auto NAME_USE_UNKNOWN = static_cast<SID_NAME_USE>(8);
    wchar_t szDomain[DOMAIN_SIZE] = {};
    DWORD nSidSize = FIRST_SID_SIZE;
    DWORD nDomainSize = DOMAIN_SIZE;
    SID_NAME_USE eUse = NAME_USE_UNKNOWN;

    member = HeapSid(malloc(FIRST_SID_SIZE));
    if (!member)
        return CZNMDebug::RecordFailure(failures.nFunction, failures.firstAllocation);
    if (LookupAccountNameW(nullptr, pszAccount, member.Get(), &nSidSize, szDomain, &nDomainSize, &eUse))
        return;
    const DWORD nFirstError = GetLastError();
    if (nFirstError != ERROR_INSUFFICIENT_BUFFER)
    {
        CZNMDebug::RecordFailure(failures.nFunction, failures.firstLookup, nFirstError);
        return member.Close();
    }

    // By design the first buffer is not given back: 64 bytes for each look-up of a longer SID.
    member.Release();
    member = HeapSid(malloc(nSidSize));
    if (!member)
    {
        CZNMDebug::RecordFailure(failures.nFunction, failures.secondAllocation);
        nSidSize = 0; // by design it is still looked up and recorded; with this size nothing is written
    }
    nDomainSize = DOMAIN_SIZE; // the first call stored the size that it needed, which can be larger
    if (LookupAccountNameW(nullptr, pszAccount, member.Get(), &nSidSize, szDomain, &nDomainSize, &eUse))
        return;
    const DWORD nSecondError = GetLastError();
    CZNMDebug::RecordFailure(failures.nFunction, failures.secondLookup, nSecondError);
    member.Close();
}

// Enables the take-ownership privilege in the process token. By design only the return values count: for an
// account without the privilege the last call returns TRUE too, and the change of owner fails.
void EnableTakeOwnership()
{
    TOKEN_PRIVILEGES privileges = {};
    privileges.PrivilegeCount = 1;
    privileges.Privileges[0].Attributes = SE_PRIVILEGE_ENABLED;
    if (!LookupPrivilegeValueW(nullptr, L"SeTakeOwnershipPrivilege", &privileges.Privileges[0].Luid))
    {
        const DWORD nError = GetLastError();
        return CZNMDebug::RecordFailure(FN_SET_OWNER, 8, L"LookupPrivilegeValue() failed, error: %d", nError);
    }
    // By design the token is left open until the process ends. It is opened once unless the next call fails.
    HANDLE hToken = nullptr;
    if (!OpenProcessToken(GetCurrentProcess(), TOKEN_ADJUST_PRIVILEGES | TOKEN_QUERY, &hToken))
    {
        const DWORD nError = GetLastError();
        return CZNMDebug::RecordFailure(FN_SET_OWNER, 9, L"OpenProcessToken() failed, error: %d", nError);
    }
    if (!AdjustTokenPrivileges(hToken, FALSE, &privileges, 0, nullptr, nullptr))
    {
        const DWORD nError = GetLastError();
        return CZNMDebug::RecordFailure(FN_SET_OWNER, 10, L"AdjustTokenPrivileges() failed, error: %d",
                                        nError);
    }
    s_fPrivilegeEnabled = true;
}
} // namespace

CZNMSecurityID::CZNMSecurityID() : m_szRootPath{}
{
    const CZNMTrace trace(FN_SECURITY_ID_CTOR);
}

CZNMSecurityID::~CZNMSecurityID()
{
    const CZNMTrace trace(FN_SECURITY_ID_DTOR);
    m_pSystemSid.Close();
    m_pAdminSid.Close();
    m_pWorldSid.Close();
    m_pZnmSid.Close();
    m_pUserSid.Close();
}

void CZNMSecurityID::CreateAdminSid(PSID pSidIn)
{
    const CZNMTrace trace(FN_CREATE_ADMIN_SID);
    trace.Parms("CZNMSecurityID::CreateAdminSid() (pSidIn = %p)", pSidIn);
    if (Adopt(m_pAdminSid, pSidIn))
        return;
    m_pAdminSid =
        WellKnownSid(SECURITY_NT_AUTHORITY, 2, SECURITY_BUILTIN_DOMAIN_RID, DOMAIN_ALIAS_RID_ADMINS);
    const DWORD nError = GetLastError();
    if (!m_pAdminSid) // by design "world" in this text, too: the function tells them apart
        CZNMDebug::RecordFailure(FN_CREATE_ADMIN_SID, 0, L"Error %d creating world SID", nError);
}

void CZNMSecurityID::CreateZnmSid(PSID pSidIn)
{
    const CZNMTrace trace(FN_CREATE_ZNM_SID);
    trace.Parms("CZNMSecurityID::CreateZnmSid() (pSidIn = %p)", pSidIn);
    if (!Adopt(m_pZnmSid, pSidIn))
        LookUpAccount(m_pZnmSid, L"znm", ZNM_LOOKUP);
}

void CZNMSecurityID::CreateSystemSid(PSID pSidIn)
{
    const CZNMTrace trace(FN_CREATE_SYSTEM_SID);
    trace.Parms("CZNMSecurityID::CreateSystemSid() (pSidIn = %p)", pSidIn);
    if (Adopt(m_pSystemSid, pSidIn))
        return;
    m_pSystemSid = WellKnownSid(SECURITY_NT_AUTHORITY, 1, SECURITY_LOCAL_SYSTEM_RID);
    const DWORD nError = GetLastError();
    if (!m_pSystemSid)
        CZNMDebug::RecordFailure(FN_CREATE_SYSTEM_SID, 7, L"Error %d creating system SID", nError);
}

void CZNMSecurityID::CreateWorldSid(PSID pSidIn)
{
    const CZNMTrace trace(FN_CREATE_WORLD_SID);
    trace.Parms("CZNMSecurityID::CreateWorldSid() (pSidIn = %p)", pSidIn);
    if (Adopt(m_pWorldSid, pSidIn))
        return;
    m_pWorldSid = WellKnownSid(SECURITY_WORLD_SID_AUTHORITY, 1, SECURITY_WORLD_RID);
    const DWORD nError = GetLastError();
    if (!m_pWorldSid)
        CZNMDebug::RecordFailure(FN_CREATE_WORLD_SID, 6, L"Error %d creating world SID", nError);
}

void CZNMSecurityID::CreateUserSid(PSID pSidIn, const wchar_t* pszUser)
{
    const CZNMTrace trace(FN_CREATE_USER_SID);
    trace.Parms("CZNMSecurityID::CreateUserSid() (pSidIn = %p, pszUser = %S)", pSidIn, pszUser);
    if (Adopt(m_pUserSid, pSidIn))
        return;
    if (pszUser == nullptr || *pszUser == L'\0')
        trace.Text("No user name specified");
    else
        LookUpAccount(m_pUserSid, pszUser, USER_LOOKUP);
}

BOOL CZNMSecurityID::SetOwner(const wchar_t* pszObjectName, SE_OBJECT_TYPE ObjectType)
{
    CZNMTrace trace(FN_SET_OWNER);
    trace.Parms("CZNMSecurityID::SetOwner() (pszObjectName = %S, ObjectType = %d)", pszObjectName,
                static_cast<int>(ObjectType));
    constexpr wchar_t MACHINE[] = L"MACHINE";
    CString strObject(pszObjectName);
    if (ObjectType == SE_REGISTRY_KEY && _wcsnicmp(strObject, MACHINE, std::size(MACHINE) - 1) != 0)
        strObject = CString(MACHINE) + L"\\" + strObject;

    CreateAdminSid(m_pAdminSid.Get());
    if (!m_pAdminSid)
        return trace.Return(TRUE);
    if (!s_fPrivilegeEnabled)
        EnableTakeOwnership();

    // The system's function takes the name as writable but only reads it.
    const DWORD nResult =
        SetNamedSecurityInfoW(const_cast<wchar_t*>(static_cast<const wchar_t*>(strObject)), ObjectType,
                              OWNER_SECURITY_INFORMATION, m_pAdminSid.Get(), nullptr, nullptr, nullptr);
    if (nResult == ERROR_SUCCESS)
        trace.Parms("Set ownership on '%S'", strObject);
    else if (nResult != ERROR_FILE_NOT_FOUND && nResult != ERROR_PATH_NOT_FOUND)
        CZNMDebug::RecordFailure(FN_SET_OWNER, 11, L"Error %d setting ownership on '%s'", nResult,
                                 static_cast<const wchar_t*>(strObject));
    return trace.Return(TRUE);
}
