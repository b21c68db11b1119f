// Files of the trace and of failure records, in directories of the work path.
#pragma once

#include <string>
#include <vector>

#include "owner.h"

struct RecordFile
{
    FileHandle file;
    std::wstring strName; // without its directory
};

// Creates the next file ZN<process>.<n><extension> in a directory of the work path, and the directory itself
// where it is missing. It never opens a file that exists, and never follows a directory that leads elsewhere
// or belongs to somebody who does not administer the product. Null when that fails.
RecordFile CreateRecordFile(const wchar_t* pszDirectory, const wchar_t* pszExtension);

// Removes the oldest files of an extension in such a directory until nMaximum are left. The protected ones
// stay, however old they look: somebody may have set the clock.
void RemoveOldestRecords(const wchar_t* pszDirectory, const wchar_t* pszExtension, size_t nMaximum,
                         const std::vector<std::wstring>& protectedNames);

// Writes a text at the file's end. False when not all of it could be written.
bool WriteRecord(const FileHandle& file, const std::string& strText);

// "2026-01-31 23:59:59.123Z"
std::string UtcNow();
