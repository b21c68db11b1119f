// Makes the security identifiers and takes ownership. A failure is recorded and shows as a null member;
// nothing here throws or stops its caller.
#include "tovmsebs.h"

#include <cwchar>

#include "afxstr.h"
#include "tovmdbgn.h"
#include "tovmsrid.h"
#include "tovmtrce.h"
#include "tovxcs2.h"

ZNM_SOURCE_ID(ZNM_CLUSTER_LIBRARY("tovmsebs"));

namespace
{
// The take-ownership privilege was enabled in the process token. Never reset.
bool s_fPrivilegeEnabled = false;

// Takes over a SID that a caller brought; the member itself may be what is brought.
template <class Owner>
bool Adopt(Owner& member, PSID pSidIn)
{
    if (pSidIn != nullptr && pSidIn != member.get())
        member.reset(pSidIn);
    return pSidIn != nullptr;
}

// A SID of up to two sub-authorities; null with the last error set.
CZNMAllocatedSid WellKnownSid(SID_IDENTIFIER_AUTHORITY authority, BYTE nCount, DWORD nFirst,
                              DWORD nSecond = 0)
{
    PSID pSid = nullptr;
    return CZNMAllocatedSid(
        AllocateAndInitializeSid(&authority, nCount, nFirst, nSecond, 0, 0, 0, 0, 0, 0, &pSid) ? pSid
                                                                                               : nullptr);
}

// How the failures of an account look-up are reported; the two accounts differ in nothing else.
struct LookupFailures
{
    ZNM_FUNCTION nFunction;
    int nFirstAllocProbe;
    const wchar_t* pszFirstAlloc;
    int nFirstLookupProbe;
    const wchar_t* pszFirstLookup;
    int nSecondAllocProbe;
    const wchar_t* pszSecondAlloc;
    int nSecondLookupProbe;
    const wchar_t* pszSecondLookup;
};

constexpr LookupFailures ZNM_LOOKUP = {FN_CREATE_ZNM_SID,
                                       1,
                                       L"Error allocating ZNM SID buffer (1)",
                                       5,
                                       L"Error %d looking up ZNM account (1)",
                                       3,
                                       L"Error allocating ZNM SID buffer (2)",
                                       4,
                                       L"Error %d looking up ZNM account name (2)"};
constexpr LookupFailures USER_LOOKUP = {FN_CREATE_USER_SID,
                                        12,
                                        L"Error allocating User SID buffer (1)",
                                        16,
                                        L"Error %d looking up User account (1)",
                                        14,
                                        L"Error allocating User SID buffer (2)",
                                        15,
                                        L"Error %d looking up User account name (2)"};

// The SID of an account, in a buffer of its own; null after a failure, which is recorded.
void LookUpAccount(CZNMHeapSid& member, const wchar_t* pszAccount, const LookupFailures& failures)
{
    constexpr DWORD FIRST_SID_SIZE = 64;
    constexpr DWORD DOMAIN_SIZE = 1024;
    constexpr auto NAME_USE_UNKNOWN = static_cast<SID_NAME_USE>(8);
    wchar_t szDomain[DOMAIN_SIZE] = {};
    DWORD nSidSize = FIRST_SID_SIZE;
    DWORD nDomainSize = DOMAIN_SIZE;
    SID_NAME_USE eUse = NAME_USE_UNKNOWN;

    member.reset(malloc(FIRST_SID_SIZE));
    if (!member)
        return CZNMDebug::RecordFailure(failures.nFunction, failures.nFirstAllocProbe,
                                        failures.pszFirstAlloc);
    if (LookupAccountNameW(nullptr, pszAccount, member.get(), &nSidSize, szDomain, &nDomainSize, &eUse))
        return;
    const DWORD nFirstError = GetLastError();
    if (nFirstError != ERROR_INSUFFICIENT_BUFFER)
    {
        CZNMDebug::RecordFailure(failures.nFunction, failures.nFirstLookupProbe, failures.pszFirstLookup,
                                 nFirstError);
        return member.reset();
    }

    // The first buffer is abandoned on purpose: whoever was handed it may still look at it.
    static_cast<void>(member.release());
    member.reset(malloc(nSidSize));
    if (!member)
    {
        CZNMDebug::RecordFailure(failures.nFunction, failures.nSecondAllocProbe, failures.pszSecondAlloc);
        nSidSize = 0; // the look-up is made all the same, but must not write to where nothing is
    }
    nDomainSize = DOMAIN_SIZE; // the first call stored the size it wanted, which may be more than there is
    if (LookupAccountNameW(nullptr, pszAccount, member.get(), &nSidSize, szDomain, &nDomainSize, &eUse))
        return;
    const DWORD nSecondError = GetLastError();
    CZNMDebug::RecordFailure(failures.nFunction, failures.nSecondLookupProbe, failures.pszSecondLookup,
                             nSecondError);
    member.reset();
}

// Enables the take-ownership privilege in the process token. Judged by return values alone: an account that
// does not hold the privilege counts as having enabled it, and the change of owner then fails by itself.
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
    // The token stays open to the end of the process; it is opened once.
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
    m_pSystemSid.reset();
    m_pAdminSid.reset();
    m_pWorldSid.reset();
    m_pZnmSid.reset();
    m_pUserSid.reset();
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
    if (!m_pAdminSid) // readers of failure records know this one by "world", too
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

    CreateAdminSid(m_pAdminSid.get());
    if (!m_pAdminSid)
        return trace.Return(TRUE);
    if (!s_fPrivilegeEnabled)
        EnableTakeOwnership();

    // The function takes the name as writable but only reads it.
    const DWORD nResult =
        SetNamedSecurityInfoW(const_cast<wchar_t*>(static_cast<const wchar_t*>(strObject)), ObjectType,
                              OWNER_SECURITY_INFORMATION, m_pAdminSid.get(), nullptr, nullptr, nullptr);
    if (nResult == ERROR_SUCCESS)
        trace.Parms("Set ownership on '%S'", strObject);
    else if (nResult != ERROR_FILE_NOT_FOUND && nResult != ERROR_PATH_NOT_FOUND)
        CZNMDebug::RecordFailure(FN_SET_OWNER, 11, L"Error %d setting ownership on '%s'", nResult,
                                 static_cast<const wchar_t*>(strObject));
    return trace.Return(TRUE);
}
