// Judges paths. Changes nothing on disk.
#include "znmpaths.h"

#include <algorithm>
#include <cwchar>
#include <cwctype>
#include <optional>
#include <vector>

#include "tovmhndl.h"
#include "tovmsrid.h"
#include "tovxcs2.h"

ZNM_SOURCE_ID(ZNM_MIGRATE_TOOL("znmpaths"));

namespace
{
bool IsAbsolute(const wchar_t* pszPath)
{
    const bool fDrive = std::iswalpha(pszPath[0]) != 0 && pszPath[1] == L':' && pszPath[2] == L'\\';
    return fDrive || (pszPath[0] == L'\\' && pszPath[1] == L'\\');
}

// What tells one directory from every other one on the machine.
struct DirectoryIdentity
{
    DWORD nVolume, nIndexHigh, nIndexLow;
    bool operator==(const DirectoryIdentity&) const = default;
};

std::optional<DirectoryIdentity> Identify(const CString& strDir)
{
    const CZNMFileHandle dir(CreateFileW(strDir, FILE_READ_ATTRIBUTES,
                                         FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                         OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr));
    BY_HANDLE_FILE_INFORMATION information = {};
    if (!dir.IsOpen() || !GetFileInformationByHandle(dir.Get(), &information))
        return std::nullopt;
    return DirectoryIdentity{information.dwVolumeSerialNumber, information.nFileIndexHigh,
                             information.nFileIndexLow};
}
} // namespace

bool IsTreePath(const CString& strPath)
{
    const wchar_t* const pszPath = strPath;
    if (!IsAbsolute(pszPath))
        return false;
    if (pszPath[0] != L'\\')
        return pszPath[3] != L'\0';
    // "\\server\share" has three of them.
    return std::count(pszPath, pszPath + strPath.GetLength(), L'\\') > 3;
}

bool CanBeDestination(const CString& strPath)
{
    constexpr int MAX_DIRECTORY = MAX_PATH - 12; // the system keeps room for a short file name
    return IsAbsolute(strPath) && strPath.GetLength() < MAX_DIRECTORY &&
           CString(static_cast<const char*>(CW2A(strPath))) == strPath;
}

bool IsInsideTree(const CString& strDir, std::initializer_list<CString> trees)
{
    std::vector<DirectoryIdentity> identities;
    for (const CString& strTree : trees)
        if (const auto identity = Identify(strTree))
            identities.push_back(*identity);
    for (CString strAncestor = strDir; !strAncestor.IsEmpty();)
    {
        const auto identity = Identify(strAncestor);
        if (identity && std::find(identities.begin(), identities.end(), *identity) != identities.end())
            return true;
        strAncestor = strAncestor.Left(std::max(strAncestor.ReverseFind(L'\\'), 0));
    }
    return false;
}

bool HasLongerPath(const CString& strDir, int nLongest)
{
    WIN32_FIND_DATAW entry = {};
    const CString strPattern = strDir + L"\\*";
    const CZNMFindHandle find(FindFirstFileExW(strPattern, FindExInfoBasic, &entry, FindExSearchNameMatch,
                                               nullptr, FIND_FIRST_EX_LARGE_FETCH));
    if (!find.IsOpen())
        return false;
    do
    {
        if (std::wcscmp(entry.cFileName, L".") == 0 || std::wcscmp(entry.cFileName, L"..") == 0)
            continue;
        const int nLength = static_cast<int>(std::wcslen(entry.cFileName));
        if (nLength > nLongest)
            return true;
        const bool fDirectory = (entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
        if (fDirectory && HasLongerPath(strDir + L"\\" + entry.cFileName, nLongest - nLength - 1))
            return true;
    } while (FindNextFileW(find.Get(), &entry));
    return false;
}
