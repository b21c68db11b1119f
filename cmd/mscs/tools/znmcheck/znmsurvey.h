// CZNSurvey: what the product's library says of the queue manager, of the move's places and of the others.
#pragma once

#include <string>

#include "znmdecide.h"
#include "znmidentity.h"
#include "znmplaces.h"

// What the command line says. Empty: not given.
struct ZNCheckWords
{
    std::wstring strVerb, strQueueManager;
    std::wstring strDataDest, strLogDest; // as the command takes them
    std::wstring strRecord, strOldData, strOldLog;
};

class CZNSurvey
{
  public:
    explicit CZNSurvey(const ZNCheckWords& words);

    bool fKnown = false, fMultiInstance = false, fRunning = false;
    bool fMoving = false;  // another process moves it
    bool fLogPath = false; // its qm.ini names a log directory that can be moved
    ConfigurationFile znsIni, qmIni;
    std::wstring strZnsIni, strQmIni; // empty: the library does not name the file
    std::wstring strDirectory;        // name of its directories
    std::wstring aNow[ZN_TREES];      // its data and its log directory, where the configuration has them
    std::wstring aNew[ZN_TREES];      // where the move takes them
    std::wstring aMarks[2];           // of a move: by the place before it, and by the one after it

    // Whether one of the marks is set: the first one cannot be told once zns.ini was changed.
    bool IsMoving() const;

    // The data and log directories of all other queue managers, and whose they are.
    CZNIdentityMap<std::wstring> others;

    bool IsSameAs(const CZNSurvey& other) const
    {
        return fKnown == other.fKnown && fRunning == other.fRunning && fMoving == other.fMoving &&
               aNow[ZN_DATA] == other.aNow[ZN_DATA] && aNow[ZN_LOG] == other.aNow[ZN_LOG];
    }
};

// The value of LogPath in the qm.ini of a data directory, without a trailing backslash; empty without one.
std::wstring ZNLogPathIn(const std::wstring& strDataDir);
