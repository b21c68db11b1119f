// Whole-file access to the configuration files.
#pragma once

#include <windows.h>

#include <functional>
#include <optional>
#include <string>

// Reads a whole file into strContent. A file that another program has open or locked (errors 5, 32, 33) is
// tried again for three seconds. Returns 0 or the system's error code; strContent is then unchanged.
DWORD ReadWholeFile(const std::wstring& strPath, std::string& strContent);

// Replaces the file's content by what change makes of it, in one step, for one writer at a time on this
// machine: nobody sees a half-written file, and a failure at any point (change giving nothing included, which
// returns ERROR_INVALID_DATA) leaves the old file whole and no other file behind. Access list and attributes
// stay; a read-only file is not replaced. Where another program has one of the two files open (errors 5, 32,
// 33) the replacing rename is tried again for three seconds. Returns 0 or the system's error code.
using ContentChange = std::function<std::optional<std::string>(std::string)>;
DWORD ReplaceFileContent(const std::wstring& strPath, const ContentChange& change);
