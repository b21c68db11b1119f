// Lists directories and walks trees for the looks and comparisons. Changes nothing on disk.
//
// What cannot be listed or read is a finding, never an empty directory: an error that passed for the end of a
// list would let files be deleted that were never copied.
#pragma once

#include <windows.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "znmfinding.h"
#include "znmidentity.h"

// The state of a file or directory. Times are FILETIMEs.
struct ZNEntryState
{
    uint64_t nSize = 0;
    uint64_t nCreated = 0, nLastWrite = 0;
    DWORD nAttributes = 0;

    bool IsDirectory() const { return (nAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0; }
};

struct ZNListed : ZNEntryState
{
    uint32_t nName = 0; // index of its first character in the listing's names
    // A link by its tag: deduplicated and cloud files are none. A file's state is that of the file that the
    // link leads to.
    bool fLink = false;
};

// What a directory holds, but for "." and "..", sorted by name.
class CZNListing
{
  public:
    // Returns false with a finding if the listing fails, at its start or half-way.
    bool Read(const std::wstring& strDir, CZNFindings& findings);

    const std::vector<ZNListed>& Entries() const { return m_entries; }
    const wchar_t* NameOf(const ZNListed& entry) const { return m_strNames.c_str() + entry.nName; }

    // The entry of that name or, if there is none, one that differs in letter case only; or null.
    const ZNListed* Find(const wchar_t* pszName) const;

  private:
    bool Add(const std::wstring& strDir, const WIN32_FIND_DATAW& found, CZNFindings& findings);

    std::wstring m_strNames; // each with its terminator
    std::vector<ZNListed> m_entries;
};

// Whether a listed entry is a link by its tag. A directory's reparse point without a tag is one, too: some
// systems do not tell tags.
bool ZNIsLink(const WIN32_FIND_DATAW& found);
// The same for a path. What cannot be asked counts as a link.
bool ZNIsLinkAt(const std::wstring& strPath);

// The state that a listing gives; a link's own.
ZNEntryState ZNStateOf(const WIN32_FIND_DATAW& found);

// Asks for the state of the file itself, by its path, or of the one that a link leads to. Returns 0 or the
// system's error code. Listings can be behind: for files that a program holds open, for hard links, on
// shares.
DWORD ZNAskFile(const std::wstring& strPath, bool fLink, ZNEntryState& state);

// ERROR_FILE_NOT_FOUND and the like.
bool ZNIsNotThere(DWORD nError);

// The order of listings: without letter case, names that differ in nothing else by their units.
bool ZNIsNameLess(const wchar_t* pszLeft, const wchar_t* pszRight);
bool ZNIsSameName(const wchar_t* pszLeft, const wchar_t* pszRight);

// One directory on a walk.
struct ZNVisited
{
    std::wstring strDir;
    std::wstring strBelow; // path below the root: empty for the root itself, else with a leading backslash
    CZNIdentity identity;
    CZNListing listing;
};

// Visits strRoot and each directory below it, parents first, through links, exactly as far as the deletion of
// a tree goes. A directory that cannot be listed or identified, and a link that leads back, are findings and
// not entered. The walk ends when the findings are full. Returns whether it made no finding; those of visit
// count.
using ZNVisit = std::function<void(const ZNVisited&)>;
bool ZNWalk(const std::wstring& strRoot, const ZNVisit& visit, CZNFindings& findings);
