// Lists trees and compares them. Changes nothing on disk. What cannot be listed or read is a finding, never
// an empty directory: an error that passes for the end of a list would let files be deleted that were never
// copied.
#include "znmtree.h"

#include <algorithm>
#include <cwchar>
#include <optional>

#include "owner.h"
#include "tovmsrid.h"
#include "tovxcs2.h"
#include "znmpaths.h"

ZNM_SOURCE_ID(ZNM_MIGRATE_TOOL("znmtree"));

namespace
{
uint64_t Join(DWORD nHigh, DWORD nLow)
{
    return uint64_t{nHigh} << 32 | nLow;
}

uint64_t Join(const FILETIME& time)
{
    return Join(time.dwHighDateTime, time.dwLowDateTime);
}

bool IsDirectory(DWORD nAttributes)
{
    return (nAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
}

// A file that is a link. Other reparse points, such as those of compressed or deduplicated files, are the
// file itself.
bool IsFileLink(const WIN32_FIND_DATAW& entry)
{
    return (entry.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0 &&
           !IsDirectory(entry.dwFileAttributes) && IsReparseTagNameSurrogate(entry.dwReserved0);
}

bool IsDotEntry(const WIN32_FIND_DATAW& entry)
{
    return std::wcscmp(entry.cFileName, L".") == 0 || std::wcscmp(entry.cFileName, L"..") == 0;
}

// Puts size and time of the file that a link leads to into its entry. Returns 0 or the system's error code.
DWORD ReadThroughLink(const CString& strPath, WIN32_FIND_DATAW& entry)
{
    const FileHandle file(CreateFileW(strPath, FILE_READ_ATTRIBUTES,
                                      FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                      OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr));
    DWORD nError = GetLastError();
    if (!file)
        return nError;
    BY_HANDLE_FILE_INFORMATION information = {};
    const BOOL fRead = GetFileInformationByHandle(file.Get(), &information);
    nError = GetLastError();
    if (!fRead)
        return nError;
    entry.nFileSizeHigh = information.nFileSizeHigh;
    entry.nFileSizeLow = information.nFileSizeLow;
    entry.ftLastWriteTime = information.ftLastWriteTime;
    return ERROR_SUCCESS;
}

CString PathBelow(const CString& strDir, const wchar_t* pszName)
{
    return strDir + L"\\" + pszName;
}

int CompareNames(const wchar_t* pszLeft, const wchar_t* pszRight)
{
    return CompareStringOrdinal(pszLeft, -1, pszRight, -1, TRUE) - CSTR_EQUAL;
}

// Names that differ in letter case only have a fixed order too: there are directories that keep both.
bool IsNameLess(const wchar_t* pszLeft, const wchar_t* pszRight)
{
    const int nOrder = CompareNames(pszLeft, pszRight);
    return nOrder != 0 ? nOrder < 0 : std::wcscmp(pszLeft, pszRight) < 0;
}

// FAT rounds times to 2 s, exFAT to 10 ms: a time that is no multiple of 10 ms was not rounded.
bool IsSameTimeInCopy(uint64_t nSource, uint64_t nCopy)
{
    constexpr uint64_t COARSE_UNIT = 100'000;      // 10 ms in units of 100 ns
    constexpr uint64_t LARGEST_ROUND = 20'000'000; // 2 s
    const uint64_t nDifference = nSource > nCopy ? nSource - nCopy : nCopy - nSource;
    return nDifference == 0 || (nCopy % COARSE_UNIT == 0 && nDifference < LARGEST_ROUND);
}
} // namespace

// --- Listing -----------------------------------------------------------------------------------------

// Lists directories and reports findings. Once the report wants no more, everything returns at once.
class CZNTree::Search
{
  public:
    explicit Search(const ZNFindingReport& report) : m_report(report) {}

    bool HasFound() const { return m_fFound; }
    bool IsOver() const { return m_fOver; }

  protected:
    void Report(ZN_FINDING eFinding, const CString& strPath, DWORD nError = ERROR_SUCCESS)
    {
        m_fFound = true;
        m_fOver = m_fOver || !m_report({eFinding, strPath, nError});
    }
    void End() { m_fFound = m_fOver = true; }

    // What strDir holds, sorted by name, its subdirectories still empty. Nothing if the listing failed, at
    // its start or half-way, which is then reported.
    std::optional<Directory> List(const CString& strDir);

  private:
    void Add(Directory& listed, const CString& strDir, WIN32_FIND_DATAW& entry);

    const ZNFindingReport& m_report;
    bool m_fFound = false;
    bool m_fOver = false;
};

std::optional<CZNTree::Directory> CZNTree::Search::List(const CString& strDir)
{
    Directory listed;
    WIN32_FIND_DATAW entry = {};
    const CString strPattern = PathBelow(strDir, L"*");
    const FindHandle find(FindFirstFileExW(strPattern, FindExInfoBasic, &entry, FindExSearchNameMatch,
                                           nullptr, FIND_FIRST_EX_LARGE_FETCH));
    DWORD nError = GetLastError();
    if (find)
    {
        do
        {
            if (!IsDotEntry(entry))
                Add(listed, strDir, entry);
            const BOOL fNext = FindNextFileW(find.Get(), &entry);
            nError = fNext ? DWORD{ERROR_SUCCESS} : GetLastError();
        } while (nError == ERROR_SUCCESS);
        if (nError == ERROR_NO_MORE_FILES)
        {
            listed.Sort();
            return listed;
        }
    }
    Report(ZN_FINDING::NOT_LISTED, strDir, nError);
    return std::nullopt;
}

void CZNTree::Search::Add(Directory& listed, const CString& strDir, WIN32_FIND_DATAW& entry)
{
    if (IsDirectory(entry.dwFileAttributes))
    {
        listed.directories.push_back({entry.cFileName, {}});
        return;
    }
    const bool fLink = IsFileLink(entry);
    if (const DWORD nError = fLink ? ReadThroughLink(PathBelow(strDir, entry.cFileName), entry) : 0)
        Report(ZN_FINDING::NOT_READ, PathBelow(strDir, entry.cFileName), nError);
    listed.files.push_back({Join(entry.nFileSizeHigh, entry.nFileSizeLow), Join(entry.ftLastWriteTime),
                            static_cast<uint32_t>(listed.strNames.size()), fLink});
    listed.strNames.append(entry.cFileName).push_back(L'\0');
}

// Most file systems list by name already.
void CZNTree::Directory::Sort()
{
    const auto isFileLess = [this](const File& left, const File& right) {
        return IsNameLess(NameOf(left), NameOf(right));
    };
    const auto isDirectoryLess = [](const auto& left, const auto& right) {
        return IsNameLess(left.strName.c_str(), right.strName.c_str());
    };
    if (!std::ranges::is_sorted(files, isFileLess))
        std::ranges::sort(files, isFileLess);
    if (!std::ranges::is_sorted(directories, isDirectoryLess))
        std::ranges::sort(directories, isDirectoryLess);
}

// --- Remembering -------------------------------------------------------------------------------------

class CZNTree::Memory : public Search
{
  public:
    Memory(CZNTree& tree, int nGrowth, const DirectoryVisit& visit, const ZNFindingReport& report)
        : Search(report), m_tree(tree), m_nGrowth(nGrowth), m_visit(visit)
    {
    }

    void Remember(Directory& directory, const CString& strDir, const CString& strBelowRoot)
    {
        if (!HasLength(strDir, ZN_MAX_DIRECTORY_PATH)) // also where a cycle of links could not be told
            return;
        std::optional<Directory> listed = List(strDir);
        if (!listed || IsOver())
            return;
        directory = std::move(*listed);
        directory.files.shrink_to_fit();
        directory.strNames.shrink_to_fit();

        DWORD nError = ERROR_SUCCESS;
        const auto identity = CZNDirectoryIdentity::Of(strDir, nError);
        if (!identity)
            return Report(ZN_FINDING::NOT_IDENTIFIED, strDir, nError);
        if (std::ranges::find(m_above, *identity) != m_above.end())
            return Report(ZN_FINDING::LINK_CYCLE, strDir);
        if (!m_visit(strDir, strBelowRoot, *identity, directory.fInOtherTree))
            return End();

        for (const File& file : directory.files)
        {
            if (!HasLength(PathBelow(strDir, directory.NameOf(file)), ZN_MAX_FILE_PATH) && IsOver())
                return;
            ++m_tree.m_nFiles;
            m_tree.m_nBytes += file.nSize;
        }
        m_above.push_back(*identity);
        for (auto& [strName, subdirectory] : directory.directories)
        {
            Remember(subdirectory, PathBelow(strDir, strName.c_str()),
                     PathBelow(strBelowRoot, strName.c_str()));
            if (IsOver())
                return;
        }
        m_above.pop_back();
    }

  private:
    bool HasLength(const CString& strPath, int nLongest)
    {
        const bool fOldTooLong = strPath.GetLength() > nLongest;
        if (!fOldTooLong && strPath.GetLength() + m_nGrowth <= nLongest)
            return true;
        Report(fOldTooLong ? ZN_FINDING::PATH_TOO_LONG : ZN_FINDING::NEW_PATH_TOO_LONG, strPath);
        return false;
    }

    CZNTree& m_tree;
    int m_nGrowth; // of each path by the move
    const DirectoryVisit& m_visit;
    std::vector<CZNDirectoryIdentity> m_above; // the directories that the current one is in
};

bool CZNTree::Remember(const CString& strDir, const CString& strNewDir, const DirectoryVisit& visit,
                       const ZNFindingReport& report)
{
    *this = CZNTree();
    Memory memory(*this, strNewDir.GetLength() - strDir.GetLength(), visit, report);
    memory.Remember(m_root, strDir, CString());
    return !memory.HasFound();
}

// --- Comparing ---------------------------------------------------------------------------------------

// A copy may hold more than the source and round its times; the source itself must be as it was.
class CZNTree::Comparison : public Search
{
  public:
    Comparison(std::optional<Moment> eMoment, const ZNFindingReport& report)
        : Search(report), m_fCopy(!eMoment), m_fAskFiles(eMoment && *eMoment != Moment::AFTER_COPY),
          m_fOtherDeleted(eMoment == Moment::OTHER_TREE_DELETED)
    {
    }

    void Compare(const Directory& remembered, const CString& strDir)
    {
        const bool fDeleted = IsExpectedGone(remembered);
        if (fDeleted && IsGone(strDir))
            return;
        const std::optional<Directory> now = List(strDir);
        if (!now || IsOver())
            return;
        static const Directory s_empty;
        CompareEntries(fDeleted ? s_empty : remembered, *now, strDir);
    }

  private:
    bool IsExpectedGone(const Directory& remembered) const
    {
        return m_fOtherDeleted && remembered.fInOtherTree;
    }

    static bool IsGone(const CString& strDir)
    {
        const DWORD nAttributes = GetFileAttributesW(strDir);
        const DWORD nError = GetLastError();
        return nAttributes == INVALID_FILE_ATTRIBUTES &&
               (nError == ERROR_FILE_NOT_FOUND || nError == ERROR_PATH_NOT_FOUND);
    }

    void CompareEntries(const Directory& remembered, const Directory& now, const CString& strDir)
    {
        const auto hasDirectory = [](const Directory& directory, const wchar_t* pszName) {
            return std::ranges::any_of(directory.directories, [&](const auto& subdirectory) {
                return CompareNames(subdirectory.strName.c_str(), pszName) == 0;
            });
        };
        const auto hasFile = [](const Directory& directory, const wchar_t* pszName) {
            return std::ranges::any_of(directory.files, [&](const File& file) {
                return CompareNames(directory.NameOf(file), pszName) == 0;
            });
        };
        const auto reportMissing = [&](bool fOtherKind, const wchar_t* pszName) {
            Report(fOtherKind ? ZN_FINDING::OTHER_KIND : ZN_FINDING::MISSING, PathBelow(strDir, pszName));
        };
        const auto reportAppeared = [&](const wchar_t* pszName) {
            if (!m_fCopy)
                Report(ZN_FINDING::APPEARED, PathBelow(strDir, pszName));
        };

        Match(
            remembered.files, now.files, [&](const File& file) { return remembered.NameOf(file); },
            [&](const File& file) { return now.NameOf(file); },
            [&](const File& file, const File& fileNow) {
                CompareFile(file, fileNow, PathBelow(strDir, now.NameOf(fileNow)));
            },
            [&](const File& file) {
                reportMissing(hasDirectory(now, remembered.NameOf(file)), remembered.NameOf(file));
            },
            reportAppeared);

        const auto nameOfDirectory = [](const auto& subdirectory) { return subdirectory.strName.c_str(); };
        Match(
            remembered.directories, now.directories, nameOfDirectory, nameOfDirectory,
            [&](const auto& subdirectory, const auto& subdirectoryNow) {
                Compare(subdirectory.directory, PathBelow(strDir, subdirectoryNow.strName.c_str()));
            },
            [&](const auto& subdirectory) {
                if (!IsExpectedGone(subdirectory.directory))
                    reportMissing(hasFile(now, subdirectory.strName.c_str()), subdirectory.strName.c_str());
            },
            reportAppeared);
    }

    // Pairs entries of two lists that are sorted by name; letter case does not matter, but each entry has one
    // partner only.
    template <class Entry, class NameOf, class NameOfNow, class Both, class Missing, class Appeared>
    void Match(const std::vector<Entry>& remembered, const std::vector<Entry>& now, NameOf nameOf,
               NameOfNow nameOfNow, Both both, Missing missing, Appeared appeared)
    {
        auto next = now.begin();
        for (const Entry& entry : remembered)
        {
            int nOrder = 1;
            while (next != now.end() && (nOrder = CompareNames(nameOfNow(*next), nameOf(entry))) < 0 &&
                   !IsOver())
                appeared(nameOfNow(*next++));
            if (IsOver())
                return;
            if (next != now.end() && nOrder == 0)
                both(entry, *next++);
            else
                missing(entry);
        }
        for (; next != now.end() && !IsOver(); ++next)
            appeared(nameOfNow(*next));
    }

    void CompareFile(const File& remembered, const File& listed, const CString& strPath)
    {
        File now = listed;
        if (m_fAskFiles && !listed.fLink)
        {
            WIN32_FILE_ATTRIBUTE_DATA attributes = {};
            const BOOL fRead = GetFileAttributesExW(strPath, GetFileExInfoStandard, &attributes);
            const DWORD nError = GetLastError();
            if (!fRead)
            {
                const bool fGone = nError == ERROR_FILE_NOT_FOUND || nError == ERROR_PATH_NOT_FOUND;
                return Report(fGone ? ZN_FINDING::MISSING : ZN_FINDING::NOT_READ, strPath, nError);
            }
            now.nSize = Join(attributes.nFileSizeHigh, attributes.nFileSizeLow);
            now.nLastWrite = Join(attributes.ftLastWriteTime);
        }
        const bool fSameTime = m_fCopy ? IsSameTimeInCopy(remembered.nLastWrite, now.nLastWrite)
                                       : remembered.nLastWrite == now.nLastWrite;
        if (now.fLink && (m_fCopy || !remembered.fLink))
            Report(ZN_FINDING::IS_LINK, strPath);
        else if (now.nSize != remembered.nSize)
            Report(ZN_FINDING::OTHER_SIZE, strPath);
        else if (!fSameTime)
            Report(ZN_FINDING::OTHER_TIME, strPath);
    }

    bool m_fCopy;
    bool m_fAskFiles;
    bool m_fOtherDeleted;
};

bool CZNTree::IsWholeIn(const CString& strCopy, const ZNFindingReport& report) const
{
    Comparison comparison(std::nullopt, report);
    comparison.Compare(m_root, strCopy);
    return !comparison.HasFound();
}

bool CZNTree::IsUnchanged(const CString& strDir, Moment eMoment, const ZNFindingReport& report) const
{
    Comparison comparison(eMoment, report);
    comparison.Compare(m_root, strDir);
    return !comparison.HasFound();
}
