// Builds access lists and applies them. Everyone must never be given new access: an entry for Everyone is
// only set again where the old access list had one.
#include "tovmflse.h"

#include <algorithm>
#include <cstring>
#include <cwchar>
#include <cwctype>

#include "atlconv.h"
#include "tovmdbgn.h"
#include "tovmsrid.h"
#include "tovmtrce.h"
#include "tovxcs2.h"

ZNM_SOURCE_ID(ZNM_CLUSTER_LIBRARY("tovmflse"));

namespace
{
// The last answer of the volume test. By design all objects share it, although each remembers for itself
// which volume it tested last: how often the product is asked depends on that.
BOOL s_fDiskSupportsSecurity = TRUE;

// SIDs found in an access list.
constexpr uint32_t SID_ADMIN = 0x01;
constexpr uint32_t SID_SYSTEM = 0x02;
constexpr uint32_t SID_WORLD = 0x04;
constexpr uint32_t SID_ZNM = 0x08;
constexpr uint32_t SID_USER = 0x10;

constexpr DWORD MAX_ENTRIES = 5;
constexpr DWORD INHERIT_ALL = SUB_CONTAINERS_AND_OBJECTS_INHERIT;

// The fixed part of an entry; its SID follows.
struct AceHeaderAndMask
{
    ACE_HEADER header;
    ACCESS_MASK mask;
};
static_assert(sizeof(AceHeaderAndMask) == 8);

// The system's functions take names as writable but only read them.
wchar_t* Writable(const wchar_t* psz)
{
    return const_cast<wchar_t*>(psz);
}

bool IsDirectory(const WIN32_FIND_DATAW& entry)
{
    return (entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
}

bool IsDotEntry(const WIN32_FIND_DATAW& entry)
{
    return std::wcscmp(entry.cFileName, L".") == 0 || std::wcscmp(entry.cFileName, L"..") == 0;
}

// One of the two searches that a walk makes in each directory.
struct Search
{
    FINDEX_SEARCH_OPS eOperation;
    ZNM_DIAGNOSTIC failure;
};

constexpr Search FILE_SEARCH = {
    .eOperation = FindExSearchNameMatch,
    .failure = {.nProbe = 1, .pszFormat = L"FindFirstFileEx(1) error %d, path '%s'"},
};
constexpr Search DIRECTORY_SEARCH = {
    .eOperation = FindExSearchLimitToDirectories,
    .failure = {.nProbe = 2, .pszFormat = L"FindFirstFileEx(2) error %d, path '%s'"},
};

// A search that fails with one of these found nothing, which is not a failure of the walk.
bool IsNothingFound(DWORD nError)
{
    return nError == ERROR_FILE_NOT_FOUND || nError == ERROR_PATH_NOT_FOUND || nError == ERROR_INVALID_NAME;
}

// Calls visit for every entry that matches pszPattern. FALSE if a visit or the search failed; a visit that
// fails does not stop the loop. pszReported: the path that a failure record names.
template <class Visit>
BOOL VisitEntries(const Search& search, const wchar_t* pszPattern, const wchar_t* pszReported, Visit visit)
{
    WIN32_FIND_DATAW entry = {};
    const FindHandle find(
        FindFirstFileExW(pszPattern, FindExInfoStandard, &entry, search.eOperation, nullptr, 0));
    const DWORD nError = GetLastError();
    if (!find)
    {
        if (IsNothingFound(nError))
            return TRUE;
        CZNMDebug::RecordFailure(FN_SET_SECURITY_ON_FILES, search.failure, nError, pszReported);
        return FALSE;
    }
    BOOL fResult = TRUE;
    do
        fResult &= visit(entry);
    while (FindNextFileW(find.Get(), &entry));
    return fResult;
}
} // namespace

// The differences between files and directories.
struct CZNMFileSecurity::Variant
{
    ZNM_FUNCTION nFunction;
    DWORD nInheritance; // of the fixed entries
    ZNM_DIAGNOSTIC noSid;
    ZNM_DIAGNOSTIC unreadable; // without a text: no failure record is written
    ZNM_DIAGNOSTIC noAce, wrongAceType, invalidSid;
    ZNM_DIAGNOSTIC notMerged;
    ZNM_DIAGNOSTIC notSet;
    const char* pszDone;

    static const Variant File;
    static const Variant Directory;
};

const CZNMFileSecurity::Variant CZNMFileSecurity::Variant::File = {
    .nFunction = FN_CHANGE_FILE_SECURITY,
    .nInheritance = NO_INHERITANCE,
    .noSid = {.nProbe = 4, .pszFormat = L"Create SID error, file: %s"},
    .unreadable = {.nProbe = 5, .pszFormat = L"Error %d getting security info '%s'"},
    .noAce = {.nProbe = 6, .pszFormat = L"Unable to retrieve ACE in ACL!"},
    .wrongAceType = {.nProbe = 7, .pszFormat = L"Incorrect ACE type specified!"},
    .invalidSid = {.nProbe = 8, .pszFormat = L"Invalid SID specified in ACE!"},
    .notMerged = {.nProbe = 9, .pszFormat = L"Error %d merging ACLs on '%s'"},
    .notSet = {.nProbe = 10, .pszFormat = L"Error %d setting file security on '%s'"},
    .pszDone = "Set file security '%S'",
};

const CZNMFileSecurity::Variant CZNMFileSecurity::Variant::Directory = {
    .nFunction = FN_CHANGE_DIR_SECURITY,
    .nInheritance = INHERIT_ALL,
    .noSid = {.nProbe = 11, .pszFormat = L"Create SID error, directory: %s"},
    .unreadable = {}, // by design only traced: the probes of records depend on it
    .noAce = {.nProbe = 12, .pszFormat = L"Unable to retrieve ACE in ACL!"},
    .wrongAceType = {.nProbe = 13, .pszFormat = L"Incorrect ACE type specified!"},
    .invalidSid = {.nProbe = 14, .pszFormat = L"Invalid SID specified in ACE!"},
    .notMerged = {.nProbe = 15, .pszFormat = L"Dir security: error %d merging ACLs on '%s'"},
    .notSet = {.nProbe = 16, .pszFormat = L"Error %d setting directory security on '%s'"},
    .pszDone = "Set directory security '%S'",
};

// What a caller wants the entry for Everyone to be.
struct CZNMFileSecurity::World
{
    uint32_t nAccessMode;
    uint32_t nPermissions;
    uint32_t nInheritance;
};

// The access list of an object before the change.
struct CZNMFileSecurity::AccessList
{
    LocalBlock descriptor; // owns what pDacl points to
    PACL pDacl = nullptr;  // null: nothing to merge with
    uint32_t fSids = 0;    // SIDs that the list allows something
};

CZNMFileSecurity::CZNMFileSecurity(const wchar_t* pszUser) : m_strUser(pszUser)
{
    const CZNMTrace trace(FN_FILE_SECURITY_CTOR);
    trace.Parms("CZNMFileSecurity::CZNMFileSecurity() (pszUser = %S)", pszUser);
}

CZNMFileSecurity::~CZNMFileSecurity()
{
    const CZNMTrace trace(FN_FILE_SECURITY_DTOR);
}

// --- One object ----------------------------------------------------------------------------------

DWORD CZNMFileSecurity::GetFileSecurityInfo(const wchar_t* lpszObjectName, SE_OBJECT_TYPE ObjectType,
                                            SECURITY_INFORMATION SecurityInfo, PSID* ppOwner, PSID* ppGroup,
                                            PACL* ppDacl, PACL* ppSacl,
                                            PSECURITY_DESCRIPTOR* ppSecurityDescriptor)
{
    CZNMTrace trace(FN_GET_FILE_SECURITY_INFO);
    trace.Parms("CZNMFileSecurity::GetFileSecurityInfo() (lpszObjectName = %S, ...)", lpszObjectName);
    const DWORD nResult = GetNamedSecurityInfoW(Writable(lpszObjectName), ObjectType, SecurityInfo, ppOwner,
                                                ppGroup, ppDacl, ppSacl, ppSecurityDescriptor);
    if (nResult == ERROR_SUCCESS)
        trace.Text("Successfully retrieved security information on file!");
    return trace.Return(nResult);
}

DWORD CZNMFileSecurity::SetFileSecurityInfo(const wchar_t* lpszObjectName, SE_OBJECT_TYPE ObjectType,
                                            SECURITY_INFORMATION SecurityInfo, PSID pOwner, PSID pGroup,
                                            PACL pDacl, PACL pSacl)
{
    CZNMTrace trace(FN_SET_FILE_SECURITY_INFO);
    trace.Parms("CZNMFileSecurity::SetFileSecurityInfo() (lpszObjectName = %S, ...)", lpszObjectName);
    const DWORD nResult = SetNamedSecurityInfoW(Writable(lpszObjectName), ObjectType, SecurityInfo, pOwner,
                                                pGroup, pDacl, pSacl);
    if (nResult == ERROR_SUCCESS)
        trace.Text("Successfully set security information on file!");
    return trace.Return(nResult);
}

BOOL CZNMFileSecurity::ChangeFileSecurity(const wchar_t* pszPath, uint32_t fDiscard,
                                          uint32_t nWorldAccessMode, uint32_t nWorldPermissions)
{
    CZNMTrace trace(FN_CHANGE_FILE_SECURITY);
    trace.Parms("CZNMFileSecurity::ChangeFileSecurity() (pszPath = %S)", pszPath);
    const World world = {
        .nAccessMode = nWorldAccessMode, .nPermissions = nWorldPermissions, .nInheritance = NO_INHERITANCE};
    return trace.Return(ChangeSecurity(trace, Variant::File, pszPath, fDiscard != 0, world));
}

BOOL CZNMFileSecurity::ChangeDirSecurity(const wchar_t* pszPath, uint32_t fDiscard, uint32_t nWorldAccessMode,
                                         uint32_t nWorldPermissions, uint32_t nWorldInheritance)
{
    CZNMTrace trace(FN_CHANGE_DIR_SECURITY);
    trace.Parms("CZNMFileSecurity::ChangeDirSecurity() (pszPath = %S)", pszPath);
    if (!DiskSupportsSecurity(pszPath))
        return trace.Return(TRUE);
    const World world = {.nAccessMode = nWorldAccessMode,
                         .nPermissions = nWorldPermissions,
                         .nInheritance = nWorldInheritance};
    return trace.Return(ChangeSecurity(trace, Variant::Directory, pszPath, fDiscard != 0, world));
}

BOOL CZNMFileSecurity::ChangeSecurity(const CZNMTrace& trace, const Variant& variant, const wchar_t* pszPath,
                                      bool fDiscard, const World& world)
{
    if (!CreateSids())
    {
        CZNMDebug::RecordFailure(variant.nFunction, variant.noSid, pszPath);
        return FALSE;
    }

    AccessList old;
    BOOL fSuccess = TRUE;
    if (!fDiscard)
    {
        trace.Text("SID's retrieved successfully!");
        fSuccess = ReadAccessList(trace, variant, pszPath, old);
    }
    const bool fAlreadyHasAccess = HasAccess(old.fSids);
    trace.Parms("fSuccess = %d, fAlreadyHasAccess = %d", fSuccess, static_cast<int>(fAlreadyHasAccess));
    if (!fSuccess || fAlreadyHasAccess)
        return fSuccess;

    const LocalAcl newDacl = BuildAccessList(trace, variant, pszPath, world, old);
    return newDacl && WriteAccessList(trace, variant, pszPath, newDacl.Get());
}

// Makes each SID that an access list needs. Returns true if all of them exist.
bool CZNMFileSecurity::CreateSids()
{
    CreateSystemSid(m_pSystemSid.Get());
    CreateWorldSid(m_pWorldSid.Get());
    CreateAdminSid(m_pAdminSid.Get());
    CreateZnmSid(m_pZnmSid.Get());
    CreateUserSid(m_pUserSid.Get(), m_strUser);
    return m_pWorldSid && m_pAdminSid && m_pZnmSid && m_pSystemSid && (m_pUserSid || m_strUser.IsEmpty());
}

// True if an access list with these SIDs needs no further entry. An entry for Everyone does not count.
bool CZNMFileSecurity::HasAccess(uint32_t fSids) const
{
    const uint32_t fWanted = SID_ADMIN | SID_SYSTEM | SID_ZNM | (m_pUserSid ? SID_USER : 0);
    return (fSids & fWanted) == fWanted;
}

// Reads and scans the access list. FALSE if it exists and cannot be read.
BOOL CZNMFileSecurity::ReadAccessList(const CZNMTrace& trace, const Variant& variant, const wchar_t* pszPath,
                                      AccessList& list)
{
    PACL pDacl = nullptr;
    const DWORD nResult = GetFileSecurityInfo(pszPath, SE_FILE_OBJECT, DACL_SECURITY_INFORMATION, nullptr,
                                              nullptr, &pDacl, nullptr, list.descriptor.Out());
    if (nResult == ERROR_SUCCESS)
    {
        trace.Text("Retrieved named security information!");
        list.pDacl = pDacl;
        list.fSids = ScanAccessList(trace, variant, pDacl);
        return TRUE;
    }
    if (nResult == ERROR_FILE_NOT_FOUND || nResult == ERROR_PATH_NOT_FOUND)
        return TRUE;
    if (variant.unreadable.pszFormat != nullptr)
        CZNMDebug::RecordFailure(variant.nFunction, variant.unreadable, nResult, pszPath);
    else
        trace.Parms("Error %u getting security info '%S'", nResult, pszPath);
    return FALSE;
}

// Returns the SIDs that the list allows something; the kind of access does not matter. An entry that cannot
// be judged ends the scan, and the SIDs found before it are returned.
uint32_t CZNMFileSecurity::ScanAccessList(const CZNMTrace& trace, const Variant& variant, PACL pDacl) const
{
    uint32_t fSids = 0;
    auto stop = [&](const ZNM_DIAGNOSTIC& reason) {
        CZNMDebug::RecordFailure(variant.nFunction, reason);
        return fSids;
    };
    const DWORD nCount = pDacl != nullptr ? pDacl->AceCount : 0; // no list is treated as an empty one
    for (DWORD i = 0; i < nCount; ++i)
    {
        void* pAce = nullptr;
        if (!GetAce(pDacl, i, &pAce))
            return stop(variant.noAce);
        const auto* const pHeader = static_cast<const AceHeaderAndMask*>(pAce);
        if (pHeader->header.AceType == ACCESS_DENIED_ACE_TYPE)
            continue;
        if (pHeader->header.AceType != ACCESS_ALLOWED_ACE_TYPE)
            return stop(variant.wrongAceType);
        PSID const pSid = static_cast<unsigned char*>(pAce) + sizeof(AceHeaderAndMask);
        if (!IsValidSid(pSid))
            return stop(variant.invalidSid);
        fSids |= KindOf(pSid);
        trace.Parms("Current SID Flags = %04X", fSids);
    }
    return fSids;
}

// Returns the SID_... value of a SID, or 0 for the SID of another account.
uint32_t CZNMFileSecurity::KindOf(PSID pSid) const
{
    if (EqualSid(pSid, m_pAdminSid.Get()))
        return SID_ADMIN;
    if (EqualSid(pSid, m_pSystemSid.Get()))
        return SID_SYSTEM;
    if (EqualSid(pSid, m_pWorldSid.Get()))
        return SID_WORLD;
    if (EqualSid(pSid, m_pZnmSid.Get()))
        return SID_ZNM;
    return m_pUserSid && EqualSid(pSid, m_pUserSid.Get()) ? SID_USER : 0;
}

// Returns the new access list, or null after a failure, which is recorded.
LocalAcl CZNMFileSecurity::BuildAccessList(const CZNMTrace& trace, const Variant& variant,
                                           const wchar_t* pszPath, const World& world,
                                           const AccessList& old) const
{
    EXPLICIT_ACCESS_W entries[MAX_ENTRIES] = {};
    DWORD nEntries = 0;
    auto add = [&](const wchar_t* pszName, PSID pSid, DWORD nPermissions, ACCESS_MODE eMode,
                   DWORD nInheritance, const char* pszTrace) {
        EXPLICIT_ACCESS_W& entry = entries[nEntries++];
        BuildExplicitAccessWithNameW(&entry, Writable(pszName), nPermissions, eMode, nInheritance);
        // The name is only a placeholder: the SID identifies the account.
        entry.Trustee.TrusteeForm = TRUSTEE_IS_SID;
        entry.Trustee.ptstrName = static_cast<wchar_t*>(pSid);
        trace.Text(pszTrace);
    };
    add(L"Admin", m_pAdminSid.Get(), GENERIC_ALL, SET_ACCESS, variant.nInheritance,
        "Added Administrator to access list structure");
    add(L"ZNM", m_pZnmSid.Get(), GENERIC_ALL, SET_ACCESS, variant.nInheritance,
        "Added ZNM Group to access list structure");
    add(L"System", m_pSystemSid.Get(), GENERIC_ALL, SET_ACCESS, variant.nInheritance,
        "Added System to access list structure");
    if (world.nAccessMode != 0 && (old.fSids & SID_WORLD) != 0)
        add(L"World", m_pWorldSid.Get(), world.nPermissions, static_cast<ACCESS_MODE>(world.nAccessMode),
            world.nInheritance, "Added World to access list structure");
    if (m_pUserSid) // by design with inheritance on a file too, where it has no effect
        add(m_strUser, m_pUserSid.Get(), GENERIC_ALL, SET_ACCESS, INHERIT_ALL,
            "Added specified user to access list structure");
    trace.Text("Created access control lists!");

    LocalAcl newDacl;
    const DWORD nResult = SetEntriesInAclW(nEntries, entries, old.pDacl, newDacl.Out());
    if (nResult == ERROR_SUCCESS)
    {
        trace.Text("Successfully merged ACLs");
        return newDacl;
    }
    CZNMDebug::RecordFailure(variant.nFunction, variant.notMerged, nResult, pszPath);
    return LocalAcl();
}

// Writes the access list, a second time after taking ownership if the first time fails for any reason.
BOOL CZNMFileSecurity::WriteAccessList(const CZNMTrace& trace, const Variant& variant, const wchar_t* pszPath,
                                       PACL pDacl)
{
    auto set = [&] {
        return SetFileSecurityInfo(pszPath, SE_FILE_OBJECT, DACL_SECURITY_INFORMATION, nullptr, nullptr,
                                   pDacl, nullptr);
    };
    DWORD nResult = set();
    if (nResult != ERROR_SUCCESS)
    {
        trace.Text("Access denied! Changing ownership and retrying");
        SetOwner(pszPath, SE_FILE_OBJECT); // the second try shows whether it helped
        nResult = set();
    }
    if (nResult != ERROR_SUCCESS)
    {
        CZNMDebug::RecordFailure(variant.nFunction, variant.notSet, nResult, pszPath);
        return FALSE;
    }
    trace.Parms(variant.pszDone, pszPath);
    return TRUE;
}

// --- Volumes -------------------------------------------------------------------------------------

// True if a path counts as being on the volume tested last. By design only the first character is compared,
// so that all shares have the answer of the first one.
bool CZNMFileSecurity::IsVolumeTested(const wchar_t* pszPath) const
{
    return std::towlower(m_szRootPath[0]) == std::towlower(pszPath[0]);
}

BOOL CZNMFileSecurity::DiskSupportsSecurity(const wchar_t* pszPath)
{
    CZNMTrace trace(FN_DISK_SUPPORTS_SECURITY);
    trace.Parms("CZNMFileSecurity::DiskSupportsSecurity() (pszPath = %S)", pszPath);
    if (IsVolumeTested(pszPath))
        return trace.Return(s_fDiskSupportsSecurity);

    char szTested[MAX_PATH + 1] = {};
    const CW2A narrowPath(pszPath);
    if (narrowPath != nullptr) // CanBeTested refuses a path that does not fit
        std::strncpy(szTested, narrowPath, MAX_PATH);
    if (char* const pAsterisk = std::strchr(szTested, '*'))
    {
        // A file pattern cannot be tested; the directory before it is.
        *pAsterisk = '\0';
        char* const pBackslash = std::strrchr(szTested, '\\');
        *(pBackslash != nullptr ? pBackslash : szTested) = '\0';
    }
    trace.Parms("Actually testing path '%s'", static_cast<const char*>(szTested));
    uint32_t nRootLength = 0;
    const int32_t nResult = xcsVolumeSupportsSecurity(szTested, &nRootLength);
    if (nRootLength != 0)
    {
        const size_t nLength = std::min({size_t{nRootLength}, std::wcslen(pszPath), ROOT_PATH_SIZE - 1});
        std::wmemcpy(m_szRootPath, pszPath, nLength);
        m_szRootPath[nLength] = L'\0';
        trace.Parms("Root path determined to be '%S'", static_cast<const wchar_t*>(m_szRootPath));
    }
    s_fDiskSupportsSecurity = nResult == 0;
    if (nResult == 0)
        trace.Text("File system supports security");
    else if (nResult == XCS_RC_NO_VOLUME_SECURITY)
        trace.Text("File system does not support security");
    else
        trace.Text("Assuming file system does not support security");
    return trace.Return(s_fDiskSupportsSecurity);
}

// --- Trees ---------------------------------------------------------------------------------------

// False if a path is too long for the volume test and would have to be tested.
bool CZNMFileSecurity::CanBeTested(const wchar_t* pszPath) const
{
    if (IsVolumeTested(pszPath))
        return true;
    const CW2A narrowPath(pszPath);
    return narrowPath == nullptr || std::strlen(narrowPath) <= MAX_PATH;
}

BOOL CZNMFileSecurity::SetSecurityOnFiles(const wchar_t* pszPath, const uint32_t& fFiles,
                                          const uint32_t& fSubdirs, const uint32_t& fDiscard,
                                          const uint32_t& nWorldAccessMode, const uint32_t& nWorldPermissions,
                                          const uint32_t& nWorldInheritance)
{
    CZNMTrace trace(FN_SET_SECURITY_ON_FILES);
    trace.Parms("CZNMFileSecurity::SetSecurityOnFiles() (pszPath = %S, ...)", pszPath);
    const bool fCanBeTested = CanBeTested(pszPath);
    if (fCanBeTested && !DiskSupportsSecurity(pszPath))
    {
        trace.Text("File system does not support security");
        return trace.Return(TRUE);
    }
    if (!fCanBeTested || std::wcslen(pszPath) >= ZNM_SECURITY_PATH_SIZE)
    {
        trace.Text("Path is too long");
        return trace.Return(FALSE);
    }

    CString strDirectory(pszPath);
    CString strPattern;
    if (fFiles == 0)
    {
        if (CZNMTrace::WantsParms())
            trace.Parms("Processing path '%s', subdirs %d", CW2A(strDirectory), fSubdirs);
    }
    else
    {
        const int nBackslash = strDirectory.ReverseFind(L'\\');
        if (nBackslash < 0)
        {
            trace.Text("Invalid pattern...");
            return trace.Return(FALSE);
        }
        strPattern = strDirectory.Right(strDirectory.GetLength() - nBackslash - 1);
        strDirectory = strDirectory.Left(nBackslash);
        trace.Parms("Scanning path '%S' for files, pattern '%S', subdirs %d", strDirectory, strPattern,
                    fSubdirs);
    }
    trace.Text(fDiscard != 0 ? "Discarding previous security settings"
                             : "Merging previous security settings");

    auto secureFile = [&](const WIN32_FIND_DATAW& entry) -> BOOL {
        if (IsDirectory(entry))
            return TRUE;
        const CString strFile = strDirectory + L"\\" + entry.cFileName;
        if (static_cast<size_t>(strFile.GetLength()) < ZNM_SECURITY_PATH_SIZE)
            return ChangeFileSecurity(strFile, fDiscard, nWorldAccessMode, nWorldPermissions);
        trace.Text("Path is too long");
        return FALSE;
    };
    auto walkSubdirectory = [&](const WIN32_FIND_DATAW& entry) -> BOOL {
        if (!IsDirectory(entry) || IsDotEntry(entry))
            return TRUE;
        CString strChild = strDirectory + L"\\" + entry.cFileName;
        if (fFiles != 0)
            strChild = strChild + L"\\" + strPattern;
        return SetSecurityOnFiles(strChild, fFiles, fSubdirs, fDiscard, nWorldAccessMode, nWorldPermissions,
                                  nWorldInheritance);
    };
    BOOL fResult = TRUE;
    if (fFiles != 0)
        fResult &= VisitEntries(FILE_SEARCH, pszPath, pszPath, secureFile);
    if (fSubdirs != 0)
        fResult &= VisitEntries(DIRECTORY_SEARCH, strDirectory + L"\\*", pszPath, walkSubdirectory);
    if (fFiles == 0)
        fResult &=
            ChangeDirSecurity(strDirectory, fDiscard, nWorldAccessMode, nWorldPermissions, nWorldInheritance);
    return trace.Return(fResult);
}
