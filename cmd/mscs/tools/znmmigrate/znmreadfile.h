// Reads files that other programs may be writing to.
#pragma once

#include <windows.h>

#include <functional>
#include <string>
#include <string_view>

#include "owner.h"

// Opens a file or a directory that is there and shares it with every other program. Nothing after a failure:
// the thread's last error then says why.
FileHandle ZNOpenShared(const std::wstring& strPath, DWORD nAccess,
                        DWORD nFlags = FILE_FLAG_BACKUP_SEMANTICS);

// Reads what the system knows of a file or a directory, of the target where it is a link. Returns 0 or the
// system's error code.
DWORD ZNReadInformation(const std::wstring& strPath, BY_HANDLE_FILE_INFORMATION& information);

// Hands the content of a file on, piece by piece. Returns 0 or the system's error code.
DWORD ZNReadPieces(const std::wstring& strPath, const std::function<void(std::string_view)>& take);

// Reads a whole file into strContent, which is empty after a failure. Returns 0 or the system's error code.
DWORD ZNReadFile(const std::wstring& strPath, std::string& strContent);
