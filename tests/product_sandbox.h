// A work path of a test's own, with a zns.ini, that disappears with the object.
#pragma once

#include <windows.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

class Sandbox {
  public:
    explicit Sandbox(const std::string& strZnsIni = "")
        : m_root(
              std::filesystem::temp_directory_path() / ("zn" + std::to_string(GetCurrentProcessId()) + "." + std::to_string(s_nNext++))) {
        std::filesystem::remove_all(m_root); // of an earlier process of that number, which was killed
        std::filesystem::create_directories(m_root);
        Write("zns.ini", strZnsIni);
        SetEnvironmentVariableW(L"ZN_WORK_PATH", m_root.c_str());
    }
    ~Sandbox() {
        SetEnvironmentVariableW(L"ZN_TRACE", nullptr);
        std::error_code ignored; // a left-over in the temporary directory fails no test
        for (const auto& entry : std::filesystem::recursive_directory_iterator(m_root, ignored))
            SetFileAttributesW(entry.path().c_str(), FILE_ATTRIBUTE_NORMAL);
        std::filesystem::remove_all(m_root, ignored);
    }

    std::string Path(const std::string& strName = "") const { return (m_root / strName).make_preferred().string(); }
    void Write(const std::string& strName, const std::string& strContent) const {
        std::ofstream(m_root / strName, std::ios::binary) << strContent;
    }
    std::string Read(const std::string& strName) const {
        std::ifstream file(m_root / strName, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }
    // Names in a directory, sorted; none when it does not exist.
    std::vector<std::string> Names(const std::string& strDirectory = "") const {
        std::vector<std::string> names;
        std::error_code ignored;
        for (const auto& entry : std::filesystem::directory_iterator(m_root / strDirectory, ignored))
            names.push_back(entry.path().filename().string());
        std::sort(names.begin(), names.end());
        return names;
    }

  private:
    static inline int s_nNext = 0;
    std::filesystem::path m_root;
};
