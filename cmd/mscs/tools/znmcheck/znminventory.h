// CZNInventory: what a directory tree holds, file by file, with content: read from disk or from a record.
#pragma once

#include <windows.h>

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "znmfinding.h"
#include "znmidentity.h"

class CZNProgress;

// SHA-256 by Windows' own cryptography, as 64 hexadecimal digits; empty if that is not to be had.
std::string ZNSha256(const std::string& strBytes);

// The digest of a qm.ini without its LogPath line, the one that a move changes.
std::string ZNDigestWithoutLogPath(std::string strQmIni);

// Those parts of a file's or directory's security descriptor as text; empty if they cannot be read.
std::wstring ZNSecurityText(const std::wstring& strPath, SECURITY_INFORMATION nWanted);

struct ZNEntry
{
    bool fDirectory = false;
    DWORD nAttributes = 0;
    uint64_t nSize = 0;
    std::wstring strCreated, strWritten; // 2024-05-31T12:00:00.1234567Z: later times compare greater
    std::string strSha256;               // of a file that was read
    std::string strContent;              // the same, or for qm.ini the digest without its LogPath line
    std::wstring strSddl;                // owner, group and access list; empty if they cannot be read
};

class CZNInventory
{
  public:
    struct IgnoreCase
    {
        bool operator()(const std::wstring& strLeft, const std::wstring& strRight) const
        {
            return CompareStringOrdinal(strLeft.data(), static_cast<int>(strLeft.size()), strRight.data(),
                                        static_cast<int>(strRight.size()), TRUE) == CSTR_LESS_THAN;
        }
    };

    // Lists a tree as the command enters it: through links to directories, which links names. What cannot be
    // listed, told from others or kept apart from another name is one of the findings. fData: a data
    // directory, whose qm.ini has a line that a move changes. A directory that is not there is no finding.
    void List(const std::wstring& strDir, bool fData);

    // Reads every file's content and, with fSecurity, every entry's access list. A file that cannot be read
    // is one of the findings and has no digest.
    void Read(CZNProgress& progress, bool fSecurity);

    // Opens every file for reading and, with fHeld, for deleting too, which fails while another program holds
    // it. What cannot be opened is one of the findings. With fHeld a program that opens such a file in that
    // moment may be refused.
    void Probe(bool fHeld);

    // Characters of the longest path that the tree's entries have in this directory.
    size_t LongestPathIn(const std::wstring& strDirectory) const;

    std::wstring strDir;
    bool fThere = false;
    std::map<std::wstring, ZNEntry, IgnoreCase> entries; // by path below the tree
    uint64_t nFiles = 0, nBytes = 0;
    std::vector<ZNFinding> findings;
    std::vector<std::wstring> links;  // whole paths
    CZNIdentityMap<bool> directories; // of the tree, its root among them

  private:
    void ListBelow(const std::wstring& strBelow, std::vector<CZNIdentity>& above);

    bool m_fData = false;
};

// How the content of one tree, the left one, stands to another one. Paths are those below the trees.
struct ZNComparison
{
    ZNComparison() = default;
    ZNComparison(const CZNInventory& left, const CZNInventory& right);

    std::vector<std::wstring> onlyLeft, onlyRight;   // half-made configuration files aside
    std::vector<std::wstring> leftNewer, rightNewer; // of another content, written later there
    std::vector<std::wstring> damaged;     // of another content with the same time or of another kind
    std::vector<std::wstring> notCompared; // could not be read
    bool IsRightWhole() const { return onlyLeft.empty() && leftNewer.empty() && damaged.empty(); }
    bool IsSame() const
    {
        return IsRightWhole() && onlyRight.empty() && rightNewer.empty() && notCompared.empty();
    }
};
