// Replaces a file by way of a new one beside it. Must never leave the old file changed in part, nor let
// anybody read the new one who could not read the old one, not even for a moment.
#include "replacefile.h"

#include <aclapi.h>
#include <ntsecapi.h>

#include <cstdint>

#include "access.h"

namespace
{
constexpr LONGLONG MAX_FILE_SIZE = 256LL << 20;
constexpr DWORD LOCK_TIMEOUT_MS = 30'000;
constexpr int ATTEMPTS = 300;
constexpr DWORD PAUSE_MS = 10; // short: a reader that opens the file again and again leaves short gaps

// The code of a call that has just failed, also where the system gave none: 0 would mean success.
DWORD Failure()
{
    const DWORD nError = GetLastError();
    return nError != ERROR_SUCCESS ? nError : DWORD{ERROR_GEN_FAILURE};
}

// Another program has the file open for a moment: a virus scanner, a backup, another reader during a rename.
bool IsBusy(DWORD nError)
{
    return nError == ERROR_ACCESS_DENIED || nError == ERROR_SHARING_VIOLATION ||
           nError == ERROR_LOCK_VIOLATION;
}

// Calls attempt, which returns an error code, until it does not find the file busy, for three seconds at
// most.
template <class Attempt>
DWORD WhileBusy(Attempt attempt)
{
    DWORD nError = attempt();
    for (int n = 1; n < ATTEMPTS && IsBusy(nError); ++n)
    {
        Sleep(PAUSE_MS);
        nError = attempt();
    }
    return nError;
}

// A new file beside another one. It disappears with this object unless it has taken the other one's place.
class NewFile
{
  public:
    ~NewFile()
    {
        m_file.Close();
        if (!m_strPath.empty())
            DeleteFileW(m_strPath.c_str()); // the first failure is the one that is reported
    }

    // The name is random, so that nobody can put something in its way, and nothing that exists is opened. The
    // file is born with the old one's access list, closed to what the directory would add to it; then the
    // same list is set as it stood, inherited entries and all.
    DWORD Create(const std::wstring& strBeside, DWORD nAttributes)
    {
        LocalBlock descriptor;
        const DWORD nResult =
            GetNamedSecurityInfoW(strBeside.c_str(), SE_FILE_OBJECT, DACL_SECURITY_INFORMATION, nullptr,
                                  nullptr, nullptr, nullptr, descriptor.Out());
        if (nResult != ERROR_SUCCESS)
            return nResult;
        SECURITY_DESCRIPTOR_CONTROL fControl = 0;
        DWORD nRevision = 0;
        if (!GetSecurityDescriptorControl(descriptor.Get(), &fControl, &nRevision) ||
            !SetSecurityDescriptorControl(descriptor.Get(), SE_DACL_PROTECTED, SE_DACL_PROTECTED))
            return Failure();

        uint64_t nRandom = 0;
        if (!RtlGenRandom(&nRandom, sizeof nRandom))
            return ERROR_GEN_FAILURE;
        wchar_t szName[32];
        wsprintfW(szName, L"ZN%08X%08X.tmp", static_cast<unsigned>(nRandom >> 32),
                  static_cast<unsigned>(nRandom));
        const std::wstring strPath = strBeside.substr(0, strBeside.find_last_of(L"\\/") + 1) + szName;
        SECURITY_ATTRIBUTES attributes = {sizeof attributes, descriptor.Get(), FALSE};
        m_file = FileHandle(CreateFileW(strPath.c_str(), GENERIC_WRITE | WRITE_DAC, 0, &attributes,
                                        CREATE_NEW, nAttributes, nullptr));
        if (!m_file)
            return Failure();
        m_strPath = strPath;
        // The system keeps the auto-inherited mark only where the request bit is set, too.
        constexpr SECURITY_DESCRIPTOR_CONTROL INHERITANCE =
            SE_DACL_PROTECTED | SE_DACL_AUTO_INHERITED | SE_DACL_AUTO_INHERIT_REQ;
        if (fControl & SE_DACL_AUTO_INHERITED)
            fControl |= SE_DACL_AUTO_INHERIT_REQ;
        if (!SetSecurityDescriptorControl(descriptor.Get(), INHERITANCE, fControl & INHERITANCE) ||
            !SetKernelObjectSecurity(m_file.Get(), DACL_SECURITY_INFORMATION, descriptor.Get()))
            return Failure();
        return ERROR_SUCCESS;
    }

    DWORD Write(const std::string& strContent)
    {
        DWORD nWritten = 0;
        if (!WriteFile(m_file.Get(), strContent.data(), static_cast<DWORD>(strContent.size()), &nWritten,
                       nullptr))
            return Failure();
        if (nWritten != strContent.size())
            return ERROR_WRITE_FAULT;
        return FlushFileBuffers(m_file.Get()) ? ERROR_SUCCESS : Failure();
    }

    // A rename within one directory is one step; ReplaceFileW is several, and can stop between them.
    DWORD TakePlaceOf(const std::wstring& strOther)
    {
        m_file.Close();
        const DWORD nError = WhileBusy([&] {
            return MoveFileExW(m_strPath.c_str(), strOther.c_str(),
                               MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH)
                       ? DWORD{ERROR_SUCCESS}
                       : Failure();
        });
        if (nError == ERROR_SUCCESS)
            m_strPath.clear();
        return nError;
    }

  private:
    FileHandle m_file;
    std::wstring m_strPath;
};

DWORD ReadOnce(const std::wstring& strPath, std::string& strContent)
{
    const FileHandle file(CreateFileW(strPath.c_str(), GENERIC_READ,
                                      FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                      OPEN_EXISTING, 0, nullptr));
    if (!file)
        return Failure();
    LARGE_INTEGER nSize = {};
    if (!GetFileSizeEx(file.Get(), &nSize))
        return Failure();
    if (nSize.QuadPart > MAX_FILE_SIZE)
        return ERROR_FILE_TOO_LARGE;
    std::string strRead(static_cast<size_t>(nSize.QuadPart), '\0');
    DWORD nRead = 0;
    if (!ReadFile(file.Get(), strRead.data(), static_cast<DWORD>(strRead.size()), &nRead, nullptr))
        return Failure();
    if (nRead != strRead.size()) // the file shrank meanwhile: half of it is not its content
        return ERROR_HANDLE_EOF;
    strContent = std::move(strRead);
    return ERROR_SUCCESS;
}
} // namespace

DWORD ReadWholeFile(const std::wstring& strPath, std::string& strContent)
{
    return WhileBusy([&] { return ReadOnce(strPath, strContent); });
}

DWORD ReplaceFileContent(const std::wstring& strPath, const ContentChange& change)
{
    // Two programs that change one file at the same time would lose one of the changes. By default the lock
    // of one administrator would refuse the next one.
    SharedObjectSecurity security;
    const KernelHandle mutex(CreateMutexW(security.Get(), FALSE, L"Global\\ZN.Configuration"));
    if (!mutex)
        return Failure();
    const HeldMutex held = AcquireMutex(mutex, LOCK_TIMEOUT_MS); // a writer that died left the file whole
    if (!held)
        return ERROR_LOCK_VIOLATION;
    std::string strOld;
    if (const DWORD nError = ReadWholeFile(strPath, strOld))
        return nError;
    const std::optional<std::string> strNew = change(std::move(strOld));
    if (!strNew)
        return ERROR_INVALID_DATA;
    const DWORD nAttributes = GetFileAttributesW(strPath.c_str());
    if (nAttributes == INVALID_FILE_ATTRIBUTES)
        return Failure();
    if (nAttributes & FILE_ATTRIBUTE_READONLY)
        return ERROR_ACCESS_DENIED;

    NewFile file;
    const DWORD fKept = FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM | FILE_ATTRIBUTE_ARCHIVE;
    DWORD nResult = file.Create(strPath, nAttributes & fKept);
    if (nResult == ERROR_SUCCESS)
        nResult = file.Write(*strNew);
    if (nResult == ERROR_SUCCESS)
        nResult = file.TakePlaceOf(strPath);
    return nResult;
}
