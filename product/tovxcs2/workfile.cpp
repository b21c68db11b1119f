// Makes files of the work path. Must not overwrite anything, nor write outside the work
// path: the files hold what users typed, and the writer may have more rights than who laid a trap for it.
#include "workfile.h"

#include <aclapi.h>

#include "text.h"
#include "workpath.h"

namespace
{
std::wstring DirectoryPath(const wchar_t* pszDirectory)
{
    const std::wstring strWorkPath = WorkPath();
    return strWorkPath.empty() ? L"" : strWorkPath + L"\\" + pszDirectory;
}

bool IsUser(PSID pSid)
{
    BOOL fMember = FALSE;
    return CheckTokenMembership(nullptr, pSid, &fMember) && fMember;
}

// The work path's owner is trusted in any case: what is run and deleted stands in the files there.
bool IsOwnerOfWorkPath(PSID pSid)
{
    PSID pOwner = nullptr;
    LocalBlock descriptor;
    return GetNamedSecurityInfoW(WorkPath().c_str(), SE_FILE_OBJECT, OWNER_SECURITY_INFORMATION, &pOwner,
                                 nullptr, nullptr, nullptr, descriptor.Out()) == ERROR_SUCCESS &&
           pOwner != nullptr && EqualSid(pSid, pOwner);
}

// Whoever owns a directory can give himself every right to it. Only an administrator can make somebody else
// its owner, or a group.
bool IsTrustedOwner(HANDLE hDirectory)
{
    PSID pOwner = nullptr; // stays null on a volume that keeps none
    LocalBlock descriptor;
    if (GetSecurityInfo(hDirectory, SE_FILE_OBJECT, OWNER_SECURITY_INFORMATION, &pOwner, nullptr, nullptr,
                        nullptr, descriptor.Out()) != ERROR_SUCCESS ||
        pOwner == nullptr)
        return false;
    return IsWellKnownSid(pOwner, WinBuiltinAdministratorsSid) || IsWellKnownSid(pOwner, WinLocalSystemSid) ||
           IsUser(pOwner) || IsOwnerOfWorkPath(pOwner);
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

WorkFile CreateWorkFile(const wchar_t* pszDirectory, const wchar_t* pszExtension)
{
    const std::wstring strPath = DirectoryPath(pszDirectory);
    if (strPath.empty())
        return {};
    CreateDirectoryW(strPath.c_str(), nullptr); // it exists nearly always; the next step finds out
    const FileHandle directory = OpenDirectory(strPath);
    if (!directory)
        return {};
    // Process numbers are reused: names that an earlier process took are skipped.
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

bool WriteWorkFile(const FileHandle& file, const std::string& strText)
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
