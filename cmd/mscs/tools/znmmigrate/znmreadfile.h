// Reads files that other programs may be writing to.
#pragma once

#include <windows.h>

#include <functional>
#include <string>
#include <string_view>

// Hands the content of a file on, piece by piece. Returns 0 or the system's error code.
DWORD ZNReadPieces(const std::wstring& strPath, const std::function<void(std::string_view)>& take);

// Reads a whole file into strContent, which is empty after a failure. Returns 0 or the system's error code.
DWORD ZNReadFile(const std::wstring& strPath, std::string& strContent);
