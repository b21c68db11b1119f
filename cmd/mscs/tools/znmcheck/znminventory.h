// What trees hold, read from disk or from a record, and how an old and a new one stand to each other by
// bytes. Facts only: nothing is judged.
#pragma once

#include <windows.h>

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "znmconsole.h"
#include "znmdecide.h"
#include "znmfinding.h"
#include "znmidentity.h"

// SHA-256 by Windows' own cryptography, as 64 hexadecimal digits; empty if that is not to be had.
std::string ZNSha256(const std::string& strBytes);

// Those parts of a file's or directory's security descriptor as text; empty if they cannot be read.
std::wstring ZNSecurityText(const std::wstring& strPath, SECURITY_INFORMATION nWanted);

// Whether the path is there, is gone from a volume that is there, or cannot be seen, as nError says.
ZN_PRESENCE ZNFindPresence(const std::wstring& strDir, DWORD& nError);

// Progress of reading, shown on a console's standard error.
class CZNReading : public CZNProgress
{
  public:
    void AddAndShow(uint64_t nFiles, uint64_t nBytes);

  private:
    CZNStatusLine m_line{STD_ERROR_HANDLE};
};

struct ZNEntry
{
    bool fDirectory = false;
    uint64_t nSize = 0;      // in a record: of what the digest is of
    uint64_t nLastWrite = 0; // a FILETIME; not in a record
    DWORD nAttributes = 0;   // not in a record
    std::string strSha256;   // in a record, of a file
    std::wstring strSddl;    // in a record: owner, group and access list; empty if they could not be read

    bool operator==(const ZNEntry&) const = default;
};

class CZNInventory
{
  public:
    struct IgnoreCase
    {
        bool operator()(const std::wstring& strLeft, const std::wstring& strRight) const;
    };

    // Lists a tree as the command enters it: through links to directories, which links names.
    void List(const std::wstring& strDirectory);

    // Reads every file's content and every entry's access list for a record. What cannot be read is a
    // finding.
    void Read(ZN_TREE eTree, CZNReading& reading);

    // Opens every file for reading and, with fHeld, for deleting too, which fails while another program holds
    // it. What cannot be opened is a finding. With fHeld a program that opens such a file in that moment may
    // be refused.
    void Probe(bool fHeld);

    // The entry of that path below the tree, in whatever letter case, or null.
    const ZNEntry* Find(const std::wstring& strBelow) const;
    // Whether both lists are the same, and both are whole.
    bool IsSameAs(const CZNInventory& other) const;
    // Characters of the longest path that the entries have in this directory.
    size_t LongestPathIn(const std::wstring& strDirectory) const;

    std::wstring strDir; // empty: its place is not known
    ZN_PRESENCE ePresence = ZN_PRESENCE::UNSEEN;
    bool fLooked = false;
    DWORD nError = ERROR_SUCCESS;                        // why it cannot be seen
    std::map<std::wstring, ZNEntry, IgnoreCase> entries; // by path below the tree
    uint64_t nFiles = 0, nBytes = 0;
    CZNFindings findings{10};
    std::vector<std::wstring> links;          // whole paths
    CZNIdentityMap<std::wstring> directories; // of the tree, its root among them
};

// An old tree and the new one.
struct ZNPair
{
    // Compares what is there, and each tree with the record, if there is one. A tree of which something
    // cannot be read counts as unseen. Sets what the facts say of this pair, but for what others tie it to.
    void Compare(ZN_TREE eTree, const CZNInventory* pRecorded, CZNReading& reading);

    CZNInventory aTrees[ZN_SIDES];
    ZNPairFacts facts;
    CZNFindings ties{3};                                           // what holds them
    CZNFindings differences{3};                                    // between the two
    CZNFindings aUnlike[ZN_SIDES]{CZNFindings{3}, CZNFindings{3}}; // the record
};
