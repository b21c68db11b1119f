// The files of a sample queue manager: made, verified, appended to.
#pragma once

#include <windows.h>

#include <cstdint>
#include <functional>
#include <string>

#include "owner.h"

struct QueueManagerFiles
{
    std::wstring strDataDirectory;
    std::wstring strLogDirectory;

    // Files that the running queue manager writes to.
    std::wstring ActivityPath() const { return strDataDirectory + L"\\activity.rec"; }
    std::wstring JournalPath() const { return strLogDirectory + L"\\journal.rec"; }
};

// Makes both directories, which must not exist yet, with the two files that are written to, nFiles other
// record files and qm.ini. Returns 0 or the system's error code, with strFailed the path that it is about;
// what was made until then stays.
DWORD CreateFiles(const QueueManagerFiles& files, unsigned nFiles, std::wstring& strFailed);

struct Verdict
{
    unsigned nFiles = 0;
    unsigned nRecords = 0;
    unsigned nDamaged = 0; // files missing, unreadable or damaged
};

// Checks every file. report gets a line for each file that is not whole.
Verdict VerifyFiles(const QueueManagerFiles& files, const std::function<void(const std::wstring&)>& report);

// A record file that is open for more records. What a crash cut off in its last line is removed at opening.
class RecordAppender
{
  public:
    // Null on failure.
    explicit RecordAppender(const std::wstring& strPath);
    explicit operator bool() const { return static_cast<bool>(m_file); }

    // False when the record could not be written whole. No other may be appended then.
    bool Append(std::string_view strText);

  private:
    FileHandle m_file;
    uint32_t m_nNext = 1;
};
