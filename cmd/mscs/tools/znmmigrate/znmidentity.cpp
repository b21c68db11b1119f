// Reads the identity of directories. Never takes two directories for one because a file system has no
// identifiers.
#include "znmidentity.h"

#include <algorithm>
#include <cstring>
#include <iterator>

#include "owner.h"
#include "tovmsrid.h"
#include "tovxcs2.h"

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
} // namespace

std::optional<CZNDirectoryIdentity> CZNDirectoryIdentity::Of(const wchar_t* pszDir, DWORD& nError)
{
    const FileHandle dir(CreateFileW(pszDir, FILE_READ_ATTRIBUTES,
                                     FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                     OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr));
    nError = GetLastError();
    if (!dir)
        return std::nullopt;
    CZNDirectoryIdentity identity;
    nError = ERROR_SUCCESS;
    if (!identity.ReadIdentifier(dir.Get()))
        nError = identity.ReadFinalPath(dir.Get());
    return nError == ERROR_SUCCESS ? std::optional(identity) : std::nullopt;
}

bool CZNDirectoryIdentity::ReadIdentifier(HANDLE hDir)
{
    FILE_ID_INFO information = {};
    if (GetFileInformationByHandleEx(hDir, FileIdInfo, &information, sizeof information))
    {
        m_nVolume = information.VolumeSerialNumber;
        m_id = information.FileId;
        return !IsMeaningless(m_id);
    }
    // File systems and servers from before Windows 8 know only the 64-bit identifier.
    BY_HANDLE_FILE_INFORMATION older = {};
    if (!GetFileInformationByHandle(hDir, &older))
        return false;
    const DWORD anIndex[] = {older.nFileIndexLow, older.nFileIndexHigh};
    const bool fMeaningless = anIndex[0] == anIndex[1] && (anIndex[0] == 0 || anIndex[0] == MAXDWORD);
    m_nVolume = older.dwVolumeSerialNumber;
    m_id = {};
    std::memcpy(m_id.Identifier, anIndex, sizeof anIndex);
    return !fMeaningless;
}

DWORD CZNDirectoryIdentity::ReadFinalPath(HANDLE hDir)
{
    constexpr DWORD MAX_LENGTH = 32'768;
    m_nVolume = 0;
    m_id = {};
    m_strFinalPath.resize(MAX_LENGTH);
    const DWORD nLength = GetFinalPathNameByHandleW(hDir, m_strFinalPath.data(), MAX_LENGTH, VOLUME_NAME_DOS);
    const DWORD nError = GetLastError();
    if (nLength == 0 || nLength >= MAX_LENGTH)
        return nError != ERROR_SUCCESS ? nError : DWORD{ERROR_GEN_FAILURE};
    m_strFinalPath.resize(nLength);
    return ERROR_SUCCESS;
}

std::weak_ordering CZNDirectoryIdentity::operator<=>(const CZNDirectoryIdentity& other) const
{
    if (const auto order = m_nVolume <=> other.m_nVolume; std::is_neq(order))
        return order;
    if (const int nOrder = std::memcmp(m_id.Identifier, other.m_id.Identifier, sizeof m_id.Identifier);
        nOrder != 0)
        return nOrder <=> 0;
    const int nCompared = CompareStringOrdinal(m_strFinalPath.data(), static_cast<int>(m_strFinalPath.size()),
                                               other.m_strFinalPath.data(),
                                               static_cast<int>(other.m_strFinalPath.size()), TRUE);
    return nCompared <=> CSTR_EQUAL;
}
