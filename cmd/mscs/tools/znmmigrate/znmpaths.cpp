// Judges paths. Asks the system how it resolves a path, but never looks at files.
#include "znmpaths.h"

#include <algorithm>
#include <cwchar>
#include <string>
#include <string_view>

#include "tovmsrid.h"

ZNM_SOURCE_ID(ZNM_MIGRATE_TOOL("znmpaths"));

namespace
{
bool EqualsIgnoringCase(std::wstring_view left, std::wstring_view right)
{
    return CompareStringOrdinal(left.data(), static_cast<int>(left.size()), right.data(),
                                static_cast<int>(right.size()), TRUE) == CSTR_EQUAL;
}

bool HasDrive(std::wstring_view path)
{
    const wchar_t chLetter = path.empty() ? L'\0' : static_cast<wchar_t>(path[0] | 0x20);
    return path.size() >= 3 && chLetter >= L'a' && chLetter <= L'z' && path[1] == L':' && path[2] == L'\\';
}

// "\\server\share...", not the prefixes \\?\ and \\.\, which switch Windows' checks off or name devices.
bool IsUnc(std::wstring_view path)
{
    return path.starts_with(L"\\\\") && !path.starts_with(L"\\\\?\\") && !path.starts_with(L"\\\\.\\");
}

// Names that lead to a device in every directory, whatever extension follows them.
bool IsDeviceName(std::wstring_view component)
{
    std::wstring_view name = component.substr(0, component.find(L'.'));
    while (name.ends_with(L' '))
        name.remove_suffix(1);
    for (const std::wstring_view device : {L"CON", L"PRN", L"AUX", L"NUL", L"CONIN$", L"CONOUT$"})
        if (EqualsIgnoringCase(name, device))
            return true;
    constexpr std::wstring_view DIGITS = L"0123456789\u00B9\u00B2\u00B3"; // superscript digits count too
    return name.size() == 4 && DIGITS.find(name[3]) != std::wstring_view::npos &&
           (EqualsIgnoringCase(name.substr(0, 3), L"COM") || EqualsIgnoringCase(name.substr(0, 3), L"LPT"));
}

bool IsPlainComponent(std::wstring_view component)
{
    const bool fControl =
        std::any_of(component.begin(), component.end(), [](wchar_t ch) { return ch < L' '; });
    return !component.empty() && component.back() != L'.' && component.back() != L' ' && !fControl &&
           component.find_first_of(L"<>:\"/|?*") == std::wstring_view::npos && !IsDeviceName(component);
}

// The first nNamed components must not be empty.
bool ArePlainComponents(std::wstring_view path, int nNamed)
{
    for (;; --nNamed)
    {
        const size_t nEnd = path.find(L'\\');
        const std::wstring_view component = path.substr(0, nEnd);
        if ((nNamed > 0 || !component.empty()) && !IsPlainComponent(component))
            return false;
        if (nEnd == std::wstring_view::npos)
            return true;
        path.remove_prefix(nEnd + 1);
    }
}

bool IsKeptByCodePage(const CString& strPath)
{
    return CString(static_cast<const char*>(CW2A(strPath))) == strPath;
}

// Without the backslashes at its end.
std::wstring_view WithoutEnd(std::wstring_view path)
{
    return path.substr(0, path.find_last_not_of(L'\\') + 1);
}

// "E:\" or "\\server\share".
bool IsRoot(std::wstring_view path)
{
    const std::wstring_view name = WithoutEnd(path);
    return HasDrive(path) ? name.size() == 2 : std::ranges::count(name, L'\\') <= 3;
}

// Whether a volume is mounted in the directory. False also where the system does not say, as of a path that
// is too long for it.
bool IsMountPoint(const std::wstring& strPath)
{
    std::wstring strVolume(strPath.size() + MAX_PATH,
                           L'\0'); // the path itself, or what the system adds to it
    if (!GetVolumePathNameW(strPath.c_str(), strVolume.data(), static_cast<DWORD>(strVolume.size())))
        return false;
    strVolume.resize(std::wcslen(strVolume.c_str()));
    return EqualsIgnoringCase(WithoutEnd(strVolume), WithoutEnd(strPath));
}
} // namespace

std::wstring ResolvedPath(const std::wstring& strPath)
{
    constexpr DWORD MAX_LENGTH = 32'768;
    std::wstring strFull(MAX_LENGTH, L'\0');
    const DWORD nLength = GetFullPathNameW(strPath.c_str(), MAX_LENGTH, strFull.data(), nullptr);
    strFull.resize(nLength < MAX_LENGTH ? nLength : 0);
    return std::wstring(WithoutEnd(strFull));
}

bool IsTreePath(const CString& strPath)
{
    std::wstring path(static_cast<const wchar_t*>(strPath));
    std::replace(path.begin(), path.end(), L'/', L'\\');
    if (!HasDrive(path) && !IsUnc(path))
        return false;
    // The copy and the deletion use the path with a name behind it; the removal of the directory uses it
    // alone.
    const std::wstring strFull = ResolvedPath(path), strEntry = ResolvedPath(path + L"\\x");
    return strEntry == strFull + L"\\x" && (HasDrive(strFull) || IsUnc(strFull)) && !IsRoot(strFull) &&
           !IsMountPoint(strFull);
}

bool CanBeDestination(const CString& strPath)
{
    constexpr size_t ROOT_LENGTH = 3;   // "E:\"
    constexpr size_t PREFIX_LENGTH = 2; // of "\\server\share"
    const std::wstring_view path(static_cast<const wchar_t*>(strPath));
    const bool fDrive = HasDrive(path);
    return (fDrive || IsUnc(path)) && path.size() <= ZN_MAX_DIRECTORY_PATH &&
           ArePlainComponents(path.substr(fDrive ? ROOT_LENGTH : PREFIX_LENGTH), fDrive ? 0 : 2) &&
           IsKeptByCodePage(strPath);
}
