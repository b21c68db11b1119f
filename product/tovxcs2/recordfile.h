// Files of the trace and of failure records, in directories of the work path.
#pragma once

#include <string>

#include "owner.h"

// Creates the next file ZN<process>.<n><extension> in a directory of the work path, and the directory itself
// where it is missing. It never opens a file that exists, and never follows a directory that leads elsewhere
// or belongs to somebody who does not administer the product. Null when that fails.
FileHandle CreateRecordFile(const wchar_t* pszDirectory, const wchar_t* pszExtension);

// Makes room for one more file of an extension in such a directory: the oldest goes when there are nMaximum.
void RemoveOldestRecord(const wchar_t* pszDirectory, const wchar_t* pszExtension, unsigned nMaximum);

// Writes the whole text. What could not be written is lost: there is nobody to tell.
void WriteRecord(const FileHandle& file, const std::string& strText);

// "2026-01-31 23:59:59.123Z"
std::string UtcNow();
