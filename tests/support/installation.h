// A sample installation of the product with QM1, which does not run, in a directory of its own,
// for whole runs of the shipped tarvel.exe.
#pragma once

#include <algorithm>
#include <functional>
#include <map>
#include <sstream>
#include <thread>

#include "owner.h"
#include "tempdir.h"

struct RunResult
{
    DWORD nStatus = 0;
    std::string strOut, strErr;
};

// As a word of a command line, which may have a backslash at its end.
inline std::wstring Quoted(const fs::path& path)
{
    std::wstring str = L"\"" + path.wstring() + L"\"";
    for (size_t n = str.size() - 1; str[n - 1] == L'\\'; --n)
        std::swap(str[n - 1], str[n]);
    return str;
}

inline fs::path ProgramFolder()
{
    wchar_t szPath[MAX_PATH];
    GetModuleFileNameW(nullptr, szPath, MAX_PATH);
    return fs::path(szPath).parent_path();
}

// Starts a program. It inherits handles only if the start-up information has some.
inline KernelHandle StartProgram(const fs::path& program, const std::wstring& strWords,
                                 const fs::path& currentDir, STARTUPINFOW startup = {})
{
    startup.cb = sizeof startup;
    std::wstring strCommand = program.stem().wstring() + L" " + strWords;
    PROCESS_INFORMATION process = {};
    // Once in some thousand times Wine gives up a process before anything of it has run.
    for (int nTry = 0; nTry < 2 && process.hProcess == nullptr; ++nTry)
        CreateProcessW(program.c_str(), strCommand.data(), nullptr, nullptr, startup.dwFlags != 0, 0, nullptr,
                       currentDir.c_str(), &startup, &process);
    const KernelHandle thread(process.hThread);
    return KernelHandle(process.hProcess);
}

// Runs a program to its end, in the scratch directory, and takes what it writes. A program that went astray
// would find nothing but its Wine prefix or system drive there. atPause is called while the program waits
// (see runs/faults/faults.cpp).
inline RunResult RunProgram(const fs::path& program, const std::wstring& strWords, const fs::path& scratch,
                            const std::function<void()>& atPause = nullptr)
{
    constexpr DWORD PIPE_SIZE = 1 << 20; // of all that the program may write
    SECURITY_ATTRIBUTES inherit = {sizeof inherit, nullptr, TRUE};
    const FileHandle input(CreateFileW(L"NUL", GENERIC_READ, 0, &inherit, OPEN_EXISTING, 0, nullptr));
    KernelHandle read[2], write[2];
    for (int i : {0, 1})
        CreatePipe(read[i].Out(), write[i].Out(), &inherit, PIPE_SIZE);
    const KernelHandle reached(CreateEventW(&inherit, FALSE, FALSE, nullptr)),
        go(CreateEventW(&inherit, FALSE, FALSE, nullptr));
    const auto number = [](HANDLE h) { return std::to_string(reinterpret_cast<uintptr_t>(h)); };
    SetEnvironmentVariableA("ZN_FAULTS_PAUSE", (number(reached.Get()) + " " + number(go.Get())).c_str());
    STARTUPINFOW startup = {};
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdInput = input.Get(); // without one xcopy copies nothing
    startup.hStdOutput = write[0].Get();
    startup.hStdError = write[1].Get();
    const KernelHandle process = StartProgram(program, strWords, scratch, startup);
    const HANDLE ah[] = {reached.Get(), process.Get()};
    RunResult result{0xDEAD, "", ""};
    if (atPause && WaitForMultipleObjects(2, ah, FALSE, INFINITE) == WAIT_OBJECT_0)
    {
        atPause();
        SetEvent(go.Get());
    }
    else if (atPause)
        result.strErr = "ended before the pause";
    WaitForSingleObject(process.Get(), INFINITE);
    GetExitCodeProcess(process.Get(), &result.nStatus);
    // The pipes are not read to their end: something of the program's console may live on and hold them.
    for (int i : {0, 1})
    {
        std::string strWritten(PIPE_SIZE, '\0');
        DWORD nLength = 0;
        WriteFile(write[i].Get(), "", 1, &nLength, nullptr); // a read of nothing would wait
        ReadFile(read[i].Get(), strWritten.data(), PIPE_SIZE, &nLength, nullptr);
        (i == 0 ? result.strOut : result.strErr) += strWritten.substr(0, nLength - 1);
    }
    return result;
}

// A file that somebody has open, and shares with others as nShare says.
inline FileHandle Hold(const fs::path& path, DWORD nShare = 0)
{
    return FileHandle(CreateFileW(path.c_str(), GENERIC_READ, nShare, nullptr, OPEN_EXISTING, 0, nullptr));
}

class Installation : public TempDir
{
  public:
    Installation()
    {
        const std::string strRoot = root.string();
        strZnsIni = "# kept\r\nInstallation:\r\n   Name=Inst1\r\n   Path=" + strRoot +
                    "\\inst\r\n   Identity=" + root.filename().string() +
                    "\r\n\r\nQueueManager:\r\n   Name=QM0\r\n   Prefix=" + strRoot +
                    "\\other\r\n   Directory=QM0\r\n   InstallationName=Inst1\r\nQueueManager:\r\n   "
                    "Name=QM1\r\n   Prefix=" +
                    strRoot + "\\olddata\r\n   Directory=QM!1\r\n   InstallationName=Inst1\r\n";
        WriteAll(work / "zns.ini", strZnsIni);
        WriteAll(oldData / "qm.ini", "Log:\n   LogPath=" + strRoot + "\\oldlog\\QM!1\\\n# kept");
        for (const char* psz : {"a", "s\\t\\c", "s\\t\\u\\d"})
            WriteAll(oldData / psz, std::string("data ") + psz);
        WriteAll(oldData / "s\\b", "data", FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN);
        for (const char* psz : {"ctl", "active\\log1", "active\\x\\log2"})
            WriteAll(oldLog / psz, std::string(3000, 'l') + psz);
        WriteAll(root / "bystander\\file", "not named by anything");
        Remember();
        rest = Rest();
        SetEnvironmentVariableW(L"ZN_WORK_PATH", work.c_str());
    }

    // Does what a script says: "verb path [path or text]", several things with ';' between them. Paths begin
    // with OD, OL, ND, NL (the old and new data and log directories), W (the work path) or R (the root).
    void Do(const std::string& strScript)
    {
        std::istringstream steps(strScript);
        for (std::string strStep, strVerb, strPath, strOther; std::getline(steps, strStep, ';');
             strPath.clear(), strOther.clear())
        {
            std::istringstream step(strStep);
            std::getline(step >> strVerb >> strPath >> std::ws, strOther, '\0');
            const fs::path path = At(strPath);
            if (path.is_absolute())
                fs::create_directories(path.parent_path());
            verbs.at(strVerb)(path, At(strOther));
        }
    }
    std::string At(const std::string& str) const
    {
        const std::map<std::string, fs::path> places = {{"OD", oldData}, {"OL", oldLog}, {"ND", newData},
                                                        {"NL", newLog},  {"W", work},    {"R", root}};
        const size_t nPlace = std::min(str.find('\\'), str.size());
        const auto place = places.find(str.substr(0, nPlace));
        return place != places.end() ? place->second.string() + str.substr(nPlace) : str;
    }

    // Takes what the old trees hold now for what must not get lost.
    void Remember()
    {
        data = TakeSnapshot(oldData);
        log = TakeSnapshot(oldLog);
    }

    // Runs a program, without faults or as strFaults says (see runs/faults/faults.cpp); atPause where those
    // let it wait.
    RunResult Run(const std::wstring& strWords, const std::string& strFaults = "",
                  const std::function<void()>& atPause = nullptr, const fs::path& program = "tarvel.exe")
    {
        SetEnvironmentVariableA("ZN_FAULTS", strFaults.c_str());
        SetEnvironmentVariableW(L"ZN_FAULTS_REPORT", (root / "report").c_str());
        const RunResult result = RunProgram(ProgramFolder() / (strFaults.empty() ? "." : "faults") / program,
                                            strWords, root, atPause);
        strReport = ReadAll(root / "report");
        fs::remove(root / "report");
        return result;
    }
    // Likewise, with the trace of the run in strTrace, and with what is done at the pause as a script.
    RunResult Traced(const std::wstring& strWords, const std::string& strFaults = "",
                     const std::string& strAtPause = "")
    {
        std::function<void()> atPause = [&] { Do(strAtPause); };
        if (strAtPause.empty())
            atPause = nullptr;
        SetEnvironmentVariableW(L"ZN_TRACE", L"detail");
        const RunResult result = Run(strWords, strFaults, atPause);
        SetEnvironmentVariableW(L"ZN_TRACE", nullptr);
        strTrace.clear();
        for (const auto& [strName, strContent] : TakeSnapshot(work / "trace"))
            strTrace += strContent;
        return result;
    }
    std::wstring MoveWords(const std::wstring& strName = L"QM1", const fs::path& newPrefix = "newdata",
                           const fs::path& newLogs = "newlog") const
    {
        return L"/m " + strName + L" /dd " + Quoted(root / newPrefix) + L" /ld " + Quoted(root / newLogs);
    }

    // Calls of a function, or of all ("*"), in the last run with faults, as far as it was counted.
    long Calls(const std::string& strFunction) const
    {
        const size_t nLine = strReport.find("\n" + strFunction + " ");
        return nLine == std::string::npos ? 0 : std::stol(strReport.substr(nLine + strFunction.size() + 2));
    }

    // What the trees and the configuration are now: for data and log, the old tree and the new one, each the
    // same (+), different (~) or gone (-); then whether zns.ini names the old place, the new one or has other
    // text, and whether the new tree's qm.ini names the new place.
    std::string State() const
    {
        const std::string strZns = ReadAll(work / "zns.ini");
        const char* const pszZns = strZns == strZnsIni                                           ? "old"
                                   : strZns == Replaced(strZnsIni, "\\olddata\r", "\\newdata\r") ? "new"
                                                                                                 : "damaged";
        return "data " + Tree(oldData, data) + Tree(newData, data) + " log " + Tree(oldLog, log) +
               Tree(newLog, log) + " zns " + pszZns + " qm " + (IsQmNew() ? "new" : "old");
    }
    // Whether a tree has everything of a snapshot, read through links; the new qm.ini may name the new log.
    bool IsWhole(const fs::path& tree, const Snapshot& whole) const
    {
        return std::ranges::all_of(whole, [&](const auto& entry) {
            const fs::path path = tree / entry.first;
            return entry.second == "<dir>" || entry.second == "<link>"
                       ? fs::is_directory(path)
                       : fs::exists(path) &&
                             (ReadAll(path) == entry.second || (path == newData / "qm.ini" && IsQmNew()));
        });
    }
    // Everything that no part of a move may touch is as it was.
    bool IsRestUntouched() const { return Rest() == rest; }

    const fs::path work = root / "work", oldData = root / "olddata\\qmgrs\\QM!1",
                   oldLog = root / "oldlog\\QM!1", newData = root / "newdata\\qmgrs\\QM!1",
                   newLog = root / "newlog\\QM!1";
    Snapshot data, log, rest;
    std::string strZnsIni, strReport, strTrace;
    FileHandle held;
    std::error_code missing; // what is done to what is not there is not done
    using Verb = std::function<void(const fs::path&, const std::string&)>;
    std::map<std::string, Verb> verbs = {
        {"write", [](auto path, auto str) { WriteAll(path, str); }},
        {"append", [](auto path, auto str) { std::ofstream(path, std::ios::app) << str; }},
        {"flip", // another content of that length
         [](auto path, auto) {
             fs::exists(path) ? WriteAll(path, ReadAll(path).replace(0, 1, "?")) : void();
         }},
        {"zeros", [](auto path, auto) { WriteAll(path, std::string(fs::file_size(path), '\0')); }},
        {"touch", [](auto path, auto) { WriteAll(path, ReadAll(path)); }},
        {"cut", [this](auto path, auto) { fs::resize_file(path, 1, missing); }},
        {"remove", [this](auto path, auto) { fs::remove_all(path, missing); }},
        {"move", [this](auto path, auto from) { fs::rename(from, path, missing); }},
        {"copy", [](auto path, auto from) { fs::copy(from, path, fs::copy_options::recursive); }},
        {"hard", [](auto path, auto target) { fs::create_hard_link(target, path); }},
        {"link", // to what is made if it is missing
         [](auto path, auto target) {
             fs::exists(target) || fs::create_directories(target);
             MakeLink(path, target);
         }},
        {"swap", // for a link
         [this](auto path, auto target) {
             if (!fs::exists(target))
                 return;
             fs::rename(path, path.string() + ".aside", missing);
             MakeLink(path, target);
         }},
        {"hold", [this](auto path, auto) { held = Hold(path); }},
        {"busy", // held for a moment
         [](auto path, auto strShare) {
             static std::jthread s_release;
             s_release = std::jthread([busy = Hold(path, std::stoul("0" + strShare))] { Sleep(300); });
         }},
        {"protect", [](auto path, auto) { SetFileAttributesW(path.c_str(), FILE_ATTRIBUTE_READONLY); }},
        {"round", // the times of files to whole seconds
         [](auto path, auto) {
             for (const char* psz : {"a", "s\\t\\c", "s\\t\\u\\d"})
                 fs::last_write_time(
                     path / psz, std::chrono::floor<std::chrono::seconds>(fs::last_write_time(path / psz)));
         }},
        {"configured", // replaces the last occurrence of these words in zns.ini
         [this](auto words, auto str) {
             strZnsIni.replace(strZnsIni.rfind(words.string()), words.string().size(), str);
             WriteAll(work / "zns.ini", strZnsIni);
         }},
        {"manager", // another queue manager with that directory name and prefix
         [this](auto name, auto strPrefix) {
             strZnsIni += "QueueManager:\n Name=QM2\n Prefix=" + strPrefix + "\n Directory=" + name.string() +
                          "\n InstallationName=Inst1\n";
             WriteAll(work / "zns.ini", strZnsIni);
         }},
        {"file", [](auto path, auto strLength) { std::ofstream{Long(path, strLength)}; }},
        {"directory", // the runtime's own refuse such a path
         [](auto path, auto strLength) { CreateDirectoryW(Long(path, strLength).c_str(), nullptr); }}};

  private:
    // A path of that length.
    static fs::path Long(const fs::path& dir, const std::string& strLength)
    {
        const size_t nName = std::stoul(strLength) - dir.string().size() - 1;
        return L"\\\\?\\" + (dir / std::string(nName, 'n')).wstring();
    }
    static std::string Replaced(std::string str, const std::string& strOld, const std::string& strNew)
    {
        return str.replace(std::min(str.find(strOld), str.size()), strOld.size(), strNew);
    }
    bool IsQmNew() const
    {
        return ReadAll(newData / "qm.ini") ==
               Replaced(data.at(L"qm.ini"), "\\oldlog\\QM!1\\", "\\newlog\\QM!1\\");
    }
    std::string Tree(const fs::path& path, const Snapshot& whole) const
    {
        if (!fs::exists(path))
            return "-";
        Snapshot now = TakeSnapshot(path);
        if (path == newData && IsQmNew())
            now[L"qm.ini"] = whole.at(L"qm.ini");
        return now == whole ? "+" : "~";
    }
    Snapshot Rest() const
    {
        Snapshot all = TakeSnapshot(root);
        std::erase_if(all, [](const auto& entry) {
            for (const wchar_t* psz : {L"olddata\\qmgrs\\QM!1", L"oldlog\\QM!1", L"newdata", L"newlog",
                                       L"work\\zns.ini", L"work\\trace", L"work\\errors"})
                if (entry.first.starts_with(psz))
                    return true;
            return false;
        });
        return all;
    }
};
