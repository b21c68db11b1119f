// Compares an old tree and its copy with each other, and later both with what was remembered of them.
#include "znmpair.h"

#include <algorithm>
#include <cwchar>

#include "tovmsrid.h"

ZNM_SOURCE_ID(ZNM_MIGRATE_TOOL("znmpair"));

CZNPair::CZNPair(const std::wstring& strOld, const std::wstring& strCopy)
    : m_strOld(strOld), m_strCopy(strCopy), m_timeProbe(strCopy)
{
}

// --- Proving -----------------------------------------------------------------------------------------

bool CZNPair::Prove(const CZNPair& other, const CZNIdentity* pConfiguration, CZNFindings& findings)
{
    m_directories.clear();
    m_oldDirectories = {};
    m_copyDirectories = {};
    const auto visit = [&](const ZNVisited& visited) { ProveDirectory(visited, findings); };
    ZNWalk(m_strOld, visit, findings);
    for (auto& [strBelow, directory] : m_directories)
        directory.fInOtherTree = other.m_oldDirectories.Find(directory.old) != nullptr;
    using Directories = const CZNIdentityMap<std::wstring>*;
    for (const Directories pCopies : {Directories{&m_copyDirectories}, &other.m_copyDirectories})
        for (const auto& [nKey, copy] : *pCopies)
            if (m_oldDirectories.Find(copy.first) != nullptr ||
                other.m_oldDirectories.Find(copy.first) != nullptr)
                findings.Add(ZN_FINDING::SOURCE_OVERWRITTEN, copy.second);
    for (const Directories pDirectories : {&m_oldDirectories, &m_copyDirectories})
        if (const auto* pstrDir = pConfiguration ? pDirectories->Find(*pConfiguration) : nullptr)
            findings.Add(ZN_FINDING::CONFIGURATION, *pstrDir);
    return findings.IsEmpty();
}

void CZNPair::ProveDirectory(const ZNVisited& visited, CZNFindings& findings)
{
    const std::wstring strCopy = m_strCopy + visited.strBelow;
    CZNListing copies;
    if (!copies.Read(strCopy, findings))
        return;
    const size_t nName = visited.strBelow.find_last_of(L'\\');
    const std::wstring strParent = visited.strBelow.substr(0, nName);
    const Entry* const pEntry =
        visited.strBelow.empty() ? nullptr : Find(strParent, visited.strBelow.c_str() + nName + 1);
    const bool fOwnVolume = pEntry == nullptr || pEntry->fCopyLink;
    DWORD nError = ERROR_SUCCESS;
    const auto copy =
        CZNIdentity::Of(strCopy, fOwnVolume ? nullptr : &m_directories.at(strParent).copy, &nError);
    if (!copy)
    {
        findings.Add(ZN_FINDING::NOT_IDENTIFIED, strCopy, nError);
        return;
    }
    m_oldDirectories.Add(visited.identity, visited.strDir);
    m_copyDirectories.Add(*copy, strCopy);
    Directory& directory = m_directories[visited.strBelow];
    directory.old = visited.identity;
    directory.copy = *copy;
    directory.entries.reserve(visited.listing.Entries().size());
    for (const ZNListed& listed : visited.listing.Entries())
    {
        ProveEntry(visited.strBelow, visited, listed, copies, directory, findings);
        if (findings.IsFull())
            return;
    }
    directory.strNames.shrink_to_fit();
}

void CZNPair::ProveEntry(const std::wstring& strBelow, const ZNVisited& visited, const ZNListed& listed,
                         const CZNListing& copies, Directory& directory, CZNFindings& findings)
{
    const wchar_t* const pszName = visited.listing.NameOf(listed);
    const std::wstring strPath = visited.strDir + L"\\" + pszName,
                       strCopy = m_strCopy + strBelow + L"\\" + pszName;
    const ZNListed* const pCopy = copies.Find(pszName);
    ZNEntryState old, copy;
    DWORD nError = ZNAskFile(strPath, listed.fLink, old);
    if (nError != ERROR_SUCCESS)
    {
        if (!ZNIsNotThere(nError)) // the old tree as it is now does not have it any more
            findings.Add(ZN_FINDING::NOT_READ, strPath, nError);
        return;
    }
    const auto isSame = [&] {
        return copy.IsDirectory() == old.IsDirectory() &&
               (old.IsDirectory() || (copy.nSize == old.nSize && copy.nLastWrite == old.nLastWrite));
    };
    if (pCopy != nullptr)
        copy = static_cast<const ZNEntryState&>(*pCopy);
    if (pCopy == nullptr || !isSame())
        nError = ZNAskFile(strCopy, pCopy != nullptr && pCopy->fLink, copy);
    if (nError != ERROR_SUCCESS)
        findings.Add(ZNIsNotThere(nError) ? ZN_FINDING::MISSING : ZN_FINDING::NOT_READ, strCopy, nError);
    else if (copy.IsDirectory() != old.IsDirectory())
        findings.Add(ZN_FINDING::OTHER_KIND, strCopy);
    else if (!old.IsDirectory() && copy.nSize != old.nSize)
        findings.Add(ZN_FINDING::OTHER_SIZE, strCopy);
    else if (!isSame() && !m_timeProbe.Makes(old.nLastWrite, copy.nLastWrite))
        findings.Add(ZN_FINDING::OTHER_TIME, strCopy);
    const bool fCopyLink = pCopy != nullptr && pCopy->fLink;
    if (fCopyLink && !old.IsDirectory())
        findings.Add(ZN_FINDING::IS_LINK, strCopy);
    directory.entries.push_back({old.nSize, old.nLastWrite, copy.nLastWrite,
                                 static_cast<uint32_t>(directory.strNames.size()), old.IsDirectory(),
                                 listed.fLink, fCopyLink});
    directory.strNames.append(pszName).push_back(L'\0');
}

const CZNPair::Entry* CZNPair::Find(const std::wstring& strBelow, const wchar_t* pszName) const
{
    const auto found = m_directories.find(strBelow);
    if (found == m_directories.end())
        return nullptr;
    const Directory& directory = found->second;
    const auto entry = std::ranges::partition_point(directory.entries, [&](const Entry& other) {
        return ZNIsNameLess(directory.NameOf(other), pszName);
    });
    const bool fFound =
        entry != directory.entries.end() && std::wcscmp(directory.NameOf(*entry), pszName) == 0;
    return fFound ? &*entry : nullptr;
}

// --- Checking what was proved --------------------------------------------------------------------------

class CZNPair::Check
{
  public:
    Check(const CZNPair& pair, const CZNIdentity* pChanged, bool fOtherDeleted, CZNFindings& findings)
        : m_pair(pair), m_pChanged(pChanged), m_fOtherDeleted(fOtherDeleted), m_findings(findings)
    {
    }

    void Take()
    {
        for (const auto& [strBelow, directory] : m_pair.m_directories)
        {
            CheckCopy(m_pair.m_strCopy + strBelow, directory);
            if (!m_findings.IsFull())
                CheckOld(m_pair.m_strOld + strBelow, strBelow, directory);
            if (m_findings.IsFull())
                return;
        }
    }

  private:
    bool IsDirectory(const std::wstring& strDir, const CZNIdentity& proved)
    {
        DWORD nError = ERROR_SUCCESS;
        // The volume is the one that was proved, or the path leads elsewhere and the identifiers differ.
        const auto identity = CZNIdentity::Of(strDir, &proved, &nError);
        if (!identity)
            return m_findings.Add(ZNIsNotThere(nError) ? ZN_FINDING::MISSING : ZN_FINDING::NOT_IDENTIFIED,
                                  strDir, nError);
        return identity->IsSame(proved) || m_findings.Add(ZN_FINDING::OTHER_DIRECTORY, strDir);
    }

    // --- the old tree

    bool IsExpectedGone(const Directory& directory) const
    {
        return m_fOtherDeleted && directory.fInOtherTree;
    }

    bool IsExpectedGone(const std::wstring& strBelow) const
    {
        const auto found = m_pair.m_directories.find(strBelow);
        return found != m_pair.m_directories.end() && IsExpectedGone(found->second);
    }

    static bool IsGone(const std::wstring& strPath)
    {
        ZNEntryState state;
        return ZNIsNotThere(ZNAskFile(strPath, false, state));
    }

    // Every difference counts.
    void CheckOld(const std::wstring& strDir, const std::wstring& strBelow, const Directory& directory)
    {
        const bool fGone = IsExpectedGone(directory);
        CZNListing now;
        if ((fGone && IsGone(strDir)) || !IsDirectory(strDir, directory.old) || !now.Read(strDir, m_findings))
            return;
        auto next = now.Entries().begin();
        const auto appeared = [&](const ZNListed& listed) {
            if (const std::wstring strPath = strDir + L"\\" + now.NameOf(listed); !IsGone(strPath))
                m_findings.Add(ZN_FINDING::APPEARED, strPath);
        };
        for (const Entry& entry : directory.entries)
        {
            const wchar_t* const pszName = directory.NameOf(entry);
            while (next != now.Entries().end() && ZNIsNameLess(now.NameOf(*next), pszName))
                appeared(*next++);
            const bool fThere = next != now.Entries().end() && std::wcscmp(now.NameOf(*next), pszName) == 0;
            if (!fGone && !(entry.fDirectory && IsExpectedGone(strBelow + L"\\" + pszName)))
                CheckOldEntry(strDir + L"\\" + pszName, entry, fThere ? &*next : nullptr);
            if (fThere && fGone)
                appeared(*next);
            next += fThere ? 1 : 0;
            if (m_findings.IsFull())
                return;
        }
        std::for_each(next, now.Entries().end(), appeared);
    }

    void CheckOldEntry(const std::wstring& strPath, const Entry& entry, const ZNListed* pNow)
    {
        ZNEntryState now;
        const DWORD nError = ZNAskFile(strPath, entry.fLink, now);
        if (nError != ERROR_SUCCESS)
            m_findings.Add(ZNIsNotThere(nError) ? ZN_FINDING::MISSING : ZN_FINDING::NOT_READ, strPath,
                           nError);
        else if (now.IsDirectory() != entry.fDirectory)
            m_findings.Add(ZN_FINDING::OTHER_KIND, strPath);
        else if (pNow != nullptr && pNow->fLink != entry.fLink)
            m_findings.Add(ZN_FINDING::IS_LINK, strPath);
        else if (!entry.fDirectory && now.nSize != entry.nSize)
            m_findings.Add(ZN_FINDING::OTHER_SIZE, strPath);
        else if (!entry.fDirectory && now.nLastWrite != entry.nLastWrite)
            m_findings.Add(ZN_FINDING::OTHER_TIME, strPath);
    }

    // --- the copy

    // What was proved must be there; more may be, so nothing is listed.
    void CheckCopy(const std::wstring& strDir, const Directory& directory)
    {
        if (!IsDirectory(strDir, directory.copy))
            return;
        const bool fChanged = m_pChanged != nullptr && directory.copy.IsSame(*m_pChanged);
        for (const Entry& entry : directory.entries)
        {
            const wchar_t* const pszName = directory.NameOf(entry);
            if (!entry.fDirectory) // a directory is checked for itself
                CheckCopyFile(strDir + L"\\" + pszName, entry, fChanged && ZNIsSameName(pszName, L"qm.ini"));
            if (m_findings.IsFull())
                return;
        }
    }

    void CheckCopyFile(const std::wstring& strPath, const Entry& entry, bool fChanged)
    {
        ZNEntryState now;
        const DWORD nError = ZNAskFile(strPath, false, now);
        if (nError != ERROR_SUCCESS)
            m_findings.Add(ZNIsNotThere(nError) ? ZN_FINDING::MISSING : ZN_FINDING::NOT_READ, strPath,
                           nError);
        else if (now.IsDirectory())
            m_findings.Add(ZN_FINDING::OTHER_KIND, strPath);
        else if ((now.nAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0 && ZNIsLinkAt(strPath))
            m_findings.Add(ZN_FINDING::IS_LINK, strPath);
        else if (!fChanged && now.nSize != entry.nSize)
            m_findings.Add(ZN_FINDING::OTHER_SIZE, strPath);
        else if (!fChanged && now.nLastWrite != entry.nCopyLastWrite &&
                 !m_pair.m_timeProbe.Makes(entry.nLastWrite, now.nLastWrite))
            m_findings.Add(ZN_FINDING::OTHER_TIME, strPath);
    }

    const CZNPair& m_pair;
    const CZNIdentity* m_pChanged;
    bool m_fOtherDeleted;
    CZNFindings& m_findings;
};

bool CZNPair::IsAsProved(const CZNIdentity* pChanged, bool fOtherDeleted, CZNFindings& findings) const
{
    Check(*this, pChanged, fOtherDeleted, findings).Take();
    return findings.IsEmpty();
}

bool CZNPair::IsAsProved(const std::wstring& strDir, const WIN32_FIND_DATAW& found) const
{
    const Entry* const pEntry =
        Find(strDir.substr(std::min(m_strOld.size(), strDir.size())), found.cFileName);
    ZNEntryState now = ZNStateOf(found);
    if (pEntry == nullptr || now.IsDirectory() != pEntry->fDirectory || ZNIsLink(found) != pEntry->fLink)
        return false;
    const auto isSame = [&] { return now.nSize == pEntry->nSize && now.nLastWrite == pEntry->nLastWrite; };
    if (pEntry->fDirectory || pEntry->fLink || isSame()) // a link goes, what it leads to stays
        return true;
    return ZNAskFile(strDir + L"\\" + found.cFileName, false, now) == ERROR_SUCCESS && isSame();
}
