// CZNMQueueMgr: one queue manager, identified by its name.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "afxwin.h"
#include "tovxcs2.h"

// A record that the common-services library allocated.
struct CZNMRecordDeleter
{
    void operator()(void* pRecord) const noexcept;
};
template <class Record>
using CZNMRecord = std::unique_ptr<Record, CZNMRecordDeleter>;

// Stop types and the options of the end command. Any other value acts as ZNM_STOP_WAIT.
constexpr int16_t ZNM_STOP_WAIT = 1;                 // -w
constexpr int16_t ZNM_STOP_IMMEDIATE = 2;            // -i
constexpr int16_t ZNM_STOP_PREEMPTIVE = 3;           // -p
constexpr int16_t ZNM_STOP_RECONNECT_PREEMPTIVE = 4; // -rp
constexpr int16_t ZNM_STOP_RECONNECT_IMMEDIATE = 5;  // -ri

// Every query asks the library again, so each answer is the state at the time of the call. A text that a
// query returns is valid until the next query.
class CZNMQueueMgr : public CCmdTarget
{
    DECLARE_DYNAMIC(CZNMQueueMgr)

  public:
    // Stores the name (null is taken as empty) and refreshes once. If that fails, the object can still be
    // used; each query refreshes again.
    explicit CZNMQueueMgr(const wchar_t* pszQueueManagerName);
    ~CZNMQueueMgr() override;

    // Fetches the details of the queue manager and of the installation that owns it. Returns 1, or 0 if one
    // of them is unknown; both records are then released.
    int Refresh();

    // Returns 1 if the queue manager is configured for multi-instance operation; 0 if it is not or cannot be
    // found.
    int IsMultiInstance();

    // Returns 1 if it runs; 0 if it does not or if its state cannot be read.
    int IsRunning();

    // Returns the name of its directories below the data and log roots, in the thread's ANSI code page, or
    // null if it cannot be found.
    const char* GetDirectoryName();

    // Returns its data directory, in the same way.
    const char* GetDataDirectory();

    // Returns the data directory and the directory name as the records of the last query have them, with a
    // zero between them: different for every queue manager of this machine. Without a new query and without
    // trace; empty if that query failed.
    std::string GetPlace() const;

    // Runs the end command of its installation and waits for it to end. Returns 0 if the queue manager was
    // not running, else the command's exit code; -1 if the queue manager cannot be found, its details cannot
    // be used or the command cannot be run.
    int32_t Stop(int16_t nStopType);

  private:
    bool FetchDetails();
    bool FetchInstallation();
    int32_t FetchInstallation(const char* pszName, int32_t nSelector);
    int GetState();

    CString m_strName;
    CZNMRecord<XCS_QM_DETAILS> m_pDetails;
    CZNMRecord<XCS_INSTALLATION_DETAILS> m_pInstallation;
};
