// Makes files for the trace and for failure records. Must not overwrite anything, nor write outside the work
// path: the files hold what users typed, and the writer may have more rights than who laid a trap for it.
#include "recordfile.h"

#include <aclapi.h>

#include <algorithm>

#include "text.h"
#include "workpath.h"

namespace
{
std::wstring DirectoryPath(const wchar_t* pszDirectory)
{
    const std::wstring strWorkPath = WorkPath();
    return strWorkPath.empty() ? L"" : strWorkPath + L"\\" + pszDirectory;
}

// Whoever owns a directory can give himself every right to it. Only an administrator can make somebody else
// its owner, or a group.
bool IsTrustedOwner(HANDLE hDirectory)
{
    PSID pOwner = nullptr, pWorkPathOwner = nullptr;
    PSECURITY_DESCRIPTOR pDescriptor = nullptr;
    if (GetSecurityInfo(hDirectory, SE_FILE_OBJECT, OWNER_SECURITY_INFORMATION, &pOwner, nullptr, nullptr,
                        nullptr, &pDescriptor) != ERROR_SUCCESS)
        return false;
    const LocalBlock owner(pDescriptor);
    if (pOwner == nullptr) // as on a volume that keeps none
        return false;
    BOOL fOwn = FALSE;
    if (IsWellKnownSid(pOwner, WinBuiltinAdministratorsSid) || IsWellKnownSid(pOwner, WinLocalSystemSid) ||
        (CheckTokenMembership(nullptr, pOwner, &fOwn) && fOwn))
        return true;
    // The work path's owner is trusted in any case: what is run and deleted stands in the files there.
    PSECURITY_DESCRIPTOR pWorkPathDescriptor = nullptr;
    if (GetNamedSecurityInfoW(WorkPath().c_str(), SE_FILE_OBJECT, OWNER_SECURITY_INFORMATION, &pWorkPathOwner,
                              nullptr, nullptr, nullptr, &pWorkPathDescriptor) != ERROR_SUCCESS)
        return false;
    const LocalBlock workPathOwner(pWorkPathDescriptor);
    return pWorkPathOwner != nullptr && EqualSid(pOwner, pWorkPathOwner);
}

// Holds the directory, so that nobody can put another in its place meanwhile: only a handle that could list
// it keeps it from being renamed. Null when it is none, a reparse point, or made by somebody who is not
// trusted.
FileHandle OpenDirectory(const std::wstring& strPath)
{
    FileHandle directory(CreateFileW(strPath.c_str(),
                                     FILE_LIST_DIRECTORY | FILE_READ_ATTRIBUTES | READ_CONTROL,
                                     FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING,
                                     FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OPEN_REPARSE_POINT, nullptr));
    BY_HANDLE_FILE_INFORMATION information = {};
    if (!directory || !GetFileInformationByHandle(directory.Get(), &information) ||
        !(information.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) ||
        (information.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) || !IsTrustedOwner(directory.Get()))
        return FileHandle();
    return directory;
}
} // namespace

RecordFile CreateRecordFile(const wchar_t* pszDirectory, const wchar_t* pszExtension)
{
    const std::wstring strPath = DirectoryPath(pszDirectory);
    if (strPath.empty())
        return {};
    CreateDirectoryW(strPath.c_str(), nullptr); // it exists nearly always; the next step finds out
    const FileHandle directory = OpenDirectory(strPath);
    if (!directory)
        return {};
    // A process number comes again: its earlier bearer's files are passed over.
    constexpr int MAX_FILES_OF_PROCESS = 10'000;
    static int s_nNext = 0;
    for (; s_nNext < MAX_FILES_OF_PROCESS; ++s_nNext)
    {
        std::wstring strName =
            L"ZN" + std::to_wstring(GetCurrentProcessId()) + L"." + std::to_wstring(s_nNext) + pszExtension;
        // A link of that name is in the way, too: followed, it would be made where it leads.
        FileHandle file(CreateFileW(std::wstring(strPath).append(L"\\").append(strName).c_str(),
                                    GENERIC_WRITE, FILE_SHARE_READ, nullptr, CREATE_NEW,
                                    FILE_ATTRIBUTE_NORMAL | FILE_FLAG_OPEN_REPARSE_POINT, nullptr));
        const DWORD nError = GetLastError();
        if (file)
        {
            ++s_nNext;
            return {std::move(file), std::move(strName)};
        }
        if (nError != ERROR_FILE_EXISTS)
            return {};
    }
    return {};
}

void RemoveOldestRecords(const wchar_t* pszDirectory, const wchar_t* pszExtension, size_t nMaximum,
                         const std::vector<std::wstring>& protectedNames)
{
    const std::wstring strPath = DirectoryPath(pszDirectory);
    const FileHandle directory = OpenDirectory(strPath);
    if (!directory)
        return;
    WIN32_FIND_DATAW data = {};
    const FindHandle find(FindFirstFileW((strPath + L"\\ZN*" + pszExtension).c_str(), &data));
    if (!find)
        return;
    size_t nFiles = 0;
    std::vector<std::pair<uint64_t, std::wstring>> candidates; // time of the last change, name
    do
    {
        if (data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY)
            continue;
        ++nFiles;
        const FILETIME& time = data.ftLastWriteTime;
        if (std::ranges::find(protectedNames, data.cFileName) == protectedNames.end())
            candidates.emplace_back(uint64_t{time.dwHighDateTime} << 32 | time.dwLowDateTime, data.cFileName);
    } while (FindNextFileW(find.Get(), &data));
    std::ranges::sort(candidates);
    candidates.resize(std::min(candidates.size(), nFiles - std::min(nFiles, nMaximum)));
    for (const auto& candidate : candidates)
        DeleteFileW((strPath + L"\\" + candidate.second).c_str()); // what stays is tried again next time
}

bool WriteRecord(const FileHandle& file, const std::string& strText)
{
    DWORD nWritten = 0;
    return WriteFile(file.Get(), strText.data(), static_cast<DWORD>(strText.size()), &nWritten, nullptr) &&
           nWritten == strText.size();
}

std::string UtcNow()
{
    SYSTEMTIME now = {};
    GetSystemTime(&now);
    return Format("%04u-%02u-%02u %02u:%02u:%02u.%03uZ", now.wYear, now.wMonth, now.wDay, now.wHour,
                  now.wMinute, now.wSecond, now.wMilliseconds);
}
