// A sample installation of the product with one queue manager that does not run, in a directory of its own,
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

// A queue manager that runs and refuses to end. It is killed with the object: it would outlive the test, and
// hold what ctest waits for.
class RefusingQueueManager
{
  public:
    explicit RefusingQueueManager(const std::wstring& strName)
    {
        const std::wstring strReady = L"Local\\ZN.Test." + std::to_wstring(GetCurrentProcessId());
        const KernelHandle ready(CreateEventW(nullptr, TRUE, FALSE, strReady.c_str()));
        m_process = StartProgram(ProgramFolder() / "sampleqm.exe",
                                 L"run " + strName + L" /refuse /ready " + strReady, ProgramFolder());
        const HANDLE ah[] = {ready.Get(), m_process.Get()};
        fRuns = WaitForMultipleObjects(2, ah, FALSE, INFINITE) == WAIT_OBJECT_0;
    }
    ~RefusingQueueManager()
    {
        TerminateProcess(m_process.Get(), 9);
        WaitForSingleObject(m_process.Get(), INFINITE);
    }
    bool fRuns = false;

  private:
    KernelHandle m_process;
};

// A file that somebody has open, and shares with others as nShare says.
inline FileHandle Hold(const fs::path& path, DWORD nShare = 0)
{
    return FileHandle(CreateFileW(path.c_str(), GENERIC_READ, nShare, nullptr, OPEN_EXISTING, 0, nullptr));
}

// What somebody does to an installation, in this order; nothing where there is no path. Paths below the root.
struct Change
{
    const char* pszRemove = ""; // a file or a tree
    const char *pszWrite = "", *pszText = "x";
    DWORD nAttributes = FILE_ATTRIBUTE_NORMAL;
    const char *pszLink = "", *pszTarget = "";      // a directory, made if it is missing
    const char *pszInZnsIni = "", *pszInstead = ""; // its text
};

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

    void Apply(const Change& change) const
    {
        if (*change.pszRemove != '\0')
            fs::remove_all(root / change.pszRemove);
        if (*change.pszWrite != '\0')
            WriteAll(root / change.pszWrite, change.pszText, change.nAttributes);
        if (*change.pszLink != '\0')
        {
            fs::create_directories(root / change.pszTarget);
            MakeLink(root / change.pszLink, root / change.pszTarget);
        }
        if (*change.pszInZnsIni != '\0')
            WriteAll(work / "zns.ini",
                     Replaced(ReadAll(work / "zns.ini"), change.pszInZnsIni, change.pszInstead));
    }

    // Does what somebody does: "verb path [path or text]", several things with ';' between them. Paths begin
    // with OD, OL, ND, NL (the old and new data and log directories), W (the work path) or R (the root). Does
    // nothing where something is missing. Returns the file that is held.
    FileHandle Do(const std::string& strScript)
    {
        const std::map<std::string, fs::path> places = {{"OD", oldData}, {"OL", oldLog}, {"ND", newData},
                                                        {"NL", newLog},  {"W", work},    {"R", root}};
        const auto at = [&](const std::string& str) {
            const size_t nPlace = std::min(str.find('\\'), str.size());
            const auto place = places.find(str.substr(0, nPlace));
            return place != places.end() ? place->second.string() + str.substr(nPlace) : str;
        };
        FileHandle held;
        std::error_code missing;
        std::istringstream steps(strScript);
        for (std::string strStep, strVerb, strPath, strOther; std::getline(steps, strStep, ';');
             strOther.clear())
        {
            std::istringstream words(strStep);
            std::getline(words >> strVerb >> strPath >> std::ws, strOther, '\0');
            const fs::path path = at(strPath), other = at(strOther);
            if (path.has_parent_path())
                fs::create_directories(path.parent_path());
            if (strVerb == "write")
                WriteAll(path, strOther);
            else if (strVerb == "append")
                std::ofstream(path, std::ios::app) << strOther;
            else if (strVerb == "flip" && fs::exists(path)) // another content of that length
                WriteAll(path, ReadAll(path).replace(0, 1, "?"));
            else if (strVerb == "touch")
                WriteAll(path, ReadAll(path));
            else if (strVerb == "zero") // as a machine that failed leaves it
                WriteAll(path, ReadAll(path).substr(0, 9) + std::string(20, '\0'));
            else if (strVerb == "cut")
                fs::resize_file(path, 1, missing);
            else if (strVerb == "remove")
                fs::remove_all(path, missing);
            else if (strVerb == "copy")
                fs::copy(path, other, fs::copy_options::recursive, missing);
            else if (strVerb == "move")
                fs::rename(path, other, missing);
            else if (strVerb == "hard")
                fs::create_hard_link(other, path);
            else if (strVerb == "hold")
                held = Hold(path);
            else if (strVerb == "busy") // for a moment
            {
                static std::jthread s_release;
                s_release = std::jthread([busy = Hold(path, std::stoul("0" + strOther))] { Sleep(300); });
            }
            else if (strVerb == "protect")
                SetFileAttributesW(path.c_str(), FILE_ATTRIBUTE_READONLY);
            else if (strVerb == "round") // the times of its files to whole seconds
                for (const char* psz : {"a", "s\\t\\c", "s\\t\\u\\d"})
                    fs::last_write_time(path / psz, std::chrono::floor<std::chrono::seconds>(
                                                        fs::last_write_time(path / psz)));
            else if (strVerb == "edit") // the last place in zns.ini with these words
                WriteAll(work / "zns.ini",
                         strZnsIni.replace(strZnsIni.rfind(strPath), strPath.size(), strOther));
            else if (strVerb == "manager") // another one of that directory name
                WriteAll(work / "zns.ini",
                         strZnsIni += "QueueManager:\n Name=QM2\n Prefix=" + other.string() +
                                      "\n Directory=" + strPath + "\n InstallationName=Inst1\n");
            else if (strVerb == "file" || strVerb == "directory") // with a path of that length
            {
                const size_t nLength = std::stoul(strOther) - path.string().size() - 1;
                const std::wstring strLong = L"\\\\?\\" + (path / std::string(nLength, 'n')).wstring();
                if (strVerb == "file")
                    std::ofstream{fs::path(strLong)};
                else
                    CreateDirectoryW(strLong.c_str(), nullptr); // the runtime's own refuse the prefix
            }
            else if (strVerb == "link") // to what is made if it is missing
            {
                if (!fs::exists(other))
                    fs::create_directories(other);
                MakeLink(path, other);
            }
            else if (strVerb == "swap" && fs::exists(other)) // for a link
            {
                fs::rename(path, path.string() + ".aside", missing);
                MakeLink(path, other);
            }
        }
        return held;
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

    // What the trees and the configuration are now: for data and log, the old tree and the new one, each
    // whole (+), partly there (~) or missing (-); then the places that zns.ini and the qm.ini of the new tree
    // name.
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

  private:
    static std::string Replaced(std::string str, const std::string& strOld, const std::string& strNew)
    {
        return str.replace(str.find(strOld), strOld.size(), strNew);
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
