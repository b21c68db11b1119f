// Lists by name alone; a link to a file is asked for what it leads to.
#include "znmwalk.h"

#include <algorithm>
#include <cwchar>

#include "owner.h"
#include "tovmsrid.h"
#include "znmreadfile.h"

ZNM_SOURCE_ID(ZNM_MIGRATE_TOOL("znmwalk"));

namespace
{
uint64_t Join(DWORD nHigh, DWORD nLow)
{
    return uint64_t{nHigh} << 32 | nLow;
}

uint64_t Join(const FILETIME& time)
{
    return Join(time.dwHighDateTime, time.dwLowDateTime);
}

// For the three structures in which the system hands out the state of a file.
template <class Information>
ZNEntryState StateOf(const Information& information)
{
    ZNEntryState state;
    state.nSize = Join(information.nFileSizeHigh, information.nFileSizeLow);
    state.nCreated = Join(information.ftCreationTime);
    state.nLastWrite = Join(information.ftLastWriteTime);
    state.nAttributes = information.dwFileAttributes;
    return state;
}

bool IsDotEntry(const WIN32_FIND_DATAW& found)
{
    return std::wcscmp(found.cFileName, L".") == 0 || std::wcscmp(found.cFileName, L"..") == 0;
}

int CompareNames(const wchar_t* pszLeft, const wchar_t* pszRight)
{
    return CompareStringOrdinal(pszLeft, -1, pszRight, -1, TRUE) - CSTR_EQUAL;
}

class Walk
{
  public:
    Walk(const ZNVisit& visit, CZNFindings& findings) : m_visit(visit), m_findings(findings) {}

    void Enter(const std::wstring& strDir, const std::wstring& strBelow, const CZNIdentity* pParent)
    {
        DWORD nError = ERROR_SUCCESS;
        const auto identity = CZNIdentity::Of(strDir, pParent, &nError);
        ZNVisited visited{strDir, strBelow, {}, {}};
        if (!visited.listing.Read(strDir, m_findings))
            return;
        if (!identity)
        {
            m_findings.Add(ZN_FINDING::NOT_IDENTIFIED, strDir, nError);
            return;
        }
        visited.identity = *identity;
        if (std::ranges::any_of(m_above, [&](const CZNIdentity& above) { return above.IsSame(*identity); }))
        {
            m_findings.Add(ZN_FINDING::LINK_CYCLE, strDir);
            return;
        }
        m_visit(visited);
        m_above.push_back(*identity);
        for (const ZNListed& entry : visited.listing.Entries())
        {
            if (m_findings.IsFull())
                break;
            if (!entry.IsDirectory())
                continue;
            const std::wstring strName = std::wstring(L"\\") + visited.listing.NameOf(entry);
            Enter(strDir + strName, strBelow + strName, entry.fLink ? nullptr : &*identity);
        }
        m_above.pop_back();
    }

  private:
    const ZNVisit& m_visit;
    CZNFindings& m_findings;
    std::vector<CZNIdentity> m_above; // the directories that the current one is in
};
} // namespace

bool ZNIsNotThere(DWORD nError)
{
    return nError == ERROR_FILE_NOT_FOUND || nError == ERROR_PATH_NOT_FOUND;
}

bool ZNIsNameLess(const wchar_t* pszLeft, const wchar_t* pszRight)
{
    const int nOrder = CompareNames(pszLeft, pszRight);
    return nOrder != 0 ? nOrder < 0 : std::wcscmp(pszLeft, pszRight) < 0;
}

bool ZNIsSameName(const wchar_t* pszLeft, const wchar_t* pszRight)
{
    return CompareNames(pszLeft, pszRight) == 0;
}

bool ZNIsLink(const WIN32_FIND_DATAW& found)
{
    const bool fDirectory = (found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
    return (found.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0 &&
           (IsReparseTagNameSurrogate(found.dwReserved0) || (fDirectory && found.dwReserved0 == 0));
}

bool ZNIsLinkAt(const std::wstring& strPath)
{
    WIN32_FIND_DATAW found = {};
    const FindHandle find(
        FindFirstFileExW(strPath.c_str(), FindExInfoBasic, &found, FindExSearchNameMatch, nullptr, 0));
    return !find || ZNIsLink(found);
}

ZNEntryState ZNStateOf(const WIN32_FIND_DATAW& found)
{
    return StateOf(found);
}

DWORD ZNAskFile(const std::wstring& strPath, bool fLink, ZNEntryState& state)
{
    if (!fLink)
    {
        WIN32_FILE_ATTRIBUTE_DATA attributes = {};
        const BOOL fRead = GetFileAttributesExW(strPath.c_str(), GetFileExInfoStandard, &attributes);
        const DWORD nError = GetLastError();
        if (fRead)
            state = StateOf(attributes);
        return fRead ? DWORD{ERROR_SUCCESS} : nError;
    }
    BY_HANDLE_FILE_INFORMATION information = {};
    const DWORD nError = ZNReadInformation(strPath, information);
    if (nError == ERROR_SUCCESS)
        state = StateOf(information);
    return nError;
}

bool CZNListing::Read(const std::wstring& strDir, CZNFindings& findings)
{
    *this = CZNListing();
    const std::wstring strPattern = strDir + L"\\*";
    WIN32_FIND_DATAW found = {};
    const FindHandle find(FindFirstFileExW(strPattern.c_str(), FindExInfoBasic, &found, FindExSearchNameMatch,
                                           nullptr, FIND_FIRST_EX_LARGE_FETCH));
    DWORD nError = GetLastError();
    nError = find ? DWORD{ERROR_SUCCESS} : nError;
    while (nError == ERROR_SUCCESS)
    {
        if (!IsDotEntry(found) && !Add(strDir, found, findings))
            return false;
        const BOOL fNext = FindNextFileW(find.Get(), &found);
        nError = fNext ? DWORD{ERROR_SUCCESS} : GetLastError();
    }
    if (!find || nError != ERROR_NO_MORE_FILES)
        return findings.Add(ZN_FINDING::NOT_LISTED, strDir, nError);
    const auto isLess = [this](const ZNListed& left, const ZNListed& right) {
        return ZNIsNameLess(NameOf(left), NameOf(right));
    };
    if (!std::ranges::is_sorted(m_entries, isLess)) // most file systems list by name already
        std::ranges::sort(m_entries, isLess);
    return true;
}

bool CZNListing::Add(const std::wstring& strDir, const WIN32_FIND_DATAW& found, CZNFindings& findings)
{
    ZNListed entry{ZNStateOf(found), static_cast<uint32_t>(m_strNames.size()), ZNIsLink(found)};
    if (entry.fLink && !entry.IsDirectory())
        if (const DWORD nError = ZNAskFile(strDir + L"\\" + found.cFileName, true, entry);
            nError != ERROR_SUCCESS)
            return findings.Add(ZN_FINDING::NOT_READ, strDir + L"\\" + found.cFileName, nError);
    m_entries.push_back(entry);
    m_strNames.append(found.cFileName).push_back(L'\0');
    return true;
}

const ZNListed* CZNListing::Find(const wchar_t* pszName) const
{
    const auto first = std::ranges::partition_point(
        m_entries, [&](const ZNListed& entry) { return CompareNames(NameOf(entry), pszName) < 0; });
    const ZNListed* pFound = nullptr;
    for (auto it = first; it != m_entries.end() && ZNIsSameName(NameOf(*it), pszName); ++it)
        if (pFound == nullptr || std::wcscmp(NameOf(*it), pszName) == 0)
            pFound = &*it;
    return pFound;
}

bool ZNWalk(const std::wstring& strRoot, const ZNVisit& visit, CZNFindings& findings)
{
    const size_t nBefore = findings.Count();
    Walk(visit, findings).Enter(strRoot, L"", nullptr);
    return findings.Count() == nBefore;
}
