// Makes and looks for the marks of moves. They are mutexes, which need no privilege in the global name space.
#include "znmmark.h"

#include <cstdint>
#include <cwchar>
#include <string_view>

#include "tovmsrid.h"

ZNM_SOURCE_ID(ZNM_MIGRATE_TOOL("znmmark"));

namespace
{
// Of bounded length, whatever the bytes are.
std::wstring Hash(std::string_view bytes)
{
    uint64_t nHash = 0xCBF29CE484222325; // FNV-1a
    for (const char ch : bytes)
        nHash = (nHash ^ static_cast<unsigned char>(ch)) * 0x100000001B3;
    constexpr size_t DIGITS = 16;
    wchar_t szDigits[DIGITS + 1] = {};
    _snwprintf(szDigits, DIGITS + 1, L"%016llX", static_cast<unsigned long long>(nHash));
    return szDigits;
}
} // namespace

// A mark that is there may only be looked at: a move owns its mark.
bool CZNMark::Set(const std::wstring& strName)
{
    m_mutex = KernelHandle(CreateMutexW(nullptr, TRUE, strName.c_str()));
    const DWORD nError = GetLastError();
    if (!m_mutex)
        return nError != ERROR_ACCESS_DENIED && nError != ERROR_INVALID_HANDLE; // of another kind
    return nError != ERROR_ALREADY_EXISTS || WaitForSingleObject(m_mutex.Get(), 0) != WAIT_TIMEOUT;
}

bool CZNMark::IsSet(const std::wstring& strName)
{
    const KernelHandle mutex(OpenMutexW(SYNCHRONIZE, FALSE, strName.c_str()));
    const DWORD nError = GetLastError();
    return mutex || nError != ERROR_FILE_NOT_FOUND;
}

std::wstring ZNMoveMark(const std::string& strPlace)
{
    return L"Global\\ZN.Move." + Hash(strPlace);
}

std::wstring ZNDestinationMark(const CZNIdentity& directory)
{
    return L"Global\\ZN.Destination." + Hash(directory.Bytes());
}

std::wstring ZNPhaseMark(const std::wstring& strMark, ZN_PHASE ePhase)
{
    return strMark + L"." + std::to_wstring(static_cast<int>(ePhase));
}
