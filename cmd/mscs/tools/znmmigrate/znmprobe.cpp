// Makes and removes files of its own only: none that is there is ever opened for writing.
#include "znmprobe.h"

#include <cwchar>

#include "tovmsrid.h"
#include "znmreadfile.h"
#include "znmwalk.h"

ZNM_SOURCE_ID(ZNM_MIGRATE_TOOL("znmprobe"));

namespace
{
constexpr size_t DIGITS = 16;
constexpr std::wstring_view BEGINNING = L"ZN", ENDING = L".tmp";

std::wstring TemporaryName()
{
    // Never used twice, and not by another machine at the same moment either.
    static uint64_t s_nNext = 0;
    LARGE_INTEGER counter = {};
    QueryPerformanceCounter(&counter); // cannot fail
    FILETIME now = {};
    GetSystemTimeAsFileTime(&now);
    uint64_t n = static_cast<uint64_t>(counter.QuadPart) ^ (uint64_t{GetCurrentProcessId()} << 32) ^
                 (uint64_t{now.dwHighDateTime} << 32 | now.dwLowDateTime);
    n = (n + ++s_nNext) * 0x9E3779B97F4A7C15; // spreads what differs over all digits
    n ^= n >> 29;
    wchar_t szDigits[DIGITS + 1] = {};
    _snwprintf(szDigits, DIGITS + 1, L"%016llX", static_cast<unsigned long long>(n));
    return std::wstring(BEGINNING).append(szDigits).append(ENDING);
}

// Makes a file that was not there. Nothing, and the system's error code, if that fails.
FileHandle MakeNew(const std::wstring& strPath, DWORD nFlags, DWORD& nError)
{
    FileHandle file(CreateFileW(strPath.c_str(), GENERIC_WRITE | DELETE,
                                FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, CREATE_NEW,
                                FILE_ATTRIBUTE_NORMAL | nFlags, nullptr));
    nError = GetLastError();
    nError = file ? DWORD{ERROR_SUCCESS} : nError;
    return file;
}
} // namespace

bool ZNIsTemporaryName(std::wstring_view name)
{
    const size_t nLength = BEGINNING.size() + DIGITS + ENDING.size();
    return name.size() == nLength && name.starts_with(BEGINNING) && name.ends_with(ENDING) &&
           name.substr(BEGINNING.size(), DIGITS).find_first_not_of(L"0123456789ABCDEFabcdef") ==
               std::wstring_view::npos;
}

DWORD CZNProbeFile::Make(const std::wstring& strDir)
{
    m_strName = TemporaryName();
    DWORD nError = ERROR_SUCCESS;
    m_file = MakeNew(strDir + L"\\" + m_strName, FILE_FLAG_DELETE_ON_CLOSE, nError);
    return nError;
}

bool CZNProbeFile::IsIn(const std::wstring& strDir) const
{
    const std::wstring strPath = strDir + L"\\" + m_strName;
    const DWORD nAttributes = GetFileAttributesW(strPath.c_str());
    const DWORD nError = GetLastError();
    return nAttributes != INVALID_FILE_ATTRIBUTES || !ZNIsNotThere(nError);
}

CZNTimeProbe::~CZNTimeProbe()
{
    if (!m_strFile.empty())
        DeleteFileW(m_strFile.c_str()); // a file that stays does no harm
}

bool CZNTimeProbe::Makes(uint64_t nTime, uint64_t nKept)
{
    FileHandle file;
    if (m_strFile.empty())
    {
        DWORD nError = ERROR_SUCCESS;
        const std::wstring strFile = m_strDir + L"\\" + TemporaryName();
        file = MakeNew(strFile, 0, nError);
        if (!file)
            return false;
        m_strFile = strFile;
    }
    else
        file = ZNOpenShared(m_strFile, FILE_WRITE_ATTRIBUTES);
    const FILETIME time = {static_cast<DWORD>(nTime), static_cast<DWORD>(nTime >> 32)};
    if (!file || !SetFileTime(file.Get(), nullptr, nullptr, &time))
        return false;
    file.Close(); // an open file's time is not in the listing yet
    WIN32_FIND_DATAW found = {};
    const FindHandle find(
        FindFirstFileExW(m_strFile.c_str(), FindExInfoBasic, &found, FindExSearchNameMatch, nullptr, 0));
    ZNEntryState asked;
    return (find && ZNStateOf(found).nLastWrite == nKept) ||
           (ZNAskFile(m_strFile, false, asked) == ERROR_SUCCESS && asked.nLastWrite == nKept);
}
