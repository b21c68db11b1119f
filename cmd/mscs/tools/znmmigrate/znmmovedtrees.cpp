// What must not be: a destination in an old tree, two directories or two moves in one destination, a file of
// an old tree or of others behind a name that the copy writes to. Paths are judged by what they lead to.
#include "znmmovedtrees.h"

#include <algorithm>

#include "tovmsrid.h"
#include "znmpaths.h"
#include "znmreadfile.h"
#include "znmstanza.h"

ZNM_SOURCE_ID(ZNM_MIGRATE_TOOL("znmmovedtrees"));

namespace
{
std::wstring Wide(const CString& str)
{
    return static_cast<const wchar_t*>(str);
}

bool HasLength(const std::wstring& strOld, const std::wstring& strNew, size_t nLongest, CZNFindings& findings)
{
    if (strOld.size() > nLongest)
        return findings.Add(ZN_FINDING::PATH_TOO_LONG, strOld);
    return strNew.size() <= nLongest || findings.Add(ZN_FINDING::NEW_PATH_TOO_LONG, strOld);
}
} // namespace

// Which directories and files the move reads, and which it would write.
class CZNMovedTrees::Overlaps
{
  public:
    Overlaps(CZNMovedTrees& trees, CZNFindings& findings) : m_trees(trees), m_findings(findings)
    {
        for (const CZNPair* const pPair : {&trees.m_data, &trees.m_log})
            if (const auto root = CZNIdentity::Of(pPair->Copy()))
                m_newRoots.Add(*root, pPair->Copy());
    }

    void Take()
    {
        for (CZNPair* const pPair : {&m_trees.m_data, &m_trees.m_log})
        {
            pPair->OldDirectories() = {};
            m_strMissing.clear();
            const auto visit = [&](const ZNVisited& visited) { Visit(*pPair, visited); };
            ZNWalk(pPair->Old(), visit, m_findings);
        }
        // A link in a destination may lead into an old tree: the copy would write there.
        for (const auto& [nKey, destination] : m_destinations)
            for (const CZNPair* const pPair : {&m_trees.m_data, &m_trees.m_log})
                if (pPair->OldDirectories().Find(destination.first) != nullptr)
                    m_findings.Add(ZN_FINDING::SOURCE_OVERWRITTEN, destination.second.strDir);
        if (!m_leftovers.IsEmpty() && !m_findings.IsFull())
            FindOldFilesAmongLeftovers();
        if (!m_leftovers.IsEmpty() && !m_findings.IsFull())
            FindOtherQueueManagers();
    }

  private:
    struct Destination
    {
        CZNIdentity source;
        std::wstring strDir;
    };

    void Visit(CZNPair& pair, const ZNVisited& visited)
    {
        const std::wstring strNew = pair.Copy() + visited.strBelow;
        const CZNIdentity* const pConfiguration = m_trees.Configuration();
        if (!HasLength(visited.strDir, strNew, ZN_MAX_DIRECTORY_PATH, m_findings))
            return;
        pair.OldDirectories().Add(visited.identity, visited.strDir);
        if (m_newRoots.Find(visited.identity) != nullptr)
            m_findings.Add(ZN_FINDING::NEW_DIRECTORY, visited.strDir);
        else if (pConfiguration != nullptr && pConfiguration->IsSame(visited.identity))
            m_findings.Add(ZN_FINDING::CONFIGURATION, visited.strDir);
        for (const ZNListed& entry : visited.listing.Entries())
        {
            const std::wstring strName = std::wstring(L"\\") + visited.listing.NameOf(entry);
            if (!entry.IsDirectory())
                HasLength(visited.strDir + strName, strNew + strName, ZN_MAX_FILE_PATH, m_findings);
        }
        // Directories come parent first: what follows a missing one is mostly below it.
        if (!m_findings.IsFull() && (m_strMissing.empty() || !strNew.starts_with(m_strMissing)))
            VisitDestination(visited, strNew);
    }

    void VisitDestination(const ZNVisited& visited, const std::wstring& strNew)
    {
        DWORD nError = ERROR_SUCCESS;
        const auto destination = CZNIdentity::Of(strNew, nullptr, &nError);
        if (!destination && ZNIsNotThere(nError))
        {
            m_strMissing = strNew + L"\\";
            return;
        }
        if (!destination)
        {
            m_findings.Add(ZN_FINDING::NOT_IDENTIFIED, strNew, nError);
            return;
        }
        const CZNIdentity* const pConfiguration = m_trees.Configuration();
        if (pConfiguration != nullptr && pConfiguration->IsSame(*destination))
            m_findings.Add(ZN_FINDING::CONFIGURATION, strNew);
        if (!m_destinations.Add(*destination, {visited.identity, strNew}).source.IsSame(visited.identity))
            m_findings.Add(ZN_FINDING::SHARED_DESTINATION, strNew);
        CZNListing there;
        if (m_findings.IsFull() || !there.Read(strNew, m_findings))
            return;
        for (const ZNListed& leftover : there.Entries())
        {
            const wchar_t* const pszName = there.NameOf(leftover);
            const ZNListed* const pOld = visited.listing.Find(pszName);
            if (pOld != nullptr && !pOld->IsDirectory() && !leftover.IsDirectory())
                VisitLeftover(strNew + L"\\" + pszName, leftover.fLink);
        }
    }

    // A file that an old one would overwrite.
    void VisitLeftover(const std::wstring& strPath, bool fLink)
    {
        BY_HANDLE_FILE_INFORMATION information = {};
        DWORD nError = ZNReadInformation(strPath, information);
        const auto identity =
            nError == ERROR_SUCCESS ? CZNIdentity::Of(strPath, nullptr, &nError) : std::nullopt;
        if (!identity)
            m_findings.Add(ZN_FINDING::NOT_IDENTIFIED, strPath, nError);
        else if (fLink)
            m_findings.Add(ZN_FINDING::LINK_OVERWRITTEN, strPath);
        else if (information.nNumberOfLinks > 1 || m_leftovers.Add(*identity, strPath) != strPath)
            m_findings.Add(ZN_FINDING::MANY_NAMES, strPath);
    }

    void FindOldFilesAmongLeftovers()
    {
        const auto visit = [&](const ZNVisited& visited) {
            for (const ZNListed& entry : visited.listing.Entries())
            {
                if (entry.IsDirectory() || m_findings.IsFull())
                    continue;
                const std::wstring strPath = visited.strDir + L"\\" + visited.listing.NameOf(entry);
                DWORD nError = ERROR_SUCCESS;
                const auto identity =
                    CZNIdentity::Of(strPath, entry.fLink ? nullptr : &visited.identity, &nError);
                if (!identity)
                    m_findings.Add(ZN_FINDING::NOT_IDENTIFIED, strPath, nError);
                else if (const std::wstring* const pstrLeftover = m_leftovers.Find(*identity))
                    m_findings.Add(ZN_FINDING::SOURCE_OVERWRITTEN, *pstrLeftover);
            }
        };
        ZNWalk(m_trees.m_data.Old(), visit, m_findings);
        if (!m_findings.IsFull())
            ZNWalk(m_trees.m_log.Old(), visit, m_findings);
    }

    // Names of queue managers have a letter case, those of their directories may have none.
    void FindOtherQueueManagers()
    {
        const ZNPlaces& places = m_trees.m_places;
        for (const ZNOtherPlaces& other : ReadOtherPlaces(places.strConfiguration, places.strQueueManager))
            for (const CString& strDir : {other.strDataDir, other.strLogDir})
            {
                const auto identity = strDir.IsEmpty() ? std::nullopt : CZNIdentity::Of(Wide(strDir));
                if (const Destination* const p = identity ? m_destinations.Find(*identity) : nullptr)
                    m_findings.Add(ZN_FINDING::OTHER_QUEUE_MANAGER, p->strDir);
            }
    }

    CZNMovedTrees& m_trees;
    CZNFindings& m_findings;
    CZNIdentityMap<std::wstring> m_newRoots;
    std::wstring m_strMissing; // the last destination directory that is not there, with a backslash
    CZNIdentityMap<Destination> m_destinations; // those that exist
    CZNIdentityMap<std::wstring> m_leftovers;   // files that the copy would overwrite
};

CZNMovedTrees::CZNMovedTrees(const ZNPlaces& places)
    : m_places(places), m_data(Wide(places.strSrcDataDir), Wide(places.strDestDataDir)),
      m_log(Wide(places.strSrcLogDir), Wide(places.strDestLogDir))
{
}

bool CZNMovedTrees::Claim(CZNFindings& findings)
{
    std::wstring strDataMark;
    for (CZNPair* const pPair : {&m_data, &m_log})
    {
        DWORD nError = ERROR_SUCCESS;
        const auto directory = CZNIdentity::Of(pPair->Copy(), nullptr, &nError);
        if (!directory)
            return findings.Add(ZN_FINDING::NOT_IDENTIFIED, pPair->Copy(), nError);
        // Two directories of one mark are this move's own: the look tells whether they are one.
        const std::wstring strMark = ZNDestinationMark(*directory);
        if (strMark != strDataMark && !(pPair == &m_data ? m_dataMark : m_logMark).Set(strMark))
            return findings.Add(ZN_FINDING::CLAIMED, pPair->Copy());
        strDataMark = strMark;
    }
    return true;
}

bool CZNMovedTrees::Look(CZNFindings& findings)
{
    // A directory that is not there has nothing to protect.
    constexpr DWORD NOT_THERE[] = {ERROR_FILE_NOT_FOUND, ERROR_PATH_NOT_FOUND, ERROR_INVALID_DRIVE,
                                   ERROR_NOT_READY,      ERROR_BAD_NETPATH,    ERROR_BAD_NET_NAME,
                                   ERROR_INVALID_NAME,   ERROR_BAD_PATHNAME,   ERROR_DIRECTORY};
    DWORD nError = ERROR_SUCCESS;
    m_configuration = CZNIdentity::Of(Wide(m_places.strConfigurationDir), nullptr, &nError);
    if (!m_configuration && std::ranges::find(NOT_THERE, nError) == std::end(NOT_THERE))
        findings.Add(ZN_FINDING::NOT_IDENTIFIED, Wide(m_places.strConfigurationDir), nError);
    const auto data = CZNIdentity::Of(m_data.Copy()), log = CZNIdentity::Of(m_log.Copy());
    if (data && log && data->IsSame(*log))
        findings.Add(ZN_FINDING::SHARED_DESTINATION, m_log.Copy());
    if (!findings.IsFull())
        Overlaps(*this, findings).Take();
    return (findings.IsFull() || CheckQmIni(findings)) && findings.IsEmpty();
}

// A qm.ini in the new data directory must be one that an earlier run has left: the same text, its beginning
// where a copy was cut off, or with LogPath changed. Any other is of a queue manager that lives there.
bool CZNMovedTrees::CheckQmIni(CZNFindings& findings) const
{
    const std::wstring strOld = m_data.Old() + L"\\qm.ini", strNew = m_data.Copy() + L"\\qm.ini";
    std::string strOldText, strNewText;
    if (GetFileAttributesW(strNew.c_str()) == INVALID_FILE_ATTRIBUTES ||
        ZNReadFile(strOld, strOldText) != ERROR_SUCCESS) // the look has told what cannot be read
        return true;
    if (const DWORD nError = ZNReadFile(strNew, strNewText); nError != ERROR_SUCCESS)
        return findings.Add(ZN_FINDING::NOT_READ, strNew, nError);
    if (strOldText.starts_with(std::string_view(strNewText).substr(0, strNewText.find_last_not_of('\0') + 1)))
        return true;
    const CString strLogPath(std::string(ZNFindValue(strNewText, "Log", "LogPath")).c_str());
    const auto without = [](const std::string& str) { return ZNWithoutAttribute(str, "Log", "LogPath"); };
    if (without(strOldText) == without(strNewText) && (ZNIsSamePlace(strLogPath, m_places.strSrcLogDir) ||
                                                       ZNIsSamePlace(strLogPath, m_places.strDestLogDir)))
        return true;
    return findings.Add(ZN_FINDING::OTHER_QUEUE_MANAGER, strNew);
}

bool CZNMovedTrees::Probe(CZNFindings& findings) const
{
    CZNProbeFile probes[2];
    const CZNPair* const apPairs[] = {&m_data, &m_log};
    for (size_t i = 0; i < 2; ++i)
        if (const DWORD nError = probes[i].Make(apPairs[i]->Copy()); nError != ERROR_SUCCESS)
            return findings.Add(ZN_FINDING::NOT_WRITTEN, apPairs[i]->Copy(), nError);
    for (const CZNPair* const pPair : apPairs)
        for (const auto& [nKey, directory] : pPair->OldDirectories())
            for (const CZNProbeFile& probe : probes)
                if (probe.IsIn(directory.second))
                    return findings.Add(ZN_FINDING::NEW_DIRECTORY, directory.second);
    return true;
}

bool CZNMovedTrees::ProveData(CZNFindings& findings)
{
    return m_data.Prove(m_log, Configuration(), findings);
}

bool CZNMovedTrees::ProveLog(CZNFindings& findings)
{
    return m_log.Prove(m_data, Configuration(), findings);
}

bool CZNMovedTrees::AreAsProved(bool fConfigurationChanged, CZNFindings& findings) const
{
    const CZNIdentity* const pChanged = fConfigurationChanged ? &m_data.CopyIdentity() : nullptr;
    return m_log.IsAsProved(pChanged, false, findings) && m_data.IsAsProved(pChanged, false, findings);
}

bool CZNMovedTrees::IsLogAsProved(CZNFindings& findings) const
{
    return m_log.IsAsProved(&m_data.CopyIdentity(), true, findings);
}
