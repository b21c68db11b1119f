// Lets the program find volumes and a product library that this machine does not have: ZN_FAULTS_VOLUME is
// one of these words.
//     seconds      times of files are kept in whole seconds
//     behind       listings know neither size nor time of any file yet
//     changing     a directory has another identity each time it is opened
//     blank        no directory has one
//     template     the new volume was made from the same template as the old one: what has the same path
//                  there has the same identity
//     <path>       the library names zns.ini by this path
#include <windows.h>

#include <bit>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>

#include "hook.h"
#include "tovxcs2.h"

namespace
{
void Blank(WIN32_FIND_DATAW* pEntry)
{
    if ((pEntry->dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0)
        return;
    pEntry->nFileSizeLow = 0;
    pEntry->ftLastWriteTime = {};
}

void AddSeconds(Hooks& hooks)
{
    hooks.push_back(Hook(SetFileTime, [](HANDLE h, auto* p1, auto* p2, const FILETIME* pTime) {
        ULARGE_INTEGER n = {{pTime->dwLowDateTime, pTime->dwHighDateTime}};
        n.QuadPart -= n.QuadPart % 10'000'000;
        const FILETIME time = {n.LowPart, n.HighPart};
        return SetFileTime(h, p1, p2, &time);
    }));
}

void AddBehind(Hooks& hooks)
{
    hooks.push_back(Hook(FindFirstFileExW, [](LPCWSTR psz, auto eLevel, void* p, auto... args) {
        const HANDLE hFind = FindFirstFileExW(psz, eLevel, p, args...);
        return Blank(static_cast<WIN32_FIND_DATAW*>(p)), hFind;
    }));
    hooks.push_back(Hook(FindNextFileW, [](HANDLE hFind, WIN32_FIND_DATAW* pEntry) {
        const BOOL fFound = FindNextFileW(hFind, pEntry);
        return Blank(pEntry), fFound;
    }));
}

void AddIdentifiers(Hooks& hooks, bool fBlank)
{
    hooks.push_back(Hook(GetFileInformationByHandleEx,
                         [fBlank, n = 0](HANDLE h, auto eClass, void* p, auto nSize) mutable {
                             const BOOL fRead = GetFileInformationByHandleEx(h, eClass, p, nSize);
                             FILE_ID_128& id = static_cast<FILE_ID_INFO*>(p)->FileId;
                             fBlank ? std::memset(&id, 0xFF, sizeof id) : std::memcpy(&id, &++n, sizeof n);
                             return fRead;
                         }));
}

void AddTemplate(Hooks& hooks)
{
    hooks.push_back(Hook(GetFileInformationByHandleEx, [](HANDLE h, auto, void* p, auto) {
        wchar_t szPath[MAX_PATH] = {};
        GetFinalPathNameByHandleW(h, szPath, MAX_PATH, VOLUME_NAME_DOS);
        std::wstring strPath = szPath;
        if (const size_t nNew = strPath.find(L"\\new"); nNew != std::wstring::npos)
            strPath.replace(nNew, 4, L"\\old");
        const uint64_t anId[] = {std::hash<std::wstring>()(strPath), 1};
        auto* const pInformation = static_cast<FILE_ID_INFO*>(p);
        std::memcpy(&pInformation->FileId, anId, sizeof anId);
        pInformation->VolumeSerialNumber = 1;
        return TRUE;
    }));
    hooks.push_back(
        Hook(GetFinalPathNameByHandleW, [](HANDLE h, wchar_t* psz, DWORD nSize, DWORD nForm) -> DWORD {
            const DWORD nLength = GetFinalPathNameByHandleW(h, psz, nSize, VOLUME_NAME_DOS);
            if (nForm != VOLUME_NAME_GUID)
                return nLength;
            const bool fNew = std::wstring_view(psz, nLength).find(L"\\new") != std::wstring_view::npos;
            return static_cast<DWORD>(
                std::wcslen(lstrcpyW(psz, fNew ? L"\\\\?\\Volume{2}\\x" : L"\\\\?\\Volume{1}\\x")));
        }));
}

template <class Function>
Function* Real(const char* pszFunction)
{
    return std::bit_cast<Function*>(GetProcAddress(GetModuleHandleW(L"tovxcs2r.dll"), pszFunction));
}

void AddName(Hooks& hooks, const std::string& strName)
{
    static std::string s_strReal;
    hooks.push_back(Hook(xcsGetIniFilename, [strName](const char* pszName, char* pszFile, auto* pnType) {
        const int32_t nResult =
            Real<decltype(xcsGetIniFilename)>("xcsGetIniFilename")(pszName, pszFile, pnType);
        if (pszName == nullptr)
        {
            s_strReal = pszFile;
            std::memcpy(pszFile, strName.c_str(), strName.size() + 1);
        }
        return nResult;
    }));
    hooks.push_back(Hook(xcsIniUtilWrite, [strName](auto* p1, auto* p2, auto* p3, auto* p4, auto* p5,
                                                    const char* pszFile, auto nType) {
        return Real<decltype(xcsIniUtilWrite)>("xcsIniUtilWrite")(
            p1, p2, p3, p4, p5, strName == pszFile ? s_strReal.c_str() : pszFile, nType);
    }));
}
} // namespace

void ReplaceVolumes()
{
    static auto& s_hooks = *new Hooks; // the program calls until after this library's end
    const char* const pszVolume = std::getenv("ZN_FAULTS_VOLUME");
    const std::string strVolume = pszVolume != nullptr ? pszVolume : "";
    if (strVolume == "seconds")
        AddSeconds(s_hooks);
    else if (strVolume == "behind")
        AddBehind(s_hooks);
    else if (strVolume == "changing" || strVolume == "blank")
        AddIdentifiers(s_hooks, strVolume == "blank");
    else if (strVolume == "template")
        AddTemplate(s_hooks);
    else if (!strVolume.empty())
        AddName(s_hooks, strVolume);
}
