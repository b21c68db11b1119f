// CZNSources: the look at both old trees before anything is copied, and what it saw.
#pragma once

#include "afxwin.h"
#include "znmtree.h"

class CZNSources
{
  public:
    // All without a trailing backslash, but for strConfigurationDir, the directory of zns.ini.
    struct Places
    {
        CString strSrcDataDir, strDestDataDir;
        CString strSrcLogDir, strDestLogDir;
        CString strConfigurationDir;
    };

    // Remembers both old trees, and reports what speaks against copying and later deleting them: a directory
    // that cannot be listed or told from others, a path that is too long, a cycle of links, a new directory
    // or the one of zns.ini in an old tree, and directories of which one copy would go over another. The
    // destination directories exist. False if anything was reported.
    bool Look(const Places& places, const ZNFindingReport& report);

    // What was remembered of the old tree in strDir, or null if the last look was at other trees.
    const CZNTree* Find(const CString& strDir) const;

    // Whether the old trees are still what was remembered: before the first deletion both, before the second
    // the log tree, of which the data tree may have held a part or all. False if anything was reported.
    bool CanDeleteData(const ZNFindingReport& report) const;
    bool CanDeleteLog(const ZNFindingReport& report) const;

  private:
    CString m_strDataDir, m_strLogDir;
    CZNTree m_data, m_log;
};
