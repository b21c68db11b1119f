// Builds access lists and applies them. Never grants Everyone anything new: an entry for Everyone is only
// restated, and only where one was read.
#include "tovmflse.h"

#include <algorithm>
#include <cstring>
#include <cwchar>
#include <cwctype>

#include "tovmdbgn.h"
#include "tovmsrid.h"
#include "tovmtrce.h"
#include "tovxcs2.h"

ZNM_SOURCE_ID(ZNM_CLUSTER_LIBRARY("tovmflse"));

namespace
{
// The last answer about a volume. One for all objects, while the root it belongs to is each object's own.
BOOL s_fDiskSupportsSecurity = TRUE;

// SIDs found in an access list.
constexpr uint32_t SID_ADMIN = 0x01;
constexpr uint32_t SID_SYSTEM = 0x02;
constexpr uint32_t SID_WORLD = 0x04;
constexpr uint32_t SID_ZNM = 0x08;
constexpr uint32_t SID_USER = 0x10;

constexpr DWORD MAX_ENTRIES = 5;
constexpr DWORD INHERIT_ALL = SUB_CONTAINERS_AND_OBJECTS_INHERIT;

// What an access list begins with whose entry names a SID; the SID follows.
struct AceHeaderAndMask
{
    ACE_HEADER header;
    ACCESS_MASK mask;
};
static_assert(sizeof(AceHeaderAndMask) == 8);

// The functions take names as writable but only read them.
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

// A search that found nothing to look at, which is no failure.
bool IsNothingThere(DWORD nError)
{
    return nError == ERROR_FILE_NOT_FOUND || nError == ERROR_PATH_NOT_FOUND || nError == ERROR_INVALID_NAME;
}
} // namespace

// Where files and directories differ.
struct CZNMFileSecurity::Variant
{
    ZNM_FUNCTION nFunction;
    DWORD nInheritance; // of the fixed entries
    int nSidProbe;
    const wchar_t* pszSid;
    int nAceProbe; // of the first of three failures of the scan
    int nMergeProbe;
    const wchar_t* pszMerge;
    int nSetProbe;
    const wchar_t* pszSet;
    const char* pszDone;

    static const Variant File;
    static const Variant Directory;
};

const CZNMFileSecurity::Variant CZNMFileSecurity::Variant::File = {
    FN_CHANGE_FILE_SECURITY,
    NO_INHERITANCE, // a file has nothing to inherit to; only the user's entry says otherwise, as it always
                    // has
    4, L"Create SID error, file: %s", 6, 9, L"Error %d merging ACLs on '%s'", 10,
    L"Error %d setting file security on '%s'", "Set file security '%S'"};

const CZNMFileSecurity::Variant CZNMFileSecurity::Variant::Directory = {
    FN_CHANGE_DIR_SECURITY,
    INHERIT_ALL,
    11,
    L"Create SID error, directory: %s",
    12,
    15,
    L"Dir security: error %d merging ACLs on '%s'",
    16,
    L"Error %d setting directory security on '%s'",
    "Set directory security '%S'"};

// The entry for Everyone that a caller wants.
struct CZNMFileSecurity::World
{
    uint32_t nAccessMode;
    uint32_t nPermissions;
    uint32_t nInheritance;
};

CZNMFileSecurity::CZNMFileSecurity(const wchar_t* pszUser) : m_strUser(pszUser)
{
    const CZNMTrace trace(FN_FILE_SECURITY_CTOR);
    trace.Parms("CZNMFileSecurity::CZNMFileSecurity() (pszUser = %S)", m_strUser);
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
    const World world = {nWorldAccessMode, nWorldPermissions, NO_INHERITANCE};
    return trace.Return(ChangeSecurity(trace, Variant::File, pszPath, fDiscard != 0, world));
}

BOOL CZNMFileSecurity::ChangeDirSecurity(const wchar_t* pszPath, uint32_t fDiscard, uint32_t nWorldAccessMode,
                                         uint32_t nWorldPermissions, uint32_t nWorldInheritance)
{
    CZNMTrace trace(FN_CHANGE_DIR_SECURITY);
    trace.Parms("CZNMFileSecurity::ChangeDirSecurity() (pszPath = %S)", pszPath);
    if (!DiskSupportsSecurity(pszPath))
        return trace.Return(TRUE);
    const World world = {nWorldAccessMode, nWorldPermissions, nWorldInheritance};
    return trace.Return(ChangeSecurity(trace, Variant::Directory, pszPath, fDiscard != 0, world));
}

BOOL CZNMFileSecurity::ChangeSecurity(CZNMTrace& trace, const Variant& variant, const wchar_t* pszPath,
                                      bool fDiscard, const World& world)
{
    if (!CreateSids())
    {
        CZNMDebug::RecordFailure(variant.nFunction, variant.nSidProbe, variant.pszSid, pszPath);
        return FALSE;
    }

    BOOL fSuccess = TRUE;
    bool fAlreadyHasAccess = false;
    uint32_t fSids = 0;
    PACL pOldDacl = nullptr;
    CZNMLocalBlock pDescriptor; // holds the old access list
    if (!fDiscard)
    {
        fSuccess = ReadAccessList(trace, variant, pszPath, pOldDacl, pDescriptor, fSids);
        const uint32_t fWanted = SID_ADMIN | SID_SYSTEM | SID_ZNM | (m_pUserSid ? SID_USER : 0);
        fAlreadyHasAccess = (fSids & fWanted) == fWanted;
    }
    trace.Parms("fSuccess = %d, fAlreadyHasAccess = %d", fSuccess, static_cast<int>(fAlreadyHasAccess));
    if (!fSuccess || fAlreadyHasAccess)
        return fSuccess;

    EXPLICIT_ACCESS_W entries[MAX_ENTRIES] = {};
    const DWORD nEntries = BuildEntries(trace, variant, world, fSids, entries);
    PACL pNewDacl = nullptr;
    const DWORD nMerged = SetEntriesInAclW(nEntries, entries, pOldDacl, &pNewDacl);
    const CZNMLocalBlock newDaclOwner(pNewDacl);
    if (nMerged != ERROR_SUCCESS)
    {
        CZNMDebug::RecordFailure(variant.nFunction, variant.nMergeProbe, variant.pszMerge, nMerged, pszPath);
        return FALSE;
    }
    trace.Text("Successfully merged ACLs");

    auto setDacl = [&] {
        return SetFileSecurityInfo(pszPath, SE_FILE_OBJECT, DACL_SECURITY_INFORMATION, nullptr, nullptr,
                                   pNewDacl, nullptr);
    };
    DWORD nResult = setDacl();
    if (nResult != ERROR_SUCCESS)
    {
        trace.Text("Access denied! Changing ownership and retrying");
        SetOwner(pszPath, SE_FILE_OBJECT); // the second try tells whether it helped
        nResult = setDacl();
    }
    if (nResult != ERROR_SUCCESS)
    {
        CZNMDebug::RecordFailure(variant.nFunction, variant.nSetProbe, variant.pszSet, nResult, pszPath);
        return FALSE;
    }
    trace.Parms(variant.pszDone, pszPath);
    return TRUE;
}

// True if there is every SID that an access list needs.
bool CZNMFileSecurity::CreateSids()
{
    CreateSystemSid(m_pSystemSid.get());
    CreateWorldSid(m_pWorldSid.get());
    CreateAdminSid(m_pAdminSid.get());
    CreateZnmSid(m_pZnmSid.get());
    CreateUserSid(m_pUserSid.get(), m_strUser);
    return m_pWorldSid && m_pAdminSid && m_pZnmSid && m_pSystemSid && (m_pUserSid || m_strUser.IsEmpty());
}

// Reads the access list (null if there is none to merge with) and says which SIDs it allows something. FALSE
// only if a list that exists cannot be read.
BOOL CZNMFileSecurity::ReadAccessList(const CZNMTrace& trace, const Variant& variant, const wchar_t* pszPath,
                                      PACL& pDacl, CZNMLocalBlock& pDescriptor, uint32_t& fSids)
{
    trace.Text("SID's retrieved successfully!");
    PSECURITY_DESCRIPTOR pRead = nullptr;
    const DWORD nResult = GetFileSecurityInfo(pszPath, SE_FILE_OBJECT, DACL_SECURITY_INFORMATION, nullptr,
                                              nullptr, &pDacl, nullptr, &pRead);
    pDescriptor.reset(pRead);
    if (nResult == ERROR_SUCCESS)
    {
        trace.Text("Retrieved named security information!");
        fSids = ScanAccessList(trace, variant, pDacl);
        return TRUE;
    }
    pDacl = nullptr;
    if (nResult == ERROR_FILE_NOT_FOUND || nResult == ERROR_PATH_NOT_FOUND)
        return TRUE;
    if (variant.nFunction == FN_CHANGE_FILE_SECURITY)
        CZNMDebug::RecordFailure(variant.nFunction, 5, L"Error %d getting security info '%s'", nResult,
                                 pszPath);
    else // of directories only the trace hears
        trace.Parms("Error %u getting security info '%S'", nResult, pszPath);
    return FALSE;
}

// Which SIDs the list allows something, whatever that is. An entry that cannot be judged ends the scan, with
// the bits gathered so far.
uint32_t CZNMFileSecurity::ScanAccessList(const CZNMTrace& trace, const Variant& variant, PACL pDacl) const
{
    uint32_t fSids = 0;
    const DWORD nCount = pDacl != nullptr ? pDacl->AceCount : 0; // no list at all is treated as an empty one
    for (DWORD i = 0; i < nCount; ++i)
    {
        void* pAce = nullptr;
        if (!GetAce(pDacl, i, &pAce))
        {
            CZNMDebug::RecordFailure(variant.nFunction, variant.nAceProbe, L"Unable to retrieve ACE in ACL!");
            break;
        }
        const auto* const pHeader = static_cast<const AceHeaderAndMask*>(pAce);
        if (pHeader->header.AceType == ACCESS_DENIED_ACE_TYPE)
            continue;
        if (pHeader->header.AceType != ACCESS_ALLOWED_ACE_TYPE)
        {
            CZNMDebug::RecordFailure(variant.nFunction, variant.nAceProbe + 1,
                                     L"Incorrect ACE type specified!");
            break;
        }
        PSID const pSid = static_cast<unsigned char*>(pAce) + sizeof(AceHeaderAndMask);
        if (!IsValidSid(pSid))
        {
            CZNMDebug::RecordFailure(variant.nFunction, variant.nAceProbe + 2,
                                     L"Invalid SID specified in ACE!");
            break;
        }
        if (EqualSid(pSid, m_pAdminSid.get()))
            fSids |= SID_ADMIN;
        else if (EqualSid(pSid, m_pSystemSid.get()))
            fSids |= SID_SYSTEM;
        else if (EqualSid(pSid, m_pWorldSid.get()))
            fSids |= SID_WORLD;
        else if (EqualSid(pSid, m_pZnmSid.get()))
            fSids |= SID_ZNM;
        else if (m_pUserSid && EqualSid(pSid, m_pUserSid.get()))
            fSids |= SID_USER;
        trace.Parms("Current SID Flags = %04X", fSids);
    }
    return fSids;
}

// Fills the entries of a new access list and returns their number, MAX_ENTRIES at most.
DWORD CZNMFileSecurity::BuildEntries(const CZNMTrace& trace, const Variant& variant, const World& world,
                                     uint32_t fSids, EXPLICIT_ACCESS_W* pEntries) const
{
    DWORD nEntries = 0;
    auto add = [&](const wchar_t* pszName, PSID pSid, DWORD nPermissions, ACCESS_MODE eMode,
                   DWORD nInheritance, const char* pszTrace) {
        EXPLICIT_ACCESS_W& entry = pEntries[nEntries++];
        BuildExplicitAccessWithNameW(&entry, Writable(pszName), nPermissions, eMode, nInheritance);
        // The name is a placeholder: accounts are known by their SID alone.
        entry.Trustee.TrusteeForm = TRUSTEE_IS_SID;
        entry.Trustee.ptstrName = static_cast<wchar_t*>(pSid);
        trace.Text(pszTrace);
    };
    const DWORD nInheritance = variant.nInheritance;
    add(L"Admin", m_pAdminSid.get(), GENERIC_ALL, SET_ACCESS, nInheritance,
        "Added Administrator to access list structure");
    add(L"ZNM", m_pZnmSid.get(), GENERIC_ALL, SET_ACCESS, nInheritance,
        "Added ZNM Group to access list structure");
    add(L"System", m_pSystemSid.get(), GENERIC_ALL, SET_ACCESS, nInheritance,
        "Added System to access list structure");
    if (world.nAccessMode != 0 && (fSids & SID_WORLD) != 0)
        add(L"World", m_pWorldSid.get(), world.nPermissions, static_cast<ACCESS_MODE>(world.nAccessMode),
            world.nInheritance, "Added World to access list structure");
    if (m_pUserSid)
        add(m_strUser, m_pUserSid.get(), GENERIC_ALL, SET_ACCESS, INHERIT_ALL,
            "Added specified user to access list structure");
    trace.Text("Created access control lists!");
    return nEntries;
}

// --- Volumes -------------------------------------------------------------------------------------

// Only the first character tells whether a path lies on the volume tested last.
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
    if (narrowPath != nullptr) // what does not fit, CanBeTested refuses
        std::strncpy(szTested, narrowPath, MAX_PATH);
    if (char* const pAsterisk = std::strchr(szTested, '*'))
    {
        // A file pattern is no path that could be tested.
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

// Whether a path fits the limit of the volume test, if it is going to be tested.
bool CZNMFileSecurity::CanBeTested(const wchar_t* pszPath) const
{
    const CW2A narrowPath(pszPath);
    return IsVolumeTested(pszPath) || narrowPath == nullptr || std::strlen(narrowPath) <= MAX_PATH;
}

BOOL CZNMFileSecurity::SetSecurityOnFiles(const wchar_t* pszPath, const uint32_t& fFiles,
                                          const uint32_t& fSubdirs, const uint32_t& fDiscard,
                                          const uint32_t& nWorldAccessMode, const uint32_t& nWorldPermissions,
                                          const uint32_t& nWorldInheritance)
{
    CZNMTrace trace(FN_SET_SECURITY_ON_FILES);
    trace.Parms("CZNMFileSecurity::SetSecurityOnFiles() (pszPath = %S, ...)", pszPath);
    if (CanBeTested(pszPath) && !DiskSupportsSecurity(pszPath))
    {
        trace.Text("File system does not support security");
        return trace.Return(TRUE);
    }
    if (!CanBeTested(pszPath) || std::wcslen(pszPath) >= ZNM_SECURITY_PATH_SIZE)
    {
        trace.Text("Path is too long");
        return trace.Return(FALSE);
    }

    BOOL fResult = TRUE;
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

    // A search that could not be started; the search handle is closed at the end of each of the two blocks.
    auto searchFailed = [&](DWORD nError, int nProbe, const wchar_t* pszFormat) {
        if (IsNothingThere(nError))
            return;
        fResult = FALSE;
        CZNMDebug::RecordFailure(FN_SET_SECURITY_ON_FILES, nProbe, pszFormat, nError, pszPath);
    };
    WIN32_FIND_DATAW entry = {};
    if (fFiles != 0)
    {
        CZNMFindHandle find(
            FindFirstFileExW(pszPath, FindExInfoStandard, &entry, FindExSearchNameMatch, nullptr, 0));
        const DWORD nError = GetLastError();
        if (!find.IsOpen())
            searchFailed(nError, 1, L"FindFirstFileEx(1) error %d, path '%s'");
        else
        {
            do
            {
                if (IsDirectory(entry))
                    continue;
                const CString strChild = strDirectory + L"\\" + entry.cFileName;
                const bool fFits = static_cast<size_t>(strChild.GetLength()) < ZNM_SECURITY_PATH_SIZE;
                if (!fFits)
                    trace.Text("Path is too long");
                else if (ChangeFileSecurity(strChild, fDiscard, nWorldAccessMode, nWorldPermissions))
                    continue;
                fResult = FALSE;
            } while (FindNextFileW(find.Get(), &entry));
        }
    }
    if (fSubdirs != 0)
    {
        const CString strChildPattern = strDirectory + L"\\*";
        CZNMFindHandle find(FindFirstFileExW(strChildPattern, FindExInfoStandard, &entry,
                                             FindExSearchLimitToDirectories, nullptr, 0));
        const DWORD nError = GetLastError();
        if (!find.IsOpen())
            searchFailed(nError, 2, L"FindFirstFileEx(2) error %d, path '%s'");
        else
        {
            do
            {
                if (!IsDirectory(entry) || IsDotEntry(entry))
                    continue;
                CString strChild = strDirectory + L"\\" + entry.cFileName;
                if (fFiles != 0)
                    strChild = strChild + L"\\" + strPattern;
                if (!SetSecurityOnFiles(strChild, fFiles, fSubdirs, fDiscard, nWorldAccessMode,
                                        nWorldPermissions, nWorldInheritance))
                    fResult = FALSE;
            } while (FindNextFileW(find.Get(), &entry));
        }
    }
    if (fFiles == 0 &&
        !ChangeDirSecurity(strDirectory, fDiscard, nWorldAccessMode, nWorldPermissions, nWorldInheritance))
        fResult = FALSE;
    return trace.Return(fResult);
}
