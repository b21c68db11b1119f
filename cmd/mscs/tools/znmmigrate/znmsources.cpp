// Looks for everything that would let the copy or the deletion destroy data. Changes nothing on disk.
#include "znmsources.h"

#include <cwchar>
#include <map>
#include <set>

#include "tovmsrid.h"
#include "tovxcs2.h"

ZNM_SOURCE_ID(ZNM_MIGRATE_TOOL("znmsources"));

namespace
{
// Which directories the move reads, and into which it would write.
class Overlaps
{
  public:
    explicit Overlaps(const ZNFindingReport& report) : m_report(report) {}

    // A directory that must not be part of an old tree.
    void AddForbidden(const CString& strDir, ZN_FINDING eFinding)
    {
        DWORD nError = ERROR_SUCCESS;
        const auto identity = CZNDirectoryIdentity::Of(strDir, nError);
        if (!identity)
            return Report(ZN_FINDING::NOT_IDENTIFIED, strDir, nError);
        const auto [known, fNew] = m_forbidden.emplace(*identity, eFinding);
        if (!fNew && known->second == eFinding)
            Report(ZN_FINDING::SHARED_DESTINATION, strDir);
    }

    // A directory of an old tree, and the one that its files will be copied into.
    void AddSource(const CString& strDir, const CZNDirectoryIdentity& identity, const CString& strDestDir)
    {
        m_sources.insert(identity);
        if (const auto forbidden = m_forbidden.find(identity); forbidden != m_forbidden.end())
            return Report(forbidden->second, strDir);

        if (IsBelowMissing(strDestDir))
            return;
        DWORD nError = ERROR_SUCCESS;
        const auto destination = CZNDirectoryIdentity::Of(strDestDir, nError);
        if (!destination && (nError == ERROR_FILE_NOT_FOUND || nError == ERROR_PATH_NOT_FOUND))
        {
            m_strMissingDest = strDestDir + L"\\";
            return;
        }
        if (!destination)
            return Report(ZN_FINDING::NOT_IDENTIFIED, strDestDir, nError);
        const auto [known, fNew] = m_destinations.emplace(*destination, Destination{identity, strDestDir});
        if (!fNew && known->second.source != identity)
            Report(ZN_FINDING::SHARED_DESTINATION, strDestDir);
    }

    // A link in a destination may lead into an old tree: the copy would write there.
    void ReportOverwrittenSources() const
    {
        for (const auto& [identity, destination] : m_destinations)
            if (m_sources.contains(identity))
                return Report(ZN_FINDING::SOURCE_OVERWRITTEN, destination.strDir);
    }

  private:
    struct Destination
    {
        CZNDirectoryIdentity source;
        CString strDir;
    };

    // Sources come parent first, so what follows a missing destination directory is mostly below it.
    bool IsBelowMissing(const CString& strDestDir) const
    {
        return !m_strMissingDest.IsEmpty() &&
               std::wcsncmp(strDestDir, m_strMissingDest,
                            static_cast<size_t>(m_strMissingDest.GetLength())) == 0;
    }

    void Report(ZN_FINDING eFinding, const CString& strPath, DWORD nError = ERROR_SUCCESS) const
    {
        m_report({eFinding, strPath, nError});
    }

    const ZNFindingReport& m_report;
    CString m_strMissingDest; // the last destination directory that is not there, with a backslash
    std::map<CZNDirectoryIdentity, ZN_FINDING> m_forbidden;
    std::map<CZNDirectoryIdentity, Destination> m_destinations; // those that exist
    std::set<CZNDirectoryIdentity> m_sources;
};
} // namespace

bool CZNSources::Look(const Places& places, const ZNFindingReport& report)
{
    *this = CZNSources();
    m_strDataDir = places.strSrcDataDir;
    m_strLogDir = places.strSrcLogDir;

    bool fFound = false, fGoOn = true;
    const ZNFindingReport note = [&](const ZNFinding& finding) {
        fFound = true;
        return fGoOn = report(finding);
    };
    Overlaps overlaps(note);
    overlaps.AddForbidden(places.strDestDataDir, ZN_FINDING::NEW_DIRECTORY);
    if (fGoOn)
        overlaps.AddForbidden(places.strDestLogDir, ZN_FINDING::NEW_DIRECTORY);
    if (fGoOn)
        overlaps.AddForbidden(places.strConfigurationDir, ZN_FINDING::CONFIGURATION);

    std::set<CZNDirectoryIdentity> dataDirs;
    const auto visitData = [&](const CString& strDir, const CString& strBelowRoot,
                               const CZNDirectoryIdentity& identity, bool&) {
        dataDirs.insert(identity);
        overlaps.AddSource(strDir, identity, places.strDestDataDir + strBelowRoot);
        return fGoOn;
    };
    const auto visitLog = [&](const CString& strDir, const CString& strBelowRoot,
                              const CZNDirectoryIdentity& identity, bool& fInOtherTree) {
        fInOtherTree = dataDirs.contains(identity);
        overlaps.AddSource(strDir, identity, places.strDestLogDir + strBelowRoot);
        return fGoOn;
    };
    if (fGoOn)
        m_data.Remember(m_strDataDir, places.strDestDataDir, visitData, note);
    if (fGoOn)
        m_log.Remember(m_strLogDir, places.strDestLogDir, visitLog, note);
    if (fGoOn)
        overlaps.ReportOverwrittenSources();
    return !fFound;
}

const CZNTree* CZNSources::Find(const CString& strDir) const
{
    return strDir == m_strDataDir ? &m_data : strDir == m_strLogDir ? &m_log : nullptr;
}

bool CZNSources::CanDeleteData(const ZNFindingReport& report) const
{
    // The log is looked at again before its own deletion. What is deleted first is looked at last.
    return m_log.IsUnchanged(m_strLogDir, CZNTree::Moment::BEFORE_DELETION, report) &&
           m_data.IsUnchanged(m_strDataDir, CZNTree::Moment::BEFORE_DELETION, report);
}

bool CZNSources::CanDeleteLog(const ZNFindingReport& report) const
{
    return m_log.IsUnchanged(m_strLogDir, CZNTree::Moment::OTHER_TREE_DELETED, report);
}
