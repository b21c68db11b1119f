// Creates, copies and deletes directory trees. Speaks only to the trace; a failure is the return value, and
// what the user hears of it is the migration procedure's to say.
#include "znmapp.h"

#include <shellapi.h>

#include <cwchar>
#include <string>

#include "owner.h"
#include "tovmflse.h"
#include "tovmsrid.h"
#include "tovmtrce.h"
#include "tovxcs2.h"

ZNM_SOURCE_ID(ZNM_MIGRATE_TOOL("znmdirs"));

namespace
{
constexpr int ACCESS_EXISTS = 0;
constexpr int ACCESS_READ_WRITE = 6;

// What Everyone keeps on new directories and copied files, where there is an entry for Everyone at all.
constexpr uint32_t WORLD_ACCESS_MODE = SET_ACCESS;
constexpr uint32_t WORLD_PERMISSIONS = GENERIC_READ;
constexpr uint32_t WORLD_INHERITANCE = SUB_CONTAINERS_AND_OBJECTS_INHERIT;

bool Exists(const CString& strPath)
{
    return _waccess(strPath, ACCESS_EXISTS) == 0;
}

bool IsDirectory(DWORD nAttributes)
{
    return (nAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
}

// A list of one name for the shell: two NULs end it, whatever its length.
std::wstring ShellList(const wchar_t* pszName)
{
    return std::wstring(pszName) + L'\0'; // and the string's own terminator
}

// Makes a directory the current one for as long as the object lives. A failure to do so does not matter to
// the copy.
class WorkingDirectory
{
  public:
    WorkingDirectory(const CZNMTrace& trace, const CString& strDir) : m_trace(trace)
    {
        // A current directory that does not fit leaves the buffer empty: it is changed all the same, but not
        // restored.
        if (GetCurrentDirectoryW(MAX_PATH, m_szSaved) == 0)
            return;
        trace.Parms("Current Dir = %S, Changing to = %S", static_cast<const wchar_t*>(m_szSaved), strDir);
        if (SetCurrentDirectoryW(strDir) != TRUE)
            trace.Parms("Failed to change current directory to '%S'", strDir);
    }
    ~WorkingDirectory()
    {
        if (m_szSaved[0] == L'\0')
            return;
        m_trace.Parms("Restoring original working directory '%S'", static_cast<const wchar_t*>(m_szSaved));
        if (SetCurrentDirectoryW(m_szSaved) != TRUE)
            m_trace.Text("Failed to restore original working directory!");
    }
    WorkingDirectory(const WorkingDirectory&) = delete;
    WorkingDirectory& operator=(const WorkingDirectory&) = delete;

  private:
    const CZNMTrace& m_trace;
    wchar_t m_szSaved[MAX_PATH] = {};
};

// Replaces the rights that the files of a copy brought along. The directory step is made whatever the first
// one gave.
int SecureCopy(const CZNMTrace& trace, const CString& strDest)
{
    int nResult = 1;
    CZNMFileSecurity fileSecurity(nullptr);
    if (fileSecurity.SetSecurityOnFiles(strDest + L"\\*", 1, 1, 1, WORLD_ACCESS_MODE, WORLD_PERMISSIONS,
                                        WORLD_INHERITANCE) != TRUE)
    {
        trace.Text("Failed to set security on destination files");
        nResult = 0;
    }
    if (fileSecurity.SetSecurityOnFiles(strDest, 0, 1, 1, WORLD_ACCESS_MODE, WORLD_PERMISSIONS,
                                        WORLD_INHERITANCE) != TRUE)
    {
        trace.Text("Failed to set security on destination directory");
        nResult = 0;
    }
    return nResult;
}
} // namespace

// --- Creation ------------------------------------------------------------------------------------

int CZNMSCSApp::CheckAndCreateZNDirectory(const CString& strDir)
{
    CZNMTrace trace(FN_CHECK_AND_CREATE_ZN_DIRECTORY);
    trace.Parms("CZNMSCSApp::CheckAndCreateZNDirectory() (strDir = %S)", strDir);
    if (!Exists(strDir))
    {
        if (CreateZNDirectory(strDir, CString()) == 0)
            return trace.Return(1);
        trace.Text("Cannot create directory structure");
        return trace.Return(0);
    }
    trace.Text("The specified directory/file already exists");
    if (!IsDirectory(GetFileAttributesW(strDir))) // unreadable attributes count as a directory's
    {
        trace.Text("Specified directory/file is actually a file");
        return trace.Return(0);
    }
    if (_waccess(strDir, ACCESS_READ_WRITE) != 0)
    {
        trace.Text("Cannot access the specified directory");
        return trace.Return(0);
    }
    return trace.Return(1);
}

uint32_t CZNMSCSApp::CreateZNDirectory(const CString& strDir, const CString& strLastDir)
{
    CZNMTrace trace(FN_CREATE_ZN_DIRECTORY);
    trace.Parms("CZNMSCSApp::CreateZNDirectory() (strDir = %S, strLastDir = %S)", strDir, strLastDir);

    CString strWork = strDir;
    if (strWork.Right(1) != L"\\")
        strWork += L'\\';
    const int nBackslash = strWork.Find(L'\\');
    CString strCurrent = strWork.Left(nBackslash);
    const CString strRemainder = strWork.Right(strWork.GetLength() - nBackslash - 1);
    if (strCurrent.Right(1) == L":")
        strCurrent += L'\\';
    const bool fJoined = strLastDir.IsEmpty() || strLastDir.Right(1) == L"\\";
    const CString strTotal = fJoined ? strLastDir + strCurrent : strLastDir + L"\\" + strCurrent;
    trace.Parms("Current: '%S', Remainder: '%S', Total: '%S'", strCurrent, strRemainder, strTotal);

    uint32_t nCode = 0;
    if (!Exists(strTotal))
    {
        const CW2A narrowTotal(strTotal);
        trace.Parms("Directory '%S' does not exist", strTotal);
        if (xcsCreateDirectory(narrowTotal, 1, nullptr, nullptr, 1, &nCode) != 0)
        {
            trace.Parms("Failed to create directory '%S': %u", strTotal, nCode);
            return trace.Return(nCode);
        }
        {
            CZNMFileSecurity fileSecurity(nullptr);
            trace.Parms("Setting security on new directory '%S'", strTotal);
            if (fileSecurity.SetSecurityOnFiles(strTotal, 0, 0, 0, WORLD_ACCESS_MODE, WORLD_PERMISSIONS,
                                                WORLD_INHERITANCE) != TRUE)
                trace.Text("Failed to set security on newly created directory"); // and goes on
        }
        trace.Parms("Successfully created directory '%S'", strTotal);
    }
    else
    {
        trace.Parms("Directory '%S' already exists", strTotal);
        nCode = GetFileAttributesW(strTotal);
        const DWORD nError = GetLastError();
        if (nCode == INVALID_FILE_ATTRIBUTES)
        {
            trace.Parms("Failed to get file attributes on '%S'", strTotal);
            return trace.Return(static_cast<uint32_t>(nError));
        }
        if (!IsDirectory(nCode))
        {
            trace.Text("Specified path is not a directory");
            return trace.Return(uint32_t{ERROR_PATH_NOT_FOUND});
        }
    }
    // A last component that exists leaves its attributes as the code, which is not 0: callers only come here
    // for a path that did not exist, and take one that appeared meanwhile for a failure.
    return trace.Return(strRemainder.IsEmpty() ? nCode : CreateZNDirectory(strRemainder, strTotal));
}

// --- Copy ----------------------------------------------------------------------------------------

int CZNMSCSApp::CopyZNFiles(const CString& strDest, const CString& strSrc, const Proof& prove)
{
    CZNMTrace trace(FN_COPY_ZN_FILES);
    trace.Parms("CZNMSCSApp::CopyZNFiles() (strDest = %S, strSrc = %S)", strDest, strSrc);

    const CString strSrcSpec = strSrc + L"\\*";
    const std::wstring srcList = ShellList(strSrcSpec);
    const std::wstring destList = ShellList(strDest);
    trace.Parms("Copying '%S' to '%S'", strSrcSpec, strDest);
    SHFILEOPSTRUCTW request = {};
    request.wFunc = FO_COPY;
    request.pFrom = srcList.c_str();
    request.pTo = destList.c_str();
    request.fFlags = FOF_SILENT | FOF_NOCONFIRMATION | FOF_NOCONFIRMMKDIR | FOF_NOERRORUI;

    const WorkingDirectory workingDirectory(trace, strSrc);
    const int nCopied = SHFileOperationW(&request);
    const DWORD nError = GetLastError();
    if (nCopied != 0)
    {
        trace.Parms("Cannot copy directory '%S' to '%S' rc=%u, gle=%u", strSrcSpec, strDest, nCopied, nError);
        return trace.Return(0);
    }

    // With these flags the shell goes on after an error, and may return 0 without having copied everything.
    CZNFindings findings;
    prove(findings);
    if (!findings.Trace(trace, "The copy is not the whole of the source"))
        return trace.Return(0);
    return trace.Return(SecureCopy(trace, strDest));
}

// --- Deletion ------------------------------------------------------------------------------------

int CZNMSCSApp::DeleteZNFiles(const CString& strDir, const CZNPair& proved)
{
    CZNMTrace trace(FN_DELETE_ZN_FILES);
    trace.Parms("CZNMSCSApp::DeleteZNFiles() (strDir = %S)", strDir);

    // The first entry, "." in every directory but a root, is never looked at: in a listing that begins
    // otherwise that entry survives, and with it the directory.
    WIN32_FIND_DATAW firstEntry = {};
    WIN32_FIND_DATAW entry = {};
    const CString strPattern = strDir + L"\\*";
    FindHandle find(FindFirstFileW(strPattern, &firstEntry));
    if (!find)
        return trace.Return(1); // what cannot be listed counts as deleted

    while (FindNextFileW(find.Get(), &entry)) // an error ends the list like its end
    {
        if (std::wcscmp(entry.cFileName, L".") == 0 || std::wcscmp(entry.cFileName, L"..") == 0)
            continue;
        const CString strPath = strDir + L"\\" + entry.cFileName;
        if (!proved.IsAsProved(static_cast<const wchar_t*>(strDir), entry))
        {
            trace.Parms("Not deleted, because it is not what was copied: '%S'", strPath);
            return trace.Return(0);
        }
        if ((entry.dwFileAttributes & (FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN)) != 0)
            SetFileAttributesW(strPath, FILE_ATTRIBUTE_NORMAL); // whether it helped, the deletion tells

        if (IsDirectory(entry.dwFileAttributes))
        {
            if (DeleteZNFiles(strPath, proved) != 1)
                return trace.Return(0);
            continue;
        }
        const BOOL fDeleted = DeleteFileW(strPath);
        const DWORD nError = GetLastError();
        if (fDeleted != TRUE)
        {
            trace.Parms("Unable to delete file '%S', error '%u'", strPath, nError);
            return trace.Return(0);
        }
        trace.Parms("Successfully deleted file '%S'", strPath);
    }
    find.Close(); // an open search would keep the directory from being removed

    const BOOL fRemoved = RemoveDirectoryW(strDir);
    const DWORD nError = GetLastError();
    if (fRemoved != TRUE)
    {
        trace.Parms("Unable to delete directory '%S', error '%u'", strDir, nError);
        return trace.Return(0);
    }
    trace.Parms("Successfully deleted directory '%S'", strDir);
    return trace.Return(1);
}
