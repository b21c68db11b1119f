// The least that a move can cost: the platform's calls that it cannot do without, once each, and nothing
// else. It must not share code with what it is compared with, and looks at results only to know that it
// measured a whole move.
//
//     floor <old data> <old log> <new data> <new log> <zns.ini> <old prefix> <new prefix> [listings|looks]
//
// With "listings" it lists each directory of the copy as often as the access lists require: for its files,
// for its subdirectories, and once more for the access lists of the directories themselves. Without, once.
// With "looks" it also looks as often as a move that proves its copies: at the old trees before the copy, at
// each pair of trees after it, at both pairs before the change of the configuration and before the first
// deletion, at the log pair before the second one.
//
// Prints the milliseconds that copy, access lists, configuration and deletion took.
#include <windows.h>
#include <aclapi.h>
#include <shellapi.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <string>
#include <vector>

namespace
{
wchar_t s_szPath[2048]; // the one path that both walks work in
EXPLICIT_ACCESS_W s_entries[3];
bool s_fListings = false;
bool s_fLooks = false;

void Need(bool fHeld, const char* pszCall)
{
    if (fHeld)
        return;
    std::fprintf(stderr, "%s: error %lu\n", pszCall, GetLastError());
    std::exit(1);
}

bool IsDirectory(const WIN32_FIND_DATAW& entry)
{
    return (entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
}

// visit(entry, end of its path) for each entry of the directory that ends at pEnd, but for "." and "..".
template <class Visit>
void ForEach(wchar_t* pEnd, Visit visit)
{
    WIN32_FIND_DATAW entry;
    std::wcscpy(pEnd, L"\\*");
    HANDLE const hFind = FindFirstFileW(s_szPath, &entry);
    Need(hFind != INVALID_HANDLE_VALUE, "FindFirstFileW");
    do
    {
        const bool fDots =
            entry.cFileName[0] == L'.' &&
            (entry.cFileName[1] == 0 || (entry.cFileName[1] == L'.' && entry.cFileName[2] == 0));
        if (fDots)
            continue;
        const size_t nName = std::wcslen(entry.cFileName);
        std::wmemcpy(pEnd + 1, entry.cFileName, nName + 1);
        visit(entry, pEnd + 1 + nName);
    } while (FindNextFileW(hFind, &entry));
    FindClose(hFind);
    *pEnd = 0;
}

// --- Copy
void Copy(const wchar_t* pszOld, const wchar_t* pszNew)
{
    wchar_t szFrom[MAX_PATH] = {}, szTo[MAX_PATH] = {};
    std::swprintf(szFrom, MAX_PATH - 1, L"%ls\\*", pszOld);
    std::wcsncpy(szTo, pszNew, MAX_PATH - 2);
    SHFILEOPSTRUCTW request = {};
    request.wFunc = FO_COPY;
    request.pFrom = szFrom;
    request.pTo = szTo;
    request.fFlags = FOF_SILENT | FOF_NOCONFIRMATION | FOF_NOCONFIRMMKDIR | FOF_NOERRORUI;
    Need(SHFileOperationW(&request) == 0, "SHFileOperationW");
}

// --- Looks
void Identify(const std::wstring& strDir)
{
    FILE_ID_INFO information;
    HANDLE const hDir = CreateFileW(strDir.c_str(), FILE_READ_ATTRIBUTES,
                                    FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                    OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr);
    Need(GetFileInformationByHandleEx(hDir, FileIdInfo, &information, sizeof information), "FileIdInfo");
    CloseHandle(hDir);
}

void Ask(const std::wstring& strPath)
{
    WIN32_FILE_ATTRIBUTE_DATA attributes;
    Need(GetFileAttributesExW(strPath.c_str(), GetFileExInfoStandard, &attributes), "GetFileAttributesExW");
}

std::vector<WIN32_FIND_DATAW> List(const std::wstring& strDir)
{
    std::vector<WIN32_FIND_DATAW> entries;
    WIN32_FIND_DATAW entry;
    HANDLE const hFind = FindFirstFileExW((strDir + L"\\*").c_str(), FindExInfoBasic, &entry,
                                          FindExSearchNameMatch, nullptr, FIND_FIRST_EX_LARGE_FETCH);
    Need(hFind != INVALID_HANDLE_VALUE, "FindFirstFileExW");
    do
        entries.push_back(entry);
    while (FindNextFileW(hFind, &entry));
    FindClose(hFind);
    return entries;
}

enum class Moment
{
    BEFORE_COPY, // the old tree alone
    AFTER_COPY,  // and the listing of the copy
    LATER,       // and each file of the copy
};

// Which directory each path leads to, what the old one holds, and the state of each file.
void Look(const std::wstring& strOld, const std::wstring& strNew, Moment eMoment)
{
    if (!s_fLooks)
        return;
    Identify(strOld);
    if (eMoment != Moment::BEFORE_COPY)
        Identify(strNew);
    if (eMoment == Moment::AFTER_COPY)
        List(strNew);
    for (const WIN32_FIND_DATAW& entry : List(strOld))
    {
        const std::wstring strName = std::wstring(L"\\") + entry.cFileName;
        if (strName == L"\\." || strName == L"\\..")
            continue;
        if (eMoment != Moment::BEFORE_COPY)
            Ask(strOld + strName);
        if (IsDirectory(entry))
            Look(strOld + strName, strNew + strName, eMoment);
        else if (eMoment == Moment::LATER)
            Ask(strNew + strName);
    }
}

wchar_t* Start(const wchar_t* pszPath)
{
    return std::wcscpy(s_szPath, pszPath) + std::wcslen(pszPath);
}

void CreatePath(const wchar_t* pszPath)
{
    wchar_t szPart[MAX_PATH];
    for (const wchar_t* p = std::wcschr(pszPath, L'\\'); p != nullptr;)
    {
        p = std::wcschr(p + 1, L'\\');
        const size_t nLength = p != nullptr ? static_cast<size_t>(p - pszPath) : std::wcslen(pszPath);
        std::wmemcpy(szPart, pszPath, nLength);
        szPart[nLength] = 0;
        CreateDirectoryW(szPart, nullptr); // fails where it exists
    }
}

// --- Access lists
void SetAccess(DWORD nInheritance)
{
    for (EXPLICIT_ACCESS_W& entry : s_entries)
        entry.grfInheritance = nInheritance;
    PACL pList = nullptr;
    Need(SetEntriesInAclW(3, s_entries, nullptr, &pList) == ERROR_SUCCESS, "SetEntriesInAclW");
    Need(SetNamedSecurityInfoW(s_szPath, SE_FILE_OBJECT, DACL_SECURITY_INFORMATION, nullptr, nullptr, pList,
                               nullptr) == ERROR_SUCCESS,
         "SetNamedSecurityInfoW");
    LocalFree(pList);
}

void SetAccessBelow(wchar_t* pEnd)
{
    ForEach(pEnd, [](const WIN32_FIND_DATAW& entry, wchar_t* pEntryEnd) {
        if (IsDirectory(entry))
            SetAccessBelow(pEntryEnd);
        else
            SetAccess(NO_INHERITANCE);
    });
    for (int i = 0; s_fListings && i < 2; ++i)
        ForEach(pEnd, [](const WIN32_FIND_DATAW&, wchar_t*) {});
    SetAccess(SUB_CONTAINERS_AND_OBJECTS_INHERIT);
}

void PrepareAccess()
{
    static SID_IDENTIFIER_AUTHORITY s_authority = SECURITY_NT_AUTHORITY;
    static unsigned char s_abZnm[SECURITY_MAX_SID_SIZE];
    PSID sids[3] = {nullptr, nullptr, s_abZnm};
    AllocateAndInitializeSid(&s_authority, 2, SECURITY_BUILTIN_DOMAIN_RID, DOMAIN_ALIAS_RID_ADMINS, 0, 0, 0,
                             0, 0, 0, &sids[0]);
    AllocateAndInitializeSid(&s_authority, 1, SECURITY_LOCAL_SYSTEM_RID, 0, 0, 0, 0, 0, 0, 0, &sids[1]);
    wchar_t szDomain[256];
    DWORD nSid = sizeof s_abZnm, nDomain = 256;
    SID_NAME_USE eUse;
    Need(LookupAccountNameW(nullptr, L"znm", s_abZnm, &nSid, szDomain, &nDomain, &eUse),
         "LookupAccountNameW");
    for (int i = 0; i < 3; ++i)
    {
        s_entries[i].grfAccessPermissions = GENERIC_ALL;
        s_entries[i].grfAccessMode = SET_ACCESS;
        s_entries[i].Trustee.TrusteeForm = TRUSTEE_IS_SID;
        s_entries[i].Trustee.ptstrName = static_cast<wchar_t*>(sids[i]);
    }
}

// --- Deletion
void DeleteBelow(wchar_t* pEnd)
{
    ForEach(pEnd, [](const WIN32_FIND_DATAW& entry, wchar_t* pEntryEnd) {
        if ((entry.dwFileAttributes & (FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN)) != 0)
            SetFileAttributesW(s_szPath, FILE_ATTRIBUTE_NORMAL);
        if (IsDirectory(entry))
            DeleteBelow(pEntryEnd);
        else
            Need(DeleteFileW(s_szPath), "DeleteFileW");
    });
    Need(RemoveDirectoryW(s_szPath), "RemoveDirectoryW");
}

// --- Configuration: a new file beside the old one, flushed, and put into its place.
void Rewrite(const wchar_t* pszFile, const wchar_t* pszOld, const wchar_t* pszNew)
{
    static char s_achText[65536];
    char szOld[MAX_PATH], szNew[MAX_PATH];
    std::snprintf(szOld, MAX_PATH, "%ls", pszOld);
    std::snprintf(szNew, MAX_PATH, "%ls", pszNew);
    DWORD nText = 0, nWritten = 0;
    HANDLE hFile = CreateFileW(pszFile, GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr);
    Need(ReadFile(hFile, s_achText, sizeof s_achText - 1, &nText, nullptr), "ReadFile");
    CloseHandle(hFile);
    s_achText[nText] = 0;
    char* const pValue = std::strstr(s_achText, szOld);
    Need(pValue != nullptr, "the value to change");
    char* const pRest = pValue + std::strlen(szOld);

    wchar_t szBeside[MAX_PATH];
    std::swprintf(szBeside, MAX_PATH, L"%ls.new", pszFile);
    hFile = CreateFileW(szBeside, GENERIC_WRITE, 0, nullptr, CREATE_NEW, 0, nullptr);
    WriteFile(hFile, s_achText, static_cast<DWORD>(pValue - s_achText), &nWritten, nullptr);
    WriteFile(hFile, szNew, static_cast<DWORD>(std::strlen(szNew)), &nWritten, nullptr);
    WriteFile(hFile, pRest, static_cast<DWORD>(std::strlen(pRest)), &nWritten, nullptr);
    Need(FlushFileBuffers(hFile), "FlushFileBuffers");
    CloseHandle(hFile);
    Need(MoveFileExW(szBeside, pszFile, MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH), "MoveFileExW");
}

double Now()
{
    LARGE_INTEGER nCount, nFrequency;
    QueryPerformanceCounter(&nCount);
    QueryPerformanceFrequency(&nFrequency);
    return static_cast<double>(nCount.QuadPart) * 1000 / static_cast<double>(nFrequency.QuadPart);
}
} // namespace

extern "C" int wmain(int argc, wchar_t* argv[])
{
    Need(argc >= 8, "seven words");
    const wchar_t* const* const pszOld = argv + 1;
    const wchar_t* const* const pszNew = argv + 3;
    s_fListings = argc > 8 && argv[8][0] != 0;
    s_fLooks = argc > 8 && std::wcscmp(argv[8], L"looks") == 0;
    double anMoments[5] = {Now()};
    for (int i = 0; i < 2; ++i)
        CreatePath(pszNew[i]);
    for (int i = 0; i < 2; ++i)
        Look(pszOld[i], pszNew[i], Moment::BEFORE_COPY);
    for (int i = 0; i < 2; ++i)
    {
        Copy(pszOld[i], pszNew[i]);
        Look(pszOld[i], pszNew[i], Moment::AFTER_COPY);
    }
    anMoments[1] = Now();
    PrepareAccess();
    for (int i = 0; i < 2; ++i)
        SetAccessBelow(Start(pszNew[i]));
    anMoments[2] = Now();
    for (int i = 0; i < 2; ++i)
        Look(pszOld[i], pszNew[i], Moment::LATER);
    Rewrite(argv[5], argv[6], argv[7]);
    wchar_t szQmIni[MAX_PATH];
    std::swprintf(szQmIni, MAX_PATH, L"%ls\\qm.ini", pszNew[0]);
    Rewrite(szQmIni, pszOld[1], pszNew[1]);
    anMoments[3] = Now();
    Look(pszOld[0], pszNew[0], Moment::LATER);
    for (int i = 0; i < 2; ++i)
    {
        Look(pszOld[1], pszNew[1], Moment::LATER);
        DeleteBelow(Start(pszOld[i]));
    }
    anMoments[4] = Now();
    for (int i = 0; i < 4; ++i)
        std::printf("%.3f ", anMoments[i + 1] - anMoments[i]);
    return 0;
}
