// CZNDirectoryIdentity: tells one directory from every other one, whatever path leads to it.
#pragma once

#include <windows.h>

#include <compare>
#include <cstdint>
#include <optional>
#include <string>

// The volume and the 128-bit file identifier of a directory or, on a volume that has no usable identifiers,
// its path with all links resolved. The order is only good for searching.
class CZNDirectoryIdentity
{
  public:
    // The directory that pszDir leads to; links are followed. Nothing if it cannot be opened or told from
    // others; nError is then the system's error code.
    static std::optional<CZNDirectoryIdentity> Of(const wchar_t* pszDir, DWORD& nError);

    bool operator==(const CZNDirectoryIdentity& other) const { return std::is_eq(*this <=> other); }
    std::weak_ordering operator<=>(const CZNDirectoryIdentity& other) const;

  private:
    bool ReadIdentifier(HANDLE hDir);
    DWORD ReadFinalPath(HANDLE hDir);

    uint64_t m_nVolume = 0;
    FILE_ID_128 m_id = {};
    std::wstring m_strFinalPath; // empty where the identifier tells
};
