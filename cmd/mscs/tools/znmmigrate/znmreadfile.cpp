// Opens for reading only and lets every other program go on.
#include "znmreadfile.h"

#include "tovmsrid.h"

ZNM_SOURCE_ID(ZNM_MIGRATE_TOOL("znmreadfile"));

FileHandle ZNOpenShared(const std::wstring& strPath, DWORD nAccess, DWORD nFlags)
{
    constexpr DWORD ALL = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
    return FileHandle(CreateFileW(strPath.c_str(), nAccess, ALL, nullptr, OPEN_EXISTING, nFlags, nullptr));
}

DWORD ZNReadInformation(const std::wstring& strPath, BY_HANDLE_FILE_INFORMATION& information)
{
    const FileHandle file = ZNOpenShared(strPath, FILE_READ_ATTRIBUTES);
    const bool fRead = file && GetFileInformationByHandle(file.Get(), &information) != 0;
    const DWORD nError = GetLastError();
    return fRead ? DWORD{ERROR_SUCCESS} : nError;
}

DWORD ZNReadPieces(const std::wstring& strPath, const std::function<void(std::string_view)>& take)
{
    const FileHandle file = ZNOpenShared(strPath, GENERIC_READ, FILE_FLAG_SEQUENTIAL_SCAN);
    DWORD nError = GetLastError();
    if (!file)
        return nError;
    constexpr DWORD PIECE = 1 << 18;
    std::string strPiece(PIECE, '\0');
    for (DWORD nRead = 1; nRead > 0;)
    {
        const BOOL fRead = ReadFile(file.Get(), strPiece.data(), PIECE, &nRead, nullptr);
        nError = GetLastError();
        if (!fRead)
            return nError;
        take(std::string_view(strPiece).substr(0, nRead));
    }
    return ERROR_SUCCESS;
}

DWORD ZNReadFile(const std::wstring& strPath, std::string& strContent)
{
    strContent.clear();
    const DWORD nError = ZNReadPieces(strPath, [&](std::string_view piece) { strContent += piece; });
    if (nError != ERROR_SUCCESS)
        strContent.clear();
    return nError;
}
