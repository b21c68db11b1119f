// The product's work path, and the files that the library itself writes below it: the trace, failure records.
#pragma once

#include <string>

#include "owner.h"

// The directory that holds zns.ini, the trace and the failure records, without a backslash at its end: the
// environment's ZN_WORK_PATH, else the registry's WorkPath, else Vantor\ZN below the program data. Empty when
// none of them names an absolute path.
std::wstring WorkPath();

struct WorkFile
{
    FileHandle file;
    std::wstring strName; // without its directory
};

// Creates the next file ZN<process>.<n><extension> in a directory of the work path, and the directory itself
// where it is missing. It never opens a file that exists. Null when that fails.
WorkFile CreateWorkFile(const wchar_t* pszDirectory, const wchar_t* pszExtension);

// Writes a text at the file's end. False when not all of it could be written.
bool WriteWorkFile(const FileHandle& file, const std::string& strText);
