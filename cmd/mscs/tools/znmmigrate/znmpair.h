// CZNPair: an old tree and its copy. Proves that the copy is whole, remembers what was proved, and says later
// whether both are still that.
//
// Proved are names, kinds, sizes, last-write times and which directory a path leads to; contents are not
// read. Both trees are entered exactly as far as CZNMSCSApp::DeleteZNFiles enters the old one: through links
// too.
#pragma once

#include <map>

#include "znmprobe.h"
#include "znmwalk.h"

class CZNPair
{
  public:
    // Neither ends in a backslash.
    CZNPair(const std::wstring& strOld, const std::wstring& strCopy);

    // Compares the old tree as it is now with the copy as it is now, and remembers it: 32 bytes and the name
    // for each entry, about 2 KB for each directory. Anything else that lies in the copy is no difference. No
    // directory of either copy may be one of either old tree, or the one of zns.ini, if that is known.
    // Returns false with findings; what is remembered is then incomplete.
    bool Prove(const CZNPair& other, const CZNIdentity* pConfiguration, CZNFindings& findings);

    // Whether both trees are still what was proved. Each file is asked, of the copy too: a program may hold
    // it open, and the listing not know yet what that has written.
    //
    // pChanged: the directory of a copy whose qm.ini may differ, because the configuration was changed; null
    // before that change. fOtherDeleted: what the other old tree held as well is gone or empty.
    bool IsAsProved(const CZNIdentity* pChanged, bool fOtherDeleted, CZNFindings& findings) const;

    // Whether an entry that a listing of strDir, a directory of the old tree, gives is as it was proved. The
    // file is asked where the listing says something else.
    bool IsAsProved(const std::wstring& strDir, const WIN32_FIND_DATAW& found) const;

    const std::wstring& Old() const { return m_strOld; }
    const std::wstring& Copy() const { return m_strCopy; }

    // The root of the copy, once it was proved.
    const CZNIdentity& CopyIdentity() const { return m_directories.at(L"").copy; }

    // The directories of the old tree, as the look before the copy finds them, until Prove finds them again.
    CZNIdentityMap<std::wstring>& OldDirectories() { return m_oldDirectories; }
    const CZNIdentityMap<std::wstring>& OldDirectories() const { return m_oldDirectories; }

  private:
    struct Entry
    {
        uint64_t nSize;
        uint64_t nLastWrite, nCopyLastWrite;
        uint32_t nName; // index of its first character in the directory's names
        bool fDirectory;
        bool fLink, fCopyLink;
    };
    struct Directory
    {
        CZNIdentity old, copy;
        std::wstring strNames; // each with its terminator
        std::vector<Entry> entries{};
        bool fInOtherTree = false; // the other old tree holds this directory as well

        const wchar_t* NameOf(const Entry& entry) const { return strNames.c_str() + entry.nName; }
    };
    class Check;

    const Entry* Find(const std::wstring& strBelow, const wchar_t* pszName) const;
    void ProveDirectory(const ZNVisited& visited, CZNFindings& findings);
    void ProveEntry(const std::wstring& strBelow, const ZNVisited& visited, const ZNListed& listed,
                    const CZNListing& copies, Directory& directory, CZNFindings& findings);

    std::wstring m_strOld, m_strCopy;
    std::map<std::wstring, Directory> m_directories; // by path below the root
    CZNIdentityMap<std::wstring> m_oldDirectories, m_copyDirectories;
    mutable CZNTimeProbe m_timeProbe;
};
