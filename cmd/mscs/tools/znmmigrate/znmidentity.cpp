// Reads identities. Never takes two directories for one because a file system has no identifiers, or one for
// two because it makes them up anew each time.
#include "znmidentity.h"

#include <algorithm>
#include <cstring>
#include <functional>
#include <iterator>

#include "tovmsrid.h"
#include "znmreadfile.h"

ZNM_SOURCE_ID(ZNM_MIGRATE_TOOL("znmidentity"));

namespace
{
// Network file systems answer so where they have no identifiers.
bool IsMeaningless(const FILE_ID_128& id)
{
    const auto isAll = [&](BYTE b) {
        return std::all_of(std::begin(id.Identifier), std::end(id.Identifier),
                           [b](BYTE n) { return n == b; });
    };
    return isAll(0x00) || isAll(0xFF);
}

// Empty if the system has no such path; nError is then its error code.
std::wstring FinalPath(HANDLE hFile, DWORD nForm, DWORD& nError)
{
    constexpr DWORD MAX_LENGTH = 32'768;
    std::wstring strPath(MAX_LENGTH, L'\0');
    const DWORD nLength = GetFinalPathNameByHandleW(hFile, strPath.data(), MAX_LENGTH, nForm);
    nError = GetLastError();
    strPath.resize(nLength < MAX_LENGTH ? nLength : 0);
    if (strPath.empty() && nError == ERROR_SUCCESS)
        nError = ERROR_GEN_FAILURE;
    CharUpperBuffW(strPath.data(), static_cast<DWORD>(strPath.size()));
    return strPath;
}

std::wstring FinalPath(const std::wstring& strPath, DWORD nForm)
{
    DWORD nError = ERROR_SUCCESS;
    const FileHandle file = ZNOpenShared(strPath, FILE_READ_ATTRIBUTES);
    return file ? FinalPath(file.Get(), nForm, nError) : std::wstring();
}

// \\?\VOLUME{...}; empty if the path's volume has no such name.
std::wstring VolumeName(const std::wstring& strPath)
{
    const std::wstring strFinal = FinalPath(strPath, VOLUME_NAME_GUID);
    return strFinal.substr(0, strFinal.find(L'}') + 1);
}
} // namespace

std::optional<CZNIdentity> CZNIdentity::Of(const std::wstring& strPath, const CZNIdentity* pParent,
                                           DWORD* pnError)
{
    CZNIdentity identity;
    identity.m_strPath = strPath;
    identity.m_fByPath = pParent != nullptr && pParent->m_fByPath;
    DWORD nError = identity.Read(strPath);
    if (CZNIdentity again; pParent == nullptr && nError == ERROR_SUCCESS && identity.m_strFinalPath.empty())
    {
        identity.m_fByPath = again.Read(strPath) != ERROR_SUCCESS ||
                             std::memcmp(&identity.m_id, &again.m_id, sizeof again.m_id) != 0;
        if (identity.m_fByPath)
            nError = identity.Read(strPath);
    }
    if (pnError != nullptr)
        *pnError = nError;
    return nError == ERROR_SUCCESS ? std::optional(std::move(identity)) : std::nullopt;
}

DWORD CZNIdentity::Read(const std::wstring& strPath)
{
    const FileHandle file = ZNOpenShared(strPath, FILE_READ_ATTRIBUTES);
    DWORD nError = GetLastError();
    if (!file)
        return nError;
    nError = ERROR_SUCCESS;
    if (m_fByPath || !ReadIdentifier(file.Get()))
    {
        m_fByPath = true;
        m_strFinalPath = FinalPath(file.Get(), VOLUME_NAME_DOS, nError);
    }
    return m_strFinalPath.empty() ? nError : DWORD{ERROR_SUCCESS};
}

bool CZNIdentity::ReadIdentifier(HANDLE hFile)
{
    FILE_ID_INFO information = {};
    if (GetFileInformationByHandleEx(hFile, FileIdInfo, &information, sizeof information))
    {
        m_nVolume = information.VolumeSerialNumber;
        m_id = information.FileId;
        return !IsMeaningless(m_id);
    }
    // File systems and servers from before Windows 8 know only the 64-bit identifier.
    BY_HANDLE_FILE_INFORMATION older = {};
    if (!GetFileInformationByHandle(hFile, &older))
        return false;
    const DWORD anIndex[] = {older.nFileIndexLow, older.nFileIndexHigh};
    const bool fMeaningless = anIndex[0] == anIndex[1] && (anIndex[0] == 0 || anIndex[0] == MAXDWORD);
    m_fOld = true;
    m_nVolume = older.dwVolumeSerialNumber;
    m_id = {};
    std::memcpy(m_id.Identifier, anIndex, sizeof anIndex);
    return !fMeaningless;
}

bool CZNIdentity::IsSame(const CZNIdentity& other) const
{
    if (!m_strFinalPath.empty() || !other.m_strFinalPath.empty())
        return m_strFinalPath == other.m_strFinalPath;
    if (std::memcmp(&m_id, &other.m_id, sizeof m_id) != 0)
        return false;
    const uint64_t nCompared = m_fOld || other.m_fOld ? uint64_t{MAXDWORD} : ~uint64_t{0};
    if (m_strPath == other.m_strPath)
        return (m_nVolume & nCompared) == (other.m_nVolume & nCompared);
    if ((m_nVolume & nCompared) == (other.m_nVolume & nCompared))
    {
        const std::wstring strVolume = VolumeName(m_strPath), strOther = VolumeName(other.m_strPath);
        return strVolume.empty() || strOther.empty() || strVolume == strOther;
    }
    const std::wstring strPath = FinalPath(m_strPath, VOLUME_NAME_DOS);
    return !strPath.empty() && strPath == FinalPath(other.m_strPath, VOLUME_NAME_DOS);
}

uint64_t CZNIdentity::Key() const
{
    if (!m_strFinalPath.empty())
        return std::hash<std::wstring>()(m_strFinalPath);
    uint64_t nKey = 0;
    std::memcpy(&nKey, m_id.Identifier, sizeof nKey);
    return nKey;
}

std::string CZNIdentity::Bytes() const
{
    if (!m_strFinalPath.empty())
        return {reinterpret_cast<const char*>(m_strFinalPath.data()),
                m_strFinalPath.size() * sizeof(wchar_t)};
    const auto nVolume = static_cast<uint32_t>(m_nVolume);
    return std::string(reinterpret_cast<const char*>(&nVolume), sizeof nVolume)
        .append(reinterpret_cast<const char*>(m_id.Identifier), sizeof m_id);
}
