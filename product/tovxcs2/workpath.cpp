// Finds the work path and makes files below it. Must not take a relative path: it would depend on the
// caller's current directory. Must not overwrite anything.
#include "workpath.h"

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

WorkFile CreateWorkFile(const wchar_t* pszDirectory, const wchar_t* pszExtension)
{
    const std::wstring strWorkPath = WorkPath();
    if (strWorkPath.empty())
        return {};
    const std::wstring strDirectory = strWorkPath + L"\\" + pszDirectory + L"\\";
    CreateDirectoryW(strDirectory.c_str(), nullptr); // it nearly always exists; the next step finds out
    // Process numbers are reused: names that an earlier process took are skipped.
    constexpr int MAX_FILES_OF_PROCESS = 10'000;
    static int s_nNext = 0;
    while (s_nNext < MAX_FILES_OF_PROCESS)
    {
        std::wstring strName =
            L"ZN" + std::to_wstring(GetCurrentProcessId()) + L"." + std::to_wstring(s_nNext++) + pszExtension;
        const std::wstring strPath = strDirectory + strName;
        FileHandle file(CreateFileW(strPath.c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr, CREATE_NEW,
                                    FILE_ATTRIBUTE_NORMAL, nullptr));
        const DWORD nError = GetLastError();
        if (file || nError != ERROR_FILE_EXISTS)
            return {std::move(file), std::move(strName)};
    }
    return {};
}

bool WriteWorkFile(const FileHandle& file, const std::string& strText)
{
    DWORD nWritten = 0;
    return WriteFile(file.Get(), strText.data(), static_cast<DWORD>(strText.size()), &nWritten, nullptr) &&
           nWritten == strText.size();
}
