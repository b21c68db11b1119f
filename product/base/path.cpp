// Judges paths by their text alone. Must not ask the system: a path may lead to a volume that is not there.
#include "path.h"

namespace
{
bool HasOneOf(std::wstring_view strText, std::wstring_view strCharacters)
{
    for (const wchar_t ch : strText)
        if (ch < L' ' || strCharacters.find(ch) != strCharacters.npos)
            return true;
    return false;
}
} // namespace

bool IsAbsolutePath(std::wstring_view strPath)
{
    if (HasOneOf(strPath, L"?*<>|\""))
        return false;
    if (strPath.starts_with(L"\\\\"))
        return strPath.size() > 2 && strPath[2] != L'\\' && !strPath.starts_with(L"\\\\.\\");
    const wchar_t chLetter = strPath.empty() ? L'\0' : static_cast<wchar_t>(strPath[0] | 0x20);
    return strPath.size() >= 2 && chLetter >= L'a' && chLetter <= L'z' && strPath[1] == L':' &&
           (strPath.size() == 2 || strPath[2] == L'\\') && strPath.find(L':', 2) == strPath.npos;
}

bool IsDirectoryName(std::wstring_view strName)
{
    return !strName.empty() && strName.back() != L'.' && strName.back() != L' ' &&
           !HasOneOf(strName, L"\\/:?*<>|\"");
}

void RemoveTrailingBackslash(std::wstring& strPath)
{
    if (!strPath.empty() && strPath.back() == L'\\')
        strPath.pop_back();
}
