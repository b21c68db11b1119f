// What a look at the trees can find that speaks against a move, or against a deletion.
#pragma once

#include <windows.h>

#include <cstddef>
#include <string>
#include <vector>

#include "tovmtrce.h"

enum class ZN_FINDING
{
    NOT_LISTED,          // a directory is missing, no directory, or cannot be listed
    NOT_IDENTIFIED,      // a directory or file cannot be told from others
    NOT_READ,            // a file, or its attributes, cannot be read
    NOT_WRITTEN,         // a file cannot be made in a new directory
    PATH_TOO_LONG,       // the shell does not copy a path of this length
    NEW_PATH_TOO_LONG,   // nor to one of this length
    LINK_CYCLE,          // a link leads back to a directory above it
    NEW_DIRECTORY,       // a directory of an old tree is a new directory, or has one in it
    CONFIGURATION,       // a directory of an old tree, or of a copy, is the one of zns.ini
    SHARED_DESTINATION,  // two old directories, or both trees, would be copied into one directory
    CLAIMED,             // another move may copy into this directory
    SOURCE_OVERWRITTEN,  // a directory or file of an old tree would be copied into, or is one of a copy
    MANY_NAMES,          // the copy would overwrite a file that has other names, too
    LINK_OVERWRITTEN,    // the copy would overwrite a file through a link
    OTHER_QUEUE_MANAGER, // a qm.ini in the new data directory, or the directory itself, is another one's
    MISSING,             // a remembered entry is not there
    APPEARED,            // an entry is there that was not remembered
    OTHER_DIRECTORY,     // another directory stands in the place of the remembered one
    OTHER_KIND,          // a directory stands where a file was, or the reverse
    OTHER_CONTENT,
    RECORD, // tarvelcheck's own file is in this directory
    OTHER_SIZE,
    OTHER_TIME, // the last write
    IS_LINK,    // a link stands in the place of a file or directory, or the reverse
};

struct ZNFinding
{
    ZN_FINDING eFinding = {};
    std::wstring strPath;
    DWORD nError = ERROR_SUCCESS; // the system's error code where a call failed
};

// The finding in English, without its path.
const char* ZNFindingText(ZN_FINDING eFinding);

// The finding in English, with its path and, where a call failed, the number of the system's error.
std::wstring ZNFormatFinding(const ZNFinding& finding);

// Findings in the order in which they were made. Those beyond the limit are counted only.
class CZNFindings
{
  public:
    explicit CZNFindings(size_t nLimit = 1) : m_nLimit(nLimit) {}

    // Returns false, for functions that fail with a finding.
    bool Add(ZN_FINDING eFinding, const std::wstring& strPath, DWORD nError = ERROR_SUCCESS);

    bool IsEmpty() const { return m_nCount == 0; }
    bool IsFull() const { return m_nCount >= m_nLimit; } // nothing more needs to be looked for
    size_t Count() const { return m_nCount; }
    const std::vector<ZNFinding>& First() const { return m_first; }

    // Writes the first finding into the trace, behind pszMeaning. Returns whether there is none.
    bool Trace(const CZNMTrace& trace, const char* pszMeaning) const;

  private:
    size_t m_nLimit, m_nCount = 0;
    std::vector<ZNFinding> m_first;
};
