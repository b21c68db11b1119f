// CZNTree: remembers what a directory tree holds, and compares a copy, or the tree itself later on, with it.
//
// Compared are names, kinds, sizes and last-write times; contents are not. A tree is entered exactly as far
// as CZNMSCSApp::DeleteZNFiles enters it: through links too.
#pragma once

#include <windows.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "afxwin.h"
#include "znmfinding.h"
#include "znmidentity.h"

class CZNTree
{
  public:
    // Sees each directory while it is remembered, from the top down: its path, its path below the tree's root
    // (empty for the root itself, otherwise with a leading backslash) and its identity. Sets fInOtherTree
    // where the other tree of the queue manager holds the same directory. False ends the search as a finding
    // does.
    using DirectoryVisit = std::function<bool(const CString& strDir, const CString& strBelowRoot,
                                              const CZNDirectoryIdentity& identity, bool& fInOtherTree)>;

    // Remembers what strDir holds: 24 bytes and the name for each file, about 100 and the name for each
    // directory. strNewDir is where it will be copied, for the limits of path lengths. False if anything was
    // reported: what is remembered is then incomplete.
    bool Remember(const CString& strDir, const CString& strNewDir, const DirectoryVisit& visit,
                  const ZNFindingReport& report);

    // Compares the directory strCopy with what is remembered. Anything else that lies there is no difference.
    // Times may differ as much as a file system with coarse time stamps rounds them. False if anything was
    // reported.
    bool IsWholeIn(const CString& strCopy, const ZNFindingReport& report) const;

    // Compares the remembered tree, which lay in strDir, with what lies there now: any difference is
    // reported. False if anything was.
    enum class Moment
    {
        AFTER_COPY,         // by the listings, which may be behind for a file that a program still holds open
        BEFORE_DELETION,    // each file is asked for its size and time
        OTHER_TREE_DELETED, // likewise; what the other tree of the queue manager held as well is gone or
                            // empty
    };
    bool IsUnchanged(const CString& strDir, Moment eMoment, const ZNFindingReport& report) const;

    uint64_t Files() const { return m_nFiles; }
    uint64_t Bytes() const { return m_nBytes; }

  private:
    struct File
    {
        uint64_t nSize;
        uint64_t nLastWrite; // FILETIME
        uint32_t nName;      // index of its first character in the directory's names
        uint32_t fLink;      // a link; size and time are those of the file that it leads to
    };
    struct Subdirectory;
    struct Directory
    {
        std::wstring strNames; // of the files, each with its terminator
        std::vector<File> files;
        std::vector<Subdirectory> directories;
        bool fInOtherTree = false;

        const wchar_t* NameOf(const File& file) const { return strNames.c_str() + file.nName; }
        void Sort();
    };
    struct Subdirectory
    {
        std::wstring strName;
        Directory directory;
    };
    class Search;
    class Memory;
    class Comparison;

    Directory m_root;
    uint64_t m_nFiles = 0;
    uint64_t m_nBytes = 0;
};
