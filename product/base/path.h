// The one rule for the paths and directory names of configuration files. They are judged as wide text: in
// some ANSI code pages the second byte of a character can be a backslash or a bar.
#pragma once

#include <string>
#include <string_view>

// "E:", "E:\..." or "\\server...", with or without a backslash at its end. No device, no stream of a file, no
// character that no path can hold.
bool IsAbsolutePath(std::wstring_view strPath);

// One component of a path that the system takes as it stands: without a dot or blank at its end.
bool IsDirectoryName(std::wstring_view strName);

// Removes one backslash from the end, if there is one: "E:\" and "E:" are the same prefix.
void RemoveTrailingBackslash(std::wstring& strPath);
