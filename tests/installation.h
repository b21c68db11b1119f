// A sample installation of the product with one queue manager that does not run, in a folder of its own, for
// whole runs of the shipped tarvel.exe. Everything is gone when the object is.
#pragma once

#include <windows.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <sstream>
#include <string>

namespace fs = std::filesystem;

struct RunResult
{
    DWORD nStatus = 0;
    std::string strOut, strErr;
};

inline std::string ReadFile(const fs::path& path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

inline void WriteFile(const fs::path& path, const std::string& strContent)
{
    fs::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << strContent;
}

// Relative path and content of every file below a directory; directories with the content "<dir>".
using Snapshot = std::map<std::wstring, std::string>;
inline Snapshot TakeSnapshot(const fs::path& base)
{
    Snapshot snapshot;
    std::error_code missing;
    for (const auto& entry : fs::recursive_directory_iterator(base, missing))
        snapshot[entry.path().lexically_relative(base).wstring()] =
            entry.is_directory() ? "<dir>" : ReadFile(entry.path());
    return snapshot;
}

inline fs::path ProgramFolder()
{
    wchar_t szPath[MAX_PATH];
    GetModuleFileNameW(nullptr, szPath, MAX_PATH);
    return fs::path(szPath).parent_path();
}

// Runs a program to its end and takes what it writes. strProgram: beside the test program.
inline RunResult RunProgram(const std::wstring& strProgram, const std::wstring& strWords,
                            const fs::path& scratch)
{
    const fs::path program = ProgramFolder() / strProgram;
    SECURITY_ATTRIBUTES inherit = {sizeof inherit, nullptr, TRUE};
    HANDLE files[2];
    const fs::path names[] = {scratch / "stdout", scratch / "stderr"};
    for (int i : {0, 1})
        files[i] = CreateFileW(names[i].c_str(), GENERIC_WRITE, FILE_SHARE_READ, &inherit, CREATE_ALWAYS, 0,
                               nullptr);
    STARTUPINFOW startup = {};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdOutput = files[0];
    startup.hStdError = files[1];
    PROCESS_INFORMATION process = {};
    std::wstring strCommand = L"tarvel " + strWords;
    RunResult result{0xDEAD, "", ""};
    if (CreateProcessW(program.c_str(), strCommand.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr,
                       &startup, &process))
    {
        WaitForSingleObject(process.hProcess, INFINITE);
        GetExitCodeProcess(process.hProcess, &result.nStatus);
        CloseHandle(process.hProcess);
        CloseHandle(process.hThread);
    }
    for (HANDLE hFile : files)
        CloseHandle(hFile);
    result.strOut = ReadFile(names[0]);
    result.strErr = ReadFile(names[1]);
    for (const fs::path& name : names)
        fs::remove(name);
    return result;
}

class Installation
{
  public:
    Installation()
    {
        static int s_nCount = 0;
        root = fs::temp_directory_path() /
               ("zn" + std::to_string(GetCurrentProcessId()) + "." + std::to_string(s_nCount++));
        Remove();
        const std::string strRoot = root.string();
        WriteFile(work / "zns.ini",
                  "# kept\r\nInstallation:\r\n   Name=Inst1\r\n   Path=" + strRoot +
                      "\\inst\r\n   Identity=Inst1\r\n\r\nQueueManager:\r\n   Name=QM0\r\n   Prefix=" +
                      strRoot + "\\other\r\n   Directory=QM0\r\n   InstallationName=Inst1\r\n" +
                      "QueueManager:\r\n   Name=QM1\r\n   Prefix=" + strRoot +
                      "\\olddata\r\n   Directory=QM!1\r\n   InstallationName=Inst1\r\n");
        WriteFile(oldData / "qm.ini", "Log:\n   LogPath=" + strRoot + "\\oldlog\\QM!1\\\n# kept");
        for (const wchar_t* psz : {L"a", L"s\\b", L"s\\t\\c", L"s\\t\\u\\d"})
            WriteFile(oldData / psz, std::string("data ") + std::to_string(wcslen(psz)));
        for (const wchar_t* psz : {L"ctl", L"active\\log1", L"active\\x\\log2"})
            WriteFile(oldLog / psz, std::string(3000, 'l') + std::to_string(wcslen(psz)));
        SetFileAttributesW((oldData / L"s\\b").c_str(), FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN);
        WriteFile(root / "bystander" / "file", "not named by anything");
        data = TakeSnapshot(oldData);
        log = TakeSnapshot(oldLog);
        rest = Rest();
        strZnsIni = ReadFile(work / "zns.ini");
        SetEnvironmentVariableW(L"ZN_WORK_PATH", work.wstring().c_str());
    }
    ~Installation() { Remove(); }
    Installation(const Installation&) = delete;
    Installation& operator=(const Installation&) = delete;

    // Runs tarvel, without faults or as strFaults says (see faults/faults.cpp).
    RunResult Run(const std::wstring& strWords, const std::string& strFaults = "")
    {
        SetEnvironmentVariableA("ZN_FAULTS", strFaults.c_str());
        SetEnvironmentVariableW(L"ZN_FAULTS_REPORT", (root / "report").c_str());
        const RunResult result =
            RunProgram(strFaults.empty() ? L"tarvel.exe" : L"faults\\tarvel.exe", strWords, root);
        strReport = ReadFile(root / "report");
        fs::remove(root / "report");
        return result;
    }
    std::wstring MoveWords() const
    {
        return L"/m QM1 /dd " + (root / "newdata").wstring() + L" /ld " + (root / "newlog").wstring();
    }

    // Calls of a function of which the report of the last run tells; 0 if of none.
    long Calls(const std::string& strFunction) const
    {
        std::istringstream lines(strReport);
        std::string strName;
        for (long nCalls; lines >> strName >> nCalls;)
            if (strName == strFunction)
                return nCalls;
        return 0;
    }

    // What the trees and the configuration are now: for data and log, the old tree and the new one, each
    // whole (+), partly there (~) or missing (-); then the places that zns.ini and the qm.ini of the new tree
    // name.
    std::string State() const
    {
        return "data " + Tree(oldData, data) + Tree(newData, data) + " log " + Tree(oldLog, log) +
               Tree(newLog, log) + " zns " +
               (ReadFile(work / "zns.ini") == strZnsIni ? "old"
                : IsZnsNew()                            ? "new"
                                                        : "damaged") +
               " qm " + (IsQmNew() ? "new" : "old");
    }
    // Everything that no part of a move may touch is as it was.
    bool IsRestUntouched() const { return Rest() == rest; }

    fs::path root;
    // Names of paths below root; each is asked for anew, as root is set by the constructor.
    struct Below
    {
        const Installation& of;
        const wchar_t* psz;
        operator fs::path() const { return of.root / psz; }
        fs::path operator/(const fs::path& more) const { return of.root / psz / more; }
        std::wstring wstring() const { return fs::path(*this).wstring(); }
    };
    Below work{*this, L"work"}, oldData{*this, L"olddata\\qmgrs\\QM!1"}, oldLog{*this, L"oldlog\\QM!1"},
        newData{*this, L"newdata\\qmgrs\\QM!1"}, newLog{*this, L"newlog\\QM!1"};
    Snapshot data, log, rest;
    std::string strZnsIni, strReport;

  private:
    static std::string Replaced(std::string str, const std::string& strOld, const std::string& strNew)
    {
        if (const size_t n = str.find(strOld); n != std::string::npos)
            str.replace(n, strOld.size(), strNew);
        return str;
    }
    bool IsZnsNew() const
    {
        return ReadFile(work / "zns.ini") == Replaced(strZnsIni, "\\olddata\r", "\\newdata\r");
    }
    bool IsQmNew() const
    {
        return ReadFile(newData / "qm.ini") ==
               Replaced(data.at(L"qm.ini"), "\\oldlog\\QM!1\\", "\\newlog\\QM!1\\");
    }
    std::string Tree(const fs::path& path, const Snapshot& whole) const
    {
        if (!fs::exists(path))
            return "-";
        Snapshot now = TakeSnapshot(path);
        if (now.contains(L"qm.ini") && path == fs::path(newData) && IsQmNew())
            now[L"qm.ini"] = whole.at(L"qm.ini");
        return now == whole ? "+" : "~";
    }
    Snapshot Rest() const
    {
        Snapshot all = TakeSnapshot(root);
        std::erase_if(all, [](const auto& entry) {
            for (const wchar_t* psz : {L"olddata\\qmgrs\\QM!1", L"oldlog\\QM!1", L"newdata", L"newlog",
                                       L"work\\zns.ini", L"work\\trace", L"work\\errors", L"report"})
                if (entry.first.starts_with(psz))
                    return true;
            return false;
        });
        return all;
    }
    void Remove()
    {
        std::error_code ignored;
        for (const auto& entry : fs::recursive_directory_iterator(root, ignored))
            SetFileAttributesW(entry.path().c_str(), FILE_ATTRIBUTE_NORMAL);
        fs::remove_all(root, ignored);
    }
};
