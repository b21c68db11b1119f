// Files that a move makes for a moment to learn what a volume does. Each has a name that nothing else has:
// "ZN", 16 hexadecimal digits, ".tmp".
#pragma once

#include <windows.h>

#include <cstdint>
#include <string>
#include <string_view>

#include "owner.h"

// Whether the name is that of such a file, or of a configuration file that did not get its place: those are
// made beside zns.ini and qm.ini under names of the same form.
bool ZNIsTemporaryName(std::wstring_view name);

// An empty file, which goes when the object goes or the process ends, however it ends.
class CZNProbeFile
{
  public:
    // Makes it. Returns 0 or the system's error code.
    DWORD Make(const std::wstring& strDir);

    // Whether the file is in strDir, too: strDir is then the directory in which it was made, by whatever
    // name. It also is if that cannot be told.
    bool IsIn(const std::wstring& strDir) const;

  private:
    std::wstring m_strName;
    FileHandle m_file;
};

// Asks a volume what becomes of a time of a last write, which some keep in coarser units than others.
class CZNTimeProbe
{
  public:
    explicit CZNTimeProbe(std::wstring strDir) : m_strDir(std::move(strDir)) {}
    ~CZNTimeProbe();
    CZNTimeProbe(const CZNTimeProbe&) = delete;
    CZNTimeProbe& operator=(const CZNTimeProbe&) = delete;

    // Whether a file whose last-write time was set to nTime has nKept afterwards. The first question makes a
    // file in the directory, which goes with the object. False also if that is not possible.
    bool Makes(uint64_t nTime, uint64_t nKept);

  private:
    std::wstring m_strDir, m_strFile; // empty: not yet made
};
