// Files that the library itself writes in directories of the work path: the trace, failure records.
#pragma once

#include <string>

#include "owner.h"

struct WorkFile
{
    FileHandle file;
    std::wstring strName; // without its directory
};

// Creates the next file ZN<process>.<n><extension> in a directory of the work path, and the directory itself
// where it is missing. It never opens a file that exists, and never follows a directory that leads elsewhere
// or belongs to somebody who does not administer the product. Null when that fails.
WorkFile CreateWorkFile(const wchar_t* pszDirectory, const wchar_t* pszExtension);

// Writes a text at the file's end. False when not all of it could be written.
bool WriteWorkFile(const FileHandle& file, const std::string& strText);

// "2026-01-31 23:59:59.123Z"
std::string UtcNow();
