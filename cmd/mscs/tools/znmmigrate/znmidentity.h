// CZNIdentity: tells one directory or file from every other one, whatever path leads to it.
#pragma once

#include <windows.h>

#include <cstdint>
#include <optional>
#include <string>
#include <unordered_map>

// The volume and the 128-bit file identifier or, on a volume whose identifiers are missing or change from one
// opening to the next, the path with all links resolved.
class CZNIdentity
{
  public:
    // What strPath leads to; links are followed. pParent: the identity of the directory that the entry lies
    // in, if the entry is no link, which saves asking what the identifiers of its volume are worth; otherwise
    // null. Nothing if it cannot be opened or told from others; *pnError is then the system's error code.
    static std::optional<CZNIdentity> Of(const std::wstring& strPath, const CZNIdentity* pParent = nullptr,
                                         DWORD* pnError = nullptr);

    // Volumes that were made from one template share serial number and identifiers: where both paths have a
    // volume by its own name, these names must be equal too. Where only the serial numbers differ, the
    // resolved paths decide.
    bool IsSame(const CZNIdentity& other) const;

    // Equal for what is the same.
    uint64_t Key() const;

    // Equal for what is the same, unless it is reached by different ways, as by a share and by a drive. Other
    // for almost everything else: volumes that were made from one template are not told apart.
    std::string Bytes() const;

  private:
    DWORD Read(const std::wstring& strPath);
    bool ReadIdentifier(HANDLE hFile);

    bool m_fByPath = false;      // the volume's identifiers do not tell
    std::wstring m_strPath;      // by which it was asked for
    std::wstring m_strFinalPath; // upper case; empty where the identifier tells
    uint64_t m_nVolume = 0;      // serial number
    FILE_ID_128 m_id = {};
    bool m_fOld = false; // serial number and identifier are of the older, shorter kind
};

// Something for each of many directories or files.
template <class Value>
class CZNIdentityMap
{
  public:
    // Keeps what is there already. Returns what is there afterwards.
    const Value& Add(const CZNIdentity& identity, Value value)
    {
        const Value* const pKnown = Find(identity);
        return pKnown != nullptr
                   ? *pKnown
                   : m_values.emplace(identity.Key(), std::pair(identity, std::move(value)))->second.second;
    }

    // Null if there is none.
    const Value* Find(const CZNIdentity& identity) const
    {
        const auto [first, last] = m_values.equal_range(identity.Key());
        for (auto it = first; it != last; ++it)
            if (it->second.first.IsSame(identity))
                return &it->second.second;
        return nullptr;
    }

    bool IsEmpty() const { return m_values.empty(); }
    auto begin() const { return m_values.begin(); } // pairs of a key, and of an identity and its value
    auto end() const { return m_values.end(); }

  private:
    std::unordered_multimap<uint64_t, std::pair<CZNIdentity, Value>> m_values;
};
