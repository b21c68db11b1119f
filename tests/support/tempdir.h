// A directory of a test's own, which disappears with the object, whatever attributes its content has by then.
#pragma once

#include <windows.h>
#include <process.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <string>
#include <vector>

namespace fs = std::filesystem;

inline std::string ReadAll(const fs::path& path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

inline void WriteAll(const fs::path& path, const std::string& strContent,
                     DWORD nAttributes = FILE_ATTRIBUTE_NORMAL)
{
    fs::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << strContent;
    SetFileAttributesW(path.c_str(), nAttributes);
}

// Relative path and content of everything below a directory; directories have the content "<dir>", links to
// directories "<link>". Links are not entered.
using Snapshot = std::map<std::wstring, std::string>;
inline Snapshot TakeSnapshot(const fs::path& base, const fs::path& sub = "")
{
    Snapshot snapshot;
    std::error_code missing;
    for (const auto& entry : fs::directory_iterator(base / sub, missing))
    {
        const fs::path name = sub / entry.path().filename();
        const DWORD nAttributes = GetFileAttributesW(entry.path().c_str());
        const bool fDirectory = (nAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0,
                   fLink = fDirectory && (nAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0;
        snapshot[name] = fLink ? "<link>" : fDirectory ? "<dir>" : ReadAll(entry.path());
        if (fDirectory && !fLink)
            snapshot.merge(TakeSnapshot(base, name));
    }
    return snapshot;
}

// Makes or removes a link by the tools of the host, where the platform is one on top of another system and
// only pretends to do it. A process handle does not tell of their end, and a busy machine has been seen to
// lose one.
inline void RunHostTool(const char* pszProgram, const char* pszOption, const fs::path& path,
                        const fs::path& link, bool fListed)
{
    const auto hostName = reinterpret_cast<char*(CDECL*)(const wchar_t*)>(
        reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"kernel32"), "wine_get_unix_file_name")));
    const auto isDone = [&] { // a link that leads nowhere is listed, too
        WIN32_FIND_DATAW entry;
        const HANDLE hFind = FindFirstFileW(link.c_str(), &entry);
        return (hFind != INVALID_HANDLE_VALUE && FindClose(hFind)) == fListed;
    };
    const auto word = [&](const fs::path& name) { return std::string("\"") + hostName(name.c_str()) + "\""; };
    for (int nTry = 0; nTry < 10 && hostName != nullptr && !isDone(); ++nTry)
    {
        _spawnl(_P_DETACH, pszProgram, pszProgram, pszOption, word(path).c_str(), word(link).c_str(),
                nullptr);
        for (int nWait = 0; nWait < 200 && !isDone(); ++nWait)
            Sleep(10);
    }
}

inline void MakeLink(const fs::path& link, const fs::path& target)
{
    fs::create_directories(link.parent_path());
    CreateSymbolicLinkW(link.c_str(), target.c_str(),
                        fs::is_directory(target) ? SYMBOLIC_LINK_FLAG_DIRECTORY : 0);
    RunHostTool("Z:\\bin\\ln", "-s", target, link, true);
}

class TempDir
{
  public:
    TempDir()
    {
        Remove(); // of an earlier process of that number, which was killed
        fs::create_directories(root);
    }
    ~TempDir() { Remove(); }
    TempDir(const TempDir&) = delete;

    // Names below a subdirectory, with their directories, sorted.
    std::vector<std::wstring> Names(const fs::path& sub = "") const
    {
        std::vector<std::wstring> names;
        for (const auto& entry : TakeSnapshot(root / sub))
            names.push_back(entry.first);
        return names;
    }

    const fs::path root = fs::temp_directory_path() /
                          ("zn" + std::to_string(GetCurrentProcessId()) + "." + std::to_string(s_nNext++));

  private:
    static inline int s_nNext = 0;

    void Remove()
    {
        std::error_code ignored; // a left-over fails no test
        for (const auto& [strName, strContent] : TakeSnapshot(root))
            if (const fs::path path = root / strName; strContent == "<link>")
            {
                RunHostTool("Z:\\bin\\rm", "-f", path, path, false);
                RemoveDirectoryW(path.c_str());
            }
            else
                SetFileAttributesW((root / strName).c_str(), FILE_ATTRIBUTE_NORMAL);
        fs::remove_all(root, ignored);
        RunHostTool("Z:\\bin\\rm", "-rf", root, root, false); // links whose target went first
    }
};
