// Judges paths by their text. What is refused here would otherwise end in data that no configuration names,
// or that is deleted as part of an old tree.
#pragma once

#include <string>

#include "afxwin.h"

// Longest paths that the shell copies, in characters without the terminator. A directory must leave room for
// an 8.3 file name.
constexpr int ZN_MAX_FILE_PATH = MAX_PATH - 1;
constexpr int ZN_MAX_DIRECTORY_PATH = MAX_PATH - 13;

// What Windows makes of the path, with backslashes and none at the end; empty if it makes nothing of it.
std::wstring ResolvedPath(const std::wstring& strPath);

// Whether a path from the product's configuration can be an old tree: an absolute path with a drive letter or
// of a share, in any spelling that Windows resolves to the same directory with and without a name behind it,
// of something below the root of its drive, share or mounted volume. Of any other path the current directory
// or a whole volume could be copied and deleted.
bool IsTreePath(const CString& strPath);

// Whether a new tree can be made at a path and be found again by the same text: absolute with a drive letter
// or as \\server\share, of at most ZN_MAX_DIRECTORY_PATH characters, each component one that Windows keeps
// as it stands (no device name, no stream, no trailing dot or blank), and without a character that the
// thread's code page, in which the configuration names it, lacks. Doubled backslashes below the root are
// passed over, as the creation of directories does.
bool CanBeDestination(const CString& strPath);
