// CZNSurvey: what the product's library says of the queue manager, of the move's places and of the others.
#pragma once

#include <string>

#include "znmidentity.h"
#include "znmplaces.h"

// The words of the command line.
struct ZNCheckWords
{
    CString strQueueManager;
    CString strDataDest, strLogDest;    // as the command takes them
    std::wstring strRecord;             // empty: none
    std::wstring strOldData, strOldLog; // empty: not given
};

class CZNSurvey
{
  public:
    explicit CZNSurvey(const ZNCheckWords& words);

    bool fKnown = false, fMultiInstance = false, fRunning = false;
    bool fMoving = false;  // another process moves it
    bool fZnsIni = false;  // the library names zns.ini
    bool fQmIni = false;   // and the queue manager's qm.ini
    bool fLogPath = false; // which names a log directory that can be moved
    ConfigurationFile znsIni, qmIni;
    std::wstring strZnsIni, strQmIni;
    std::wstring strDirectory;     // name of its directories
    CString strDataDir, strLogDir; // where the configuration has it now
    CString strNewDataDir, strNewLogDir;

    // Which other queue manager of this machine has a directory among these; empty: none.
    std::wstring FindOther(const CZNIdentityMap<bool>& directories) const;

    // Whether two paths lead to one directory, or are one text if that cannot be told.
    static bool IsSamePlace(const std::wstring& strLeft, const std::wstring& strRight);

  private:
    void AddOthers(const CString& strName);

    CZNIdentityMap<std::wstring> m_others; // data and log directories, whose they are
};

// What a message of the command says, in the user's language.
std::wstring ZNMessageText(uint32_t nMessageID);

// A path for cmd.exe, in quotation marks.
std::wstring ZNQuoted(const std::wstring& strPath);
