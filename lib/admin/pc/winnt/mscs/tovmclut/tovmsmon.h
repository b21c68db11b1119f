// CZNMQueueMgr: the program's handle on one queue manager, known by its name.
#pragma once

#include <cstdint>
#include <memory>

#include "afxwin.h"
#include "tovxcs2.h"

// A record that the common-services library allocated.
struct CZNMRecordDeleter
{
    void operator()(void* pRecord) const noexcept;
};
template <class Record>
using CZNMRecord = std::unique_ptr<Record, CZNMRecordDeleter>;

// Options of the end command, by stop type. Any other value acts as ZNM_STOP_WAIT.
constexpr int16_t ZNM_STOP_WAIT = 1;                 // -w
constexpr int16_t ZNM_STOP_IMMEDIATE = 2;            // -i
constexpr int16_t ZNM_STOP_PREEMPTIVE = 3;           // -p
constexpr int16_t ZNM_STOP_RECONNECT_PREEMPTIVE = 4; // -rp
constexpr int16_t ZNM_STOP_RECONNECT_IMMEDIATE = 5;  // -ri

// Every query asks the library anew, so that each answer is the state at the time of the call. A text that a
// query returned is valid until the next one.
class CZNMQueueMgr : public CCmdTarget
{
  public:
    // Takes the name (null is taken as empty) and refreshes once. After a failed refresh the object is
    // usable; its queries fail until a later refresh succeeds.
    explicit CZNMQueueMgr(const wchar_t* pszQueueManagerName);
    ~CZNMQueueMgr() override;

    const CRuntimeClass* GetRuntimeClass() const override;

    // Fetches the details of the queue manager and of the installation that owns it. 1, or 0 if either is
    // unknown; both records are then given back.
    int Refresh();

    // 1 if the queue manager is configured for multi-instance operation, else 0, also if it cannot be found.
    int IsMultiInstance();

    // 1 if it runs, 0 if it does not or if that cannot be told.
    int IsRunning();

    // Name of its directories below the data and log roots; narrow, in the thread's ANSI code page. Null if
    // the details cannot be read.
    const char* GetDirectoryName();

    // Its data directory, likewise.
    const char* GetDataDirectory();

    // A text that differs for every queue manager of this machine and stays the same while its records do:
    // what the running test tells queue managers apart by (subpool, directory name, installation). Made from
    // the records that the last query left, without a new query and without a trace record; empty if that
    // query failed. It has no backslash, so that it can be part of the name of a kernel object.
    CString GetRunIdentity() const;

    // Ends it with the end command of its installation and waits for that command. 0 if it was not running;
    // the command's exit code if it was; -1 if the queue manager cannot be found or the command cannot be
    // run.
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
