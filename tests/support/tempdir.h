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
// directories
// "<link>". Links are not entered.
using Snapshot = std::map<std::wstring, std::string>;
inline void AddToSnapshot(Snapshot& snapshot, const fs::path& dir, const fs::path& base)
{
    std::error_code missing;
    for (const auto& entry : fs::directory_iterator(dir, missing))
    {
        const DWORD nAttributes = GetFileAttributesW(entry.path().c_str());
        const bool fDirectory = (nAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
        const bool fLink = fDirectory && (nAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0;
        snapshot[entry.path().lexically_relative(base).wstring()] = fLink        ? "<link>"
                                                                    : fDirectory ? "<dir>"
                                                                                 : ReadAll(entry.path());
        if (fDirectory && !fLink)
            AddToSnapshot(snapshot, entry.path(), base);
    }
}
inline Snapshot TakeSnapshot(const fs::path& base)
{
    Snapshot snapshot;
    AddToSnapshot(snapshot, base, base);
    return snapshot;
}

// Makes a link to a directory: the system's, or where a test platform only pretends to, that of the host.
inline void MakeLink(const fs::path& link, const fs::path& target)
{
    fs::create_directories(link.parent_path());
    CreateSymbolicLinkW(link.c_str(), target.c_str(), SYMBOLIC_LINK_FLAG_DIRECTORY);
    const auto hostName = reinterpret_cast<char*(CDECL*)(const wchar_t*)>(
        reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"kernel32"), "wine_get_unix_file_name")));
    if (hostName == nullptr || GetFileAttributesW(link.c_str()) != INVALID_FILE_ATTRIBUTES)
        return;
    std::string strCommand = std::string("ln -s ") + hostName(target.c_str()) + " " + hostName(link.c_str());
    STARTUPINFOA startup = {};
    PROCESS_INFORMATION process = {};
    CreateProcessA("Z:\\bin\\ln", strCommand.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup,
                   &process);
    while (GetFileAttributesW(link.c_str()) == INVALID_FILE_ATTRIBUTES) // the handle does not tell of its end
        SwitchToThread();
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
                RemoveDirectoryW((root / strName).c_str());
            else
                SetFileAttributesW((root / strName).c_str(), FILE_ATTRIBUTE_NORMAL);
        fs::remove_all(root, ignored);
    }
};
