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

// Relative path and content of everything below a directory; directories have the content "<dir>".
using Snapshot = std::map<std::wstring, std::string>;
inline Snapshot TakeSnapshot(const fs::path& base)
{
    Snapshot snapshot;
    std::error_code missing;
    for (const auto& entry : fs::recursive_directory_iterator(base, missing))
        snapshot[entry.path().lexically_relative(base).wstring()] =
            entry.is_directory() ? "<dir>" : ReadAll(entry.path());
    return snapshot;
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
        for (const auto& entry : fs::recursive_directory_iterator(root, ignored))
            SetFileAttributesW(entry.path().c_str(), FILE_ATTRIBUTE_NORMAL);
        fs::remove_all(root, ignored);
    }
};
