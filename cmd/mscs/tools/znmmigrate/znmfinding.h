// What a look at the trees can find that speaks against a move, or against a deletion.
#pragma once

#include <windows.h>

#include <functional>

#include "afxwin.h"
#include "tovmtrce.h"

enum class ZN_FINDING
{
    NOT_LISTED,         // a directory is missing, no directory, or cannot be listed
    NOT_IDENTIFIED,     // a directory cannot be told from others
    NOT_READ,           // a file, or its attributes, cannot be read
    PATH_TOO_LONG,      // the shell does not copy a path of this length
    NEW_PATH_TOO_LONG,  // nor to one of this length
    LINK_CYCLE,         // a link leads back to a directory above it
    NEW_DIRECTORY,      // a directory of an old tree is a new directory
    CONFIGURATION,      // a directory of an old tree is the one of zns.ini
    SHARED_DESTINATION, // two old directories, or both trees, would be copied into one directory
    SOURCE_OVERWRITTEN, // a directory of an old tree would be copied into
    MISSING,            // a remembered entry is not there
    APPEARED,           // an entry is there that was not remembered
    OTHER_KIND,         // a directory stands where a file was, or the reverse
    OTHER_SIZE,
    OTHER_TIME, // the last write
    IS_LINK,    // a link stands where the copy of a file should be
};

// The finding in English, without the path: for the trace, and for who reads it out.
const char* ZNFindingText(ZN_FINDING eFinding);

struct ZNFinding
{
    ZN_FINDING eFinding = {};
    CString strPath;
    DWORD nError = 0; // the system's error code where a call failed
};

// Receives findings one by one; false ends the search.
using ZNFindingReport = std::function<bool(const ZNFinding&)>;

// A report that writes the first finding into the trace, behind pszMeaning, and ends the search.
ZNFindingReport ZNTraceFinding(const CZNMTrace& trace, const char* pszMeaning);
