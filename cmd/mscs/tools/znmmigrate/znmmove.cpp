// The migration procedure, step by step, and the update of the two configuration files.
//
// Nothing is rolled back, and nothing is deleted before both trees have been copied and both configuration
// files name the copies. The queue manager that is stopped here is never started again.
#include "znmapp.h"

#include "messages.h"
#include "tovmsmon.h"
#include "tovmsrid.h"
#include "tovmtrce.h"
#include "tovmutln.h"
#include "tovxcs2.h"
#include "znmpaths.h"

ZNM_SOURCE_ID(ZNM_MIGRATE_TOOL("znmmove"));

namespace
{
// A configuration file as the common services name it.
struct ConfigurationFile
{
    // Of a size that no library exceeds with a path, whatever bytes its code page needs for one.
    static constexpr size_t MAX_NAME = 4 * XCS_PATH_SIZE;
    char szName[MAX_NAME] = {};
    uint32_t nType = 0;

    // pszQueueManager: null for the product's own file.
    bool Find(const char* pszQueueManager) { return xcsGetIniFilename(pszQueueManager, szName, &nType) == 0; }
};

CString WithoutTrailingBackslash(const CString& strPath)
{
    return strPath.GetLast() == L'\\' ? strPath.Left(strPath.GetLength() - 1) : strPath;
}

CString WithTrailingBackslash(const CString& strPath)
{
    return strPath.GetLast() == L'\\' ? strPath : strPath + L"\\";
}

// Where the queue manager's logs are now. False if its configuration does not say.
bool ReadLogPath(const ConfigurationFile& qmIni, CString& strLogPath)
{
    constexpr uint32_t MAX_LOG_PATH = 261;
    char szLogPath[MAX_LOG_PATH + 1] = {}; // a value of the full length comes without its terminator
    uint32_t nLength = MAX_LOG_PATH;
    if (xcsIniUtilRead("Log", nullptr, nullptr, "LogPath", szLogPath, &nLength, qmIni.szName, qmIni.nType) !=
            0 ||
        nLength > MAX_LOG_PATH)
        return false;
    szLogPath[nLength] = '\0';
    strLogPath = WithoutTrailingBackslash(CString(szLogPath));
    return IsTreePath(strLogPath);
}

// The last statement of a failing step: what the trace and the user are told, and the result.
template <class... Args>
int Refuse(CZNMTrace& trace, const char* pszTrace, uint32_t nMessageID, const Args&... args)
{
    if constexpr (sizeof...(args) > 0)
        trace.Parms(pszTrace, args...);
    else
        trace.Text(pszTrace);
    CZNMUtil::ZNMessageConsole(ZNM_MESSAGE_STDERR, nMessageID);
    return trace.Return(0);
}

// The same for a step without a message of its own: the user sees only the usage line.
int RefuseSilently(CZNMTrace& trace, const char* pszTrace)
{
    trace.Text(pszTrace);
    return trace.Return(0);
}
} // namespace

int CZNMSCSApp::MigrateQueueManager()
{
    CZNMTrace trace(FN_MIGRATE_QUEUE_MANAGER);

    // Three switches and their three values. What is wrong otherwise, the usage line tells.
    if (m_nParameters != 6 || m_fParametersValid != TRUE)
        return trace.Return(0);

    // --- The queue manager: known, single-instance, stopped. After a failure from here to the creation of
    // the destinations nothing has changed, but for a queue manager that was stopped and stays so.
    CZNMQueueMgr queueMgr(m_strQueueManager);
    if (queueMgr.Refresh() != 1)
        return Refuse(trace, "Cannot contact Queue Manager '%S'", IDS_QM_NOT_FOUND, m_strQueueManager);
    if (queueMgr.IsMultiInstance() == 1)
        return Refuse(trace, "Queue Manager '%S' is configured for multi-instance support",
                      IDS_QM_MULTI_INSTANCE, m_strQueueManager);
    if (const int fRunning = queueMgr.IsRunning(); fRunning == 1)
    {
        if (queueMgr.Stop(static_cast<int16_t>(fRunning)) != 0)
            return Refuse(trace, "Queue Manager is active & cannot be stopped, cannot continue",
                          IDS_QM_STILL_ACTIVE);
    }

    // --- Where everything is, and where it is to go.
    ConfigurationFile znsIni;
    if (!znsIni.Find(nullptr))
        return RefuseSilently(trace, "Unable to get zns.ini filename");
    const CW2A narrowName(m_strQueueManager);
    ConfigurationFile qmIni;
    if (!qmIni.Find(narrowName))
        return RefuseSilently(trace, "Unable to get qm.ini filename");

    const CString strDirectory(queueMgr.GetDirectoryName());
    const CString strSrcDataDir(queueMgr.GetDataDirectory());
    if (strDirectory.IsEmpty() || !IsTreePath(strSrcDataDir)) // it was deleted meanwhile
        return Refuse(trace, "Cannot contact Queue Manager '%S'", IDS_QM_NOT_FOUND, m_strQueueManager);
    CString strSrcLogDir;
    if (!ReadLogPath(qmIni, strSrcLogDir))
        return RefuseSilently(trace, "Unable to read log path");

    const CString strDestDataDir = m_strDataDest + L"\\" + L"qmgrs" + L"\\" + strDirectory;
    const CString strDestLogDir = m_strLogDest + L"\\" + strDirectory;
    trace.Parms("strSrcDataDir:  %S", strSrcDataDir);
    trace.Parms("strDestDataDir:  %S", strDestDataDir);
    trace.Parms("strSrcLogDir:  %S", strSrcLogDir);
    trace.Parms("strDestLogDir:  %S", strDestLogDir);

    // Deliberately narrow: with case, data against data and log against log only.
    if (strDestDataDir == strSrcDataDir || strDestLogDir == strSrcLogDir)
        return Refuse(trace, "Cannot have the same source/destination directories", IDS_SAME_DESTINATION);

    // One directory for both would let files of the second copy take the place of the first one's.
    if (_wcsicmp(strDestDataDir, strDestLogDir) == 0)
        return Refuse(trace, "Cannot have one destination directory for data and log", IDS_SAME_DESTINATION);

    // --- A failure leaves the destination directories that were created.
    const bool fPossible = CanBeDestination(strDestDataDir) && CanBeDestination(strDestLogDir);
    if (!fPossible)
        trace.Text("A destination directory is not absolute, too long or not in the code page");
    if (!fPossible || CheckAndCreateZNDirectory(strDestDataDir) != 1 ||
        CheckAndCreateZNDirectory(strDestLogDir) != 1)
        return Refuse(trace, "Cannot create/access destination directories", IDS_CREATE_FAILED);

    // --- A failure leaves whole or partial copies; sources and configuration are untouched.
    if (CopyZNFiles(strDestDataDir, strSrcDataDir) != 1 || CopyZNFiles(strDestLogDir, strSrcLogDir) != 1)
        return Refuse(trace, "Cannot copy Queue Manager data/log files to destination", IDS_COPY_FAILED);

    // --- A failure leaves two complete copies and the configuration as it was.
    const CW2A narrowPrefix(WithoutTrailingBackslash(m_strDataDest));
    if (xcsIniUtilWrite("QueueManager", "Name", narrowName, "Prefix", narrowPrefix, znsIni.szName,
                        znsIni.nType) != 0)
        return Refuse(trace, "Cannot update prefix value for queue manager", IDS_UPDATE_FAILED);

    // --- A failure leaves both copies; zns.ini names the new data directory, the qm.ini in it the old log
    // directory. The name is asked for again because it now leads to that copy.
    ConfigurationFile newQmIni;
    if (!newQmIni.Find(narrowName))
        return RefuseSilently(trace, "Unable to get new qm.ini filename");
    const CW2A narrowLogPath(WithTrailingBackslash(strDestLogDir));
    if (xcsIniUtilWrite("Log", nullptr, nullptr, "LogPath", narrowLogPath, newQmIni.szName, newQmIni.nType) !=
        0)
        return Refuse(trace, "Cannot update logpath value for queue manager", IDS_UPDATE_FAILED);

    // --- A failure leaves the configuration moved and the old trees wholly or partly deleted. Where a new
    // tree turns out to lie in an old one, under another spelling say, nothing is deleted at all.
    const bool fInside = IsInsideTree(strDestDataDir, {strSrcDataDir, strSrcLogDir}) ||
                         IsInsideTree(strDestLogDir, {strSrcDataDir, strSrcLogDir});
    if (fInside)
        trace.Text("A new directory lies in an old one: nothing is deleted");
    if (fInside || DeleteZNFiles(strSrcDataDir) != 1 || DeleteZNFiles(strSrcLogDir) != 1)
        return Refuse(trace, "Failed to delete old data/log directories", IDS_DELETE_FAILED);
    return trace.Return(1);
}
