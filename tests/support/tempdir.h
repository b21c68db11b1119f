// A directory of a test's own, which disappears with the object, whatever attributes its content has by then.
#pragma once

#include <windows.h>

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

// Whether a directory lists the name: of a link also if it leads nowhere.
inline bool IsListed(const fs::path& path)
{
    WIN32_FIND_DATAW entry;
    const HANDLE hFind = FindFirstFileW(path.c_str(), &entry);
    return hFind != INVALID_HANDLE_VALUE && FindClose(hFind);
}

// Makes or removes a link by the tools of the host, where the platform is one on top of another system and
// only pretends to do it. A process handle does not tell of their end, and a busy machine has been seen to
// lose one.
inline void RunHostTool(const std::string& strTool, std::initializer_list<fs::path> paths,
                        const fs::path& link, bool fListed)
{
    const auto hostName = reinterpret_cast<char*(CDECL*)(const wchar_t*)>(
        reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"kernel32"), "wine_get_unix_file_name")));
    for (int nTry = 0; nTry < 10 && hostName != nullptr && IsListed(link) != fListed; ++nTry)
    {
        std::string strCommand = strTool;
        for (const fs::path& path : paths)
            strCommand += std::string(" ") + hostName(path.c_str());
        STARTUPINFOA startup = {};
        PROCESS_INFORMATION process = {};
        const std::string strProgram = "Z:\\bin\\" + strTool.substr(0, strTool.find(' '));
        CreateProcessA(strProgram.c_str(), strCommand.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr,
                       &startup, &process);
        for (int nWait = 0; nWait < 200 && IsListed(link) != fListed; ++nWait)
            Sleep(10);
    }
}

inline void MakeLink(const fs::path& link, const fs::path& target)
{
    fs::create_directories(link.parent_path());
    CreateSymbolicLinkW(link.c_str(), target.c_str(), SYMBOLIC_LINK_FLAG_DIRECTORY);
    RunHostTool("ln -s", {target, link}, link, true);
}
inline void RemoveLink(const fs::path& link)
{
    RemoveDirectoryW(link.c_str());
    RunHostTool("rm -f", {link}, link, false);
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
    TempDir& operator=(const TempDir&) = delete;

    // Names below a subdirectory, with their directories, sorted.
    std::vector<std::wstring> Names(const fs::path& sub = "") const
    {
        std::vector<std::wstring> names;
        for (const auto& [strName, strContent] : TakeSnapshot(root / sub))
            names.push_back(strName);
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
            if (strContent == "<link>")
                RemoveLink(root / strName);
            else
                SetFileAttributesW((root / strName).c_str(), FILE_ATTRIBUTE_NORMAL);
        fs::remove_all(root, ignored);
    }
};
