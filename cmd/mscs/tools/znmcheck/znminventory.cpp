// Lists trees and reads their files. Opens everything for reading only and lets other programs go on.
#include "znminventory.h"

#include <bcrypt.h>
#include <sddl.h>
#include <aclapi.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cwchar>

#include "owner.h"
#include "tovmsrid.h"
#include "tovxcs2.h"
#include "znmconsole.h"
#include "znmreadfile.h"

ZNM_SOURCE_ID("cmd/mscs/tools/znmcheck/znminventory");

namespace
{
struct AlgorithmKind
{
    using Type = BCRYPT_ALG_HANDLE;
    static Type Nothing() noexcept { return nullptr; }
    static void Close(Type h) noexcept { BCryptCloseAlgorithmProvider(h, 0); }
};
struct HashKind
{
    using Type = BCRYPT_HASH_HANDLE;
    static Type Nothing() noexcept { return nullptr; }
    static void Close(Type h) noexcept { BCryptDestroyHash(h); }
};

class Sha256
{
  public:
    Sha256()
    {
        m_fFailed =
            BCryptOpenAlgorithmProvider(m_algorithm.Out(), BCRYPT_SHA256_ALGORITHM, nullptr, 0) != 0 ||
            BCryptCreateHash(m_algorithm.Get(), m_hash.Out(), nullptr, 0, nullptr, 0, 0) != 0;
    }
    void Add(const void* pBytes, size_t nBytes)
    {
        auto* const pInput = static_cast<unsigned char*>(const_cast<void*>(pBytes)); // only read
        m_fFailed =
            m_fFailed || !m_hash || BCryptHashData(m_hash.Get(), pInput, static_cast<ULONG>(nBytes), 0) != 0;
    }
    std::string Finish()
    {
        std::array<unsigned char, 32> digest = {};
        if (m_fFailed || BCryptFinishHash(m_hash.Get(), digest.data(), ULONG{digest.size()}, 0) != 0)
            return {};
        std::string strHex;
        for (const unsigned char byte : digest)
            for (const int nDigit : {byte >> 4, byte & 15})
                strHex += "0123456789abcdef"[nDigit];
        return strHex;
    }

  private:
    Owner<AlgorithmKind> m_algorithm;
    Owner<HashKind> m_hash;
    bool m_fFailed = false;
};

std::wstring TimeText(const FILETIME& time)
{
    SYSTEMTIME parts = {};
    FileTimeToSystemTime(&time, &parts); // a time that no calendar has becomes zeros
    constexpr uint64_t UNITS = 10'000'000;
    const uint64_t nUnits = (uint64_t{time.dwHighDateTime} << 32 | time.dwLowDateTime) % UNITS;
    constexpr size_t MAX_TEXT = 64;
    wchar_t szText[MAX_TEXT] = {};
    _snwprintf(szText, MAX_TEXT - 1, L"%04u-%02u-%02uT%02u:%02u:%02u.%07uZ", parts.wYear, parts.wMonth,
               parts.wDay, parts.wHour, parts.wMinute, parts.wSecond, static_cast<unsigned>(nUnits));
    return szText;
}

} // namespace

std::wstring ZNSecurityText(const std::wstring& strPath, SECURITY_INFORMATION nWanted)
{
    LocalBlock descriptor;
    LocalText text;
    if (GetNamedSecurityInfoW(strPath.c_str(), SE_FILE_OBJECT, nWanted, nullptr, nullptr, nullptr, nullptr,
                              descriptor.Out()) != ERROR_SUCCESS ||
        !ConvertSecurityDescriptorToStringSecurityDescriptorW(descriptor.Get(), SDDL_REVISION_1, nWanted,
                                                              text.Out(), nullptr))
        return {};
    return text.Get();
}

namespace
{
// "ZN", 16 digits, ".tmp": a configuration file that did not get its place.
bool IsHalfMade(const std::wstring& strPath)
{
    const std::wstring strName = strPath.substr(strPath.find_last_of(L'\\') + 1);
    constexpr size_t LENGTH = 22;
    return strName.size() == LENGTH && strName.starts_with(L"ZN") && strName.ends_with(L".tmp");
}
} // namespace

std::string ZNSha256(const std::string& strBytes)
{
    Sha256 hash;
    hash.Add(strBytes.data(), strBytes.size());
    return hash.Finish();
}

std::string ZNDigestWithoutLogPath(std::string strQmIni)
{
    std::string strRest;
    for (size_t nEnd; !strQmIni.empty(); strQmIni.erase(0, nEnd))
    {
        nEnd = std::min(strQmIni.find('\n'), strQmIni.size() - 1) + 1;
        const size_t nName = std::min(strQmIni.find_first_not_of(" \t"), nEnd);
        if (_strnicmp(strQmIni.c_str() + nName, "LogPath", 7) != 0)
            strRest.append(strQmIni, 0, nEnd);
    }
    return ZNSha256(strRest);
}

void CZNInventory::List(const std::wstring& strDirectory, bool fData)
{
    *this = CZNInventory();
    strDir = strDirectory;
    m_fData = fData;
    const DWORD nAttributes = GetFileAttributesW(strDir.c_str());
    const DWORD nError = GetLastError();
    fThere = nAttributes != INVALID_FILE_ATTRIBUTES;
    if (fThere)
    {
        std::vector<CZNIdentity> above;
        ListBelow(L"", above);
    }
    else if (nError != ERROR_FILE_NOT_FOUND && nError != ERROR_PATH_NOT_FOUND)
        findings.push_back({ZN_FINDING::NOT_LISTED, strDir.c_str(), nError});
}

void CZNInventory::ListBelow(const std::wstring& strBelow, std::vector<CZNIdentity>& above)
{
    const std::wstring strHere = strDir + (strBelow.empty() ? L"" : L"\\") + strBelow;
    DWORD nError = ERROR_SUCCESS;
    const auto identity = CZNIdentity::Of(strHere, nullptr, &nError);
    if (!identity)
        return findings.push_back({ZN_FINDING::NOT_IDENTIFIED, strHere.c_str(), nError});
    if (std::ranges::any_of(above, [&](const CZNIdentity& other) { return other.IsSame(*identity); }))
        return findings.push_back({ZN_FINDING::LINK_CYCLE, strHere.c_str()});
    directories.Add(*identity, true);
    above.push_back(*identity);

    WIN32_FIND_DATAW entry = {};
    const FindHandle find(FindFirstFileExW((strHere + L"\\*").c_str(), FindExInfoBasic, &entry,
                                           FindExSearchNameMatch, nullptr, FIND_FIRST_EX_LARGE_FETCH));
    nError = find ? DWORD{ERROR_SUCCESS} : GetLastError();
    while (nError == ERROR_SUCCESS)
    {
        const std::wstring strName = entry.cFileName;
        if (strName != L"." && strName != L"..")
        {
            const std::wstring strPath =
                strBelow.empty() ? strName : std::wstring(strBelow).append(L"\\").append(strName);
            ZNEntry listed;
            listed.nAttributes = entry.dwFileAttributes;
            listed.fDirectory = (entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
            listed.strCreated = TimeText(entry.ftCreationTime);
            listed.strWritten = TimeText(entry.ftLastWriteTime);
            // A directory with a reparse point of no kind is a link on a system that does not tell kinds.
            if ((entry.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0 &&
                (IsReparseTagNameSurrogate(entry.dwReserved0) || entry.dwReserved0 == 0))
                links.push_back(strDir + L"\\" + strPath);
            if (!listed.fDirectory)
            {
                listed.nSize = uint64_t{entry.nFileSizeHigh} << 32 | entry.nFileSizeLow;
                nBytes += listed.nSize;
                ++nFiles;
            }
            const bool fDirectory = listed.fDirectory;
            if (!entries.emplace(strPath, std::move(listed)).second) // differs in letter case only
                findings.push_back({ZN_FINDING::NOT_IDENTIFIED, (strDir + L"\\" + strPath).c_str()});
            else if (fDirectory)
                ListBelow(strPath, above);
        }
        const BOOL fNext = FindNextFileW(find.Get(), &entry);
        nError = fNext ? DWORD{ERROR_SUCCESS} : GetLastError();
    }
    if (nError != ERROR_NO_MORE_FILES)
        findings.push_back({ZN_FINDING::NOT_LISTED, strHere.c_str(), nError});
    above.pop_back();
}

void CZNInventory::Read(CZNProgress& progress, bool fSecurity)
{
    for (auto& [strBelow, entry] : entries)
    {
        const std::wstring strPath = strDir + L"\\" + strBelow;
        if (fSecurity)
            entry.strSddl = ZNSecurityText(strPath, OWNER_SECURITY_INFORMATION | GROUP_SECURITY_INFORMATION |
                                                        DACL_SECURITY_INFORMATION);
        if (entry.fDirectory)
            continue;
        Sha256 hash;
        const DWORD nError = ZNReadPieces(strPath, [&](std::string_view piece) {
            hash.Add(piece.data(), piece.size());
            progress.AddBytes(piece.size());
        });
        progress.AddFile();
        if (nError != ERROR_SUCCESS)
            findings.push_back({ZN_FINDING::NOT_READ, strPath.c_str(), nError});
        else
            entry.strSha256 = hash.Finish();
        entry.strContent = entry.strSha256;
        if (m_fData && !entry.strSha256.empty() && _wcsicmp(strBelow.c_str(), L"qm.ini") == 0)
        {
            std::string strQmIni;
            entry.strContent = ZNReadFile(strPath, strQmIni) == ERROR_SUCCESS
                                   ? ZNDigestWithoutLogPath(strQmIni)
                                   : std::string();
        }
    }
}

void CZNInventory::Probe(bool fHeld)
{
    for (const auto& [strBelow, entry] : entries)
    {
        if (entry.fDirectory)
            continue;
        const std::wstring strPath = strDir + L"\\" + strBelow;
        const FileHandle file(CreateFileW(strPath.c_str(), GENERIC_READ | (fHeld ? DELETE : 0UL),
                                          FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                          OPEN_EXISTING, 0, nullptr));
        const DWORD nError = GetLastError();
        if (!file)
            findings.push_back({ZN_FINDING::NOT_READ, strPath.c_str(), nError});
    }
}

size_t CZNInventory::LongestPathIn(const std::wstring& strDirectory) const
{
    size_t nLongest = 0;
    for (const auto& entry : entries)
        nLongest = std::max(nLongest, entry.first.size() + 1 + strDirectory.size());
    return nLongest;
}

ZNComparison::ZNComparison(const CZNInventory& left, const CZNInventory& right)
{
    for (const auto& [strPath, entry] : left.entries)
    {
        const auto found = right.entries.find(strPath);
        if (found == right.entries.end())
        {
            if (!IsHalfMade(strPath))
                onlyLeft.push_back(strPath);
            continue;
        }
        const ZNEntry& other = found->second;
        const bool fSameKind = entry.fDirectory == other.fDirectory;
        const bool fRead = !entry.strContent.empty() && !other.strContent.empty();
        if (fSameKind && (entry.fDirectory || (fRead && entry.strContent == other.strContent)))
            continue;
        if (fSameKind && !fRead)
            notCompared.push_back(strPath);
        else if (!fSameKind || entry.strWritten == other.strWritten)
            damaged.push_back(strPath);
        else
            (entry.strWritten > other.strWritten ? leftNewer : rightNewer).push_back(strPath);
    }
    for (const auto& [strPath, entry] : right.entries)
        if (!left.entries.contains(strPath) && !IsHalfMade(strPath))
            onlyRight.push_back(strPath);
}
