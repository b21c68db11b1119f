// Opens for reading only and lets every other program go on.
#include "znmreadfile.h"

#include "owner.h"
#include "tovmsrid.h"

ZNM_SOURCE_ID(ZNM_MIGRATE_TOOL("znmreadfile"));

DWORD ZNReadPieces(const std::wstring& strPath, const std::function<void(std::string_view)>& take)
{
    const FileHandle file(CreateFileW(strPath.c_str(), GENERIC_READ,
                                      FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                      OPEN_EXISTING, FILE_FLAG_SEQUENTIAL_SCAN, nullptr));
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
