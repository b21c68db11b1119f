// The migration procedure, step by step, and the update of the two configuration files.
//
// Nothing is rolled back, and nothing is deleted before both copies were compared with the old trees, both
// configuration files name them, and all four trees are still what was compared. The queue manager that is
// stopped here is never started again.
#include "znmapp.h"

#include <functional>
#include <memory>

#include "messages.h"
#include "tovmsmon.h"
#include "tovmsrid.h"
#include "tovmtrce.h"
#include "tovmutln.h"
#include "tovxcs2.h"
#include "znmcontrol.h"
#include "znmmovedtrees.h"
#include "znmpaths.h"
#include "znmreadfile.h"

ZNM_SOURCE_ID(ZNM_MIGRATE_TOOL("znmmove"));

namespace
{
// One run of the procedure: what its steps hand on to each other. Each step returns whether the next one may
// follow; a step that fails has said so to the trace and, where there is a message for it, to the user.
class Migration
{
  public:
    Migration(CZNMSCSApp& app, CZNMTrace& trace)
        : m_app(app), m_trace(trace), m_queueMgr(app.m_strQueueManager), m_narrowName(app.m_strQueueManager)
    {
    }

    bool FindQueueManager();
    bool StopQueueManager();
    bool FindPlaces();
    bool CreateDestinations();
    bool CopyTrees();
    bool CheckCopies();
    bool NameNewPlaces();
    bool DeleteOldTrees();

  private:
    enum : uint32_t
    {
        NO_MESSAGE = 0 // the user sees only the usage line
    };

    // The last statement of a failing step.
    template <class... Args>
    bool Refuse(uint32_t nMessageID, const char* pszTrace, const Args&... args) const
    {
        if constexpr (sizeof...(args) > 0)
            m_trace.Parms(pszTrace, args...);
        else
            m_trace.Text(pszTrace);
        if (nMessageID != NO_MESSAGE)
            CZNMUtil::ZNMessageConsole(ZNM_MESSAGE_STDERR, nMessageID);
        return false;
    }

    bool RefuseUnknown() const
    {
        return Refuse(IDS_QM_NOT_FOUND, "Cannot contact Queue Manager '%S'", m_app.m_strQueueManager);
    }

    // Takes one look at the trees. What it finds is in the trace, behind pszMeaning.
    template <class Look>
    bool Finds(const char* pszMeaning, Look look) const
    {
        CZNFindings findings;
        look(findings);
        return !findings.Trace(m_trace, pszMeaning);
    }

    // For who watches; a phase that cannot be told stops nothing.
    void Begin(ZN_PHASE ePhase) { m_phase.Set(ZNPhaseMark(m_strMark, ePhase)); }
    bool CopyTree(ZN_PHASE eCopying, ZN_PHASE eRights, const CString& strDest, const CString& strSrc,
                  bool (CZNMovedTrees::*pfnProve)(CZNFindings& findings));
    bool CanChangeQmIni() const;

    CZNMSCSApp& m_app;
    CZNMTrace& m_trace;
    CZNMQueueMgr m_queueMgr;
    const CW2A m_narrowName;
    std::wstring m_strMark;
    CZNMark m_mark, m_phase;
    ConfigurationFile m_znsIni;
    ZNPlaces m_places;
    std::unique_ptr<CZNMovedTrees> m_trees;
};

// A failure leaves everything as it was.
bool Migration::FindQueueManager()
{
    if (m_queueMgr.Refresh() != 1)
        return RefuseUnknown();
    m_strMark = ZNMoveMark(m_queueMgr.GetPlace()); // a later query may fail and succeed again
    if (m_queueMgr.IsMultiInstance() == 1)
        return Refuse(IDS_QM_MULTI_INSTANCE, "Queue Manager '%S' is configured for multi-instance support",
                      m_app.m_strQueueManager);
    // Two moves of one queue manager would each delete what the other one copies.
    if (!m_mark.Set(m_strMark))
        return Refuse(IDS_QM_STILL_ACTIVE,
                      "Queue Manager '%S' is being moved already, or that cannot be told",
                      m_app.m_strQueueManager);
    return true;
}

// A failure leaves everything as it was, but for a queue manager that may still be ending.
bool Migration::StopQueueManager()
{
    Begin(ZN_PHASE::ENDING);
    if (m_queueMgr.IsRunning() == 1 && m_queueMgr.Stop(ZNM_STOP_WAIT) != 0)
        return Refuse(IDS_QM_STILL_ACTIVE, "Queue Manager is active & cannot be stopped, cannot continue");
    return true;
}

// A failure leaves everything as it was, but for a queue manager that was stopped and stays so.
bool Migration::FindPlaces()
{
    if (!m_znsIni.Find(nullptr))
        return Refuse(NO_MESSAGE, "Unable to get zns.ini filename");
    ConfigurationFile qmIni;
    if (!qmIni.Find(m_narrowName))
        return Refuse(NO_MESSAGE, "Unable to get qm.ini filename");

    const CString strDirectory(m_queueMgr.GetDirectoryName());
    m_places.strSrcDataDir = CString(m_queueMgr.GetDataDirectory());
    if (strDirectory.IsEmpty() || !IsTreePath(m_places.strSrcDataDir)) // it was deleted meanwhile
        return RefuseUnknown();
    if (!ReadLogPath(qmIni, m_places.strSrcLogDir))
        return Refuse(NO_MESSAGE, "Unable to read log path");

    m_places.strDestDataDir = NewDataDirectory(m_app.m_strDataDest, strDirectory);
    m_places.strDestLogDir = NewLogDirectory(m_app.m_strLogDest, strDirectory);
    m_places.strQueueManager = m_app.m_strQueueManager;
    m_places.strConfiguration = CString(m_znsIni.szName);
    m_places.strConfigurationDir = m_znsIni.Directory();
    m_trace.Parms("strSrcDataDir:  %S", m_places.strSrcDataDir);
    m_trace.Parms("strDestDataDir:  %S", m_places.strDestDataDir);
    m_trace.Parms("strSrcLogDir:  %S", m_places.strSrcLogDir);
    m_trace.Parms("strDestLogDir:  %S", m_places.strDestLogDir);

    // By design as narrow as this: with case, data against data and log against log only. Scripts depend on
    // the message; the look before the copy finds every other spelling.
    if (m_places.strDestDataDir == m_places.strSrcDataDir || m_places.strDestLogDir == m_places.strSrcLogDir)
        return Refuse(IDS_SAME_DESTINATION, "Cannot have the same source/destination directories");
    if (CompareStringOrdinal(m_places.strDestDataDir, -1, m_places.strDestLogDir, -1, TRUE) == CSTR_EQUAL)
        return Refuse(IDS_SAME_DESTINATION, "Cannot have one destination directory for data and log");
    return true;
}

// A failure leaves the destination directories that were created.
bool Migration::CreateDestinations()
{
    Begin(ZN_PHASE::CREATING);
    const bool fPossible =
        CanBeDestination(m_places.strDestDataDir) && CanBeDestination(m_places.strDestLogDir);
    if (!fPossible)
        m_trace.Text("A destination directory is not absolute, too long, not in the code page, or not kept "
                     "by Windows");
    if (!fPossible || m_app.CheckAndCreateZNDirectory(m_places.strDestDataDir) != 1 ||
        m_app.CheckAndCreateZNDirectory(m_places.strDestLogDir) != 1)
        return Refuse(IDS_CREATE_FAILED, "Cannot create/access destination directories");
    return true;
}

// A failure leaves whole or partial copies, or none; sources and configuration are untouched. The same
// command can be given again over whatever was left.
bool Migration::CopyTrees()
{
    m_trees = std::make_unique<CZNMovedTrees>(m_places);
    CZNMovedTrees& trees = *m_trees;
    const char *const pszNothing = "Nothing is copied",
                      *const pszFailed = "Cannot copy Queue Manager data/log files to destination";
    if (Finds(pszNothing, [&](CZNFindings& findings) { trees.Claim(findings); }))
        return Refuse(IDS_COPY_FAILED, pszFailed);
    // The place that the other mark is made from changes with the configuration.
    if (const auto destination = CZNIdentity::Of(trees.Data().Copy()))
        m_strMark = ZNDestinationMark(*destination);
    if (Finds(pszNothing, [&](CZNFindings& findings) { trees.Look(findings); }) ||
        Finds(pszNothing, [&](CZNFindings& findings) { trees.Probe(findings); }) ||
        !CopyTree(ZN_PHASE::COPYING_DATA, ZN_PHASE::DATA_RIGHTS, m_places.strDestDataDir,
                  m_places.strSrcDataDir, &CZNMovedTrees::ProveData) ||
        !CopyTree(ZN_PHASE::COPYING_LOG, ZN_PHASE::LOG_RIGHTS, m_places.strDestLogDir, m_places.strSrcLogDir,
                  &CZNMovedTrees::ProveLog))
        return Refuse(IDS_COPY_FAILED, pszFailed);
    return true;
}

bool Migration::CopyTree(ZN_PHASE eCopying, ZN_PHASE eRights, const CString& strDest, const CString& strSrc,
                         bool (CZNMovedTrees::*pfnProve)(CZNFindings& findings))
{
    Begin(eCopying);
    return m_app.CopyZNFiles(strDest, strSrc, [&](CZNFindings& findings) {
        if (std::invoke(pfnProve, *m_trees, findings))
            Begin(eRights);
    }) == 1;
}

// A failure leaves both copies, and sources and configuration as they were. From here to the deletion only
// two small files are replaced.
bool Migration::CheckCopies()
{
    Begin(ZN_PHASE::CONFIGURING);
    if (Finds("Nothing is changed: the trees are not what was copied any more",
              [&](CZNFindings& findings) { m_trees->AreAsProved(false, findings); }))
        return Refuse(IDS_COPY_FAILED, "Cannot copy Queue Manager data/log files to destination");
    if (!CanChangeQmIni())
        return Refuse(IDS_UPDATE_FAILED, "Cannot update logpath value for queue manager");
    return true;
}

// Whether the library will be able to change the new qm.ini, as far as that can be told: a program that holds
// the file for a moment is no reason against it. Once Prefix is changed a failure would leave the files in
// between.
bool Migration::CanChangeQmIni() const
{
    const CString strQmIni = m_places.strDestDataDir + L"\\qm.ini";
    const DWORD nAttributes = GetFileAttributesW(strQmIni);
    const DWORD nError = GetLastError();
    if (nAttributes == INVALID_FILE_ATTRIBUTES && ZNIsNotThere(nError))
        return true; // the library has it elsewhere
    if (nAttributes != INVALID_FILE_ATTRIBUTES && (nAttributes & FILE_ATTRIBUTE_READONLY) != 0)
    {
        m_trace.Parms("The new configuration file is read-only: attrib -r \"%S\"", strQmIni);
        return false;
    }
    const FileHandle file = ZNOpenShared(static_cast<const wchar_t*>(strQmIni), GENERIC_READ | GENERIC_WRITE,
                                         FILE_ATTRIBUTE_NORMAL);
    const DWORD nRefused = GetLastError();
    if (file || nRefused == ERROR_SHARING_VIOLATION || nRefused == ERROR_LOCK_VIOLATION)
        return true;
    m_trace.Parms("The new configuration file '%S' cannot be changed, error %u", strQmIni, nRefused);
    return false;
}

bool Migration::NameNewPlaces()
{
    ZNIgnoreControlEvents();

    // A failure leaves both copies and the configuration as it was.
    const CW2A narrowPrefix(WithoutTrailingBackslash(m_app.m_strDataDest));
    if (xcsIniUtilWrite("QueueManager", "Name", m_narrowName, "Prefix", narrowPrefix, m_znsIni.szName,
                        m_znsIni.nType) != 0)
        return Refuse(IDS_UPDATE_FAILED, "Cannot update prefix value for queue manager");

    // A failure from here on leaves both copies; zns.ini names the new data directory, the qm.ini in it the
    // old log directory. The name is asked for again because it now leads to that copy.
    ConfigurationFile newQmIni;
    if (!newQmIni.Find(m_narrowName))
        return Refuse(NO_MESSAGE, "Unable to get new qm.ini filename");
    const CW2A narrowLogPath(WithTrailingBackslash(m_places.strDestLogDir));
    if (xcsIniUtilWrite("Log", nullptr, nullptr, "LogPath", narrowLogPath, newQmIni.szName, newQmIni.nType) !=
        0)
        return Refuse(IDS_UPDATE_FAILED, "Cannot update logpath value for queue manager");
    return true;
}

// A failure leaves the configuration moved and the old trees whole, or partly or wholly deleted. A tree is
// deleted only if it and its copy are still what was proved: a queue manager that was started meanwhile has
// written to one of them.
bool Migration::DeleteOldTrees()
{
    Begin(ZN_PHASE::DELETING);
    const CZNMovedTrees& trees = *m_trees;
    if (Finds("Nothing is deleted: the trees are not what was copied any more",
              [&](CZNFindings& findings) { trees.AreAsProved(true, findings); }) ||
        m_app.DeleteZNFiles(m_places.strSrcDataDir, trees.Data()) != 1 ||
        Finds("Nothing more is deleted: the log directories are not what was copied any more",
              [&](CZNFindings& findings) { trees.IsLogAsProved(findings); }) ||
        m_app.DeleteZNFiles(m_places.strSrcLogDir, trees.Log()) != 1)
        return Refuse(IDS_DELETE_FAILED, "Failed to delete old data/log directories");
    return true;
}
} // namespace

int CZNMSCSApp::MigrateQueueManager()
{
    CZNMTrace trace(FN_MIGRATE_QUEUE_MANAGER);

    // Three switches and their three values. What is wrong otherwise, the usage line tells.
    if (m_nParameters != 6 || m_fParametersValid != TRUE)
        return trace.Return(0);

    Migration migration(*this, trace);
    const bool fMoved = migration.FindQueueManager() && migration.StopQueueManager() &&
                        migration.FindPlaces() && migration.CreateDestinations() && migration.CopyTrees() &&
                        migration.CheckCopies() && migration.NameNewPlaces() && migration.DeleteOldTrees();
    return trace.Return(fMoved ? 1 : 0);
}
