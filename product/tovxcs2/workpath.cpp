// Finds the work path. Must not take a relative path: it would depend on where the caller stands.
#include "workpath.h"

#include <windows.h>

#include "path.h"

namespace
{
std::wstring Environment(const wchar_t* pszName)
{
    std::wstring strValue(32768, L'\0'); // what a variable can hold at most
    const DWORD nLength =
        GetEnvironmentVariableW(pszName, strValue.data(), static_cast<DWORD>(strValue.size()));
    strValue.resize(nLength < strValue.size() ? nLength : 0);
    return strValue;
}

std::wstring Registry()
{
    wchar_t szValue[1024] = {};
    DWORD nSize = sizeof szValue;
    const LSTATUS nResult = RegGetValueW(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Vantor\\ZN", L"WorkPath",
                                         RRF_RT_REG_SZ, nullptr, szValue, &nSize);
    return nResult == ERROR_SUCCESS ? szValue : L"";
}
} // namespace

std::wstring WorkPath()
{
    std::wstring strPath = Environment(L"ZN_WORK_PATH");
    if (strPath.empty())
        strPath = Registry();
    if (strPath.empty())
        strPath = Environment(L"ProgramData") + L"\\Vantor\\ZN";
    while (!strPath.empty() && strPath.back() == L'\\')
        strPath.pop_back();
    return IsAbsolutePath(strPath) ? strPath : L"";
}
