// A sample installation of the product with one queue manager that does not run, in a directory of its own,
// for whole runs of the shipped tarvel.exe.
#pragma once

#include <functional>
#include <sstream>

#include "tempdir.h"

struct RunResult
{
    DWORD nStatus = 0;
    std::string strOut, strErr;
};

inline fs::path ProgramFolder()
{
    wchar_t szPath[MAX_PATH];
    GetModuleFileNameW(nullptr, szPath, MAX_PATH);
    return fs::path(szPath).parent_path();
}

// Where a run with the fault "w" waits, and for what: events that the program inherits the names of.
class Pause
{
  public:
    Pause()
    {
        const std::wstring strName = L"Local\\ZN.Pause." + std::to_wstring(GetCurrentProcessId());
        m_hReached = CreateEventW(nullptr, FALSE, FALSE, (strName + L".Reached").c_str());
        m_hGo = CreateEventW(nullptr, FALSE, FALSE, (strName + L".Go").c_str());
        SetEnvironmentVariableW(L"ZN_FAULTS_PAUSE", strName.c_str());
    }
    ~Pause()
    {
        CloseHandle(m_hReached);
        CloseHandle(m_hGo);
    }
    Pause(const Pause&) = delete;
    Pause& operator=(const Pause&) = delete;

    // Runs body if the process comes to where it waits, and lets it go on.
    bool Await(HANDLE hProcess, const std::function<void()>& body) const
    {
        const HANDLE ah[] = {m_hReached, hProcess};
        if (WaitForMultipleObjects(2, ah, FALSE, INFINITE) != WAIT_OBJECT_0)
            return false;
        body();
        return SetEvent(m_hGo);
    }

  private:
    HANDLE m_hReached, m_hGo;
};

// Runs a program to its end, in the scratch directory, and takes what it writes. A program that went astray
// would find nothing but its Wine prefix or system drive there. What it wrote is taken from pipes: something
// of its console may live on for a moment and hold them.
inline RunResult RunProgram(const fs::path& program, const std::wstring& strWords, const fs::path& scratch,
                            const std::function<void()>& atPause = nullptr)
{
    constexpr DWORD PIPE_SIZE = 1 << 20; // all that it may write
    const Pause pause;
    SECURITY_ATTRIBUTES inherit = {sizeof inherit, nullptr, TRUE};
    HANDLE ahRead[2] = {}, ahWrite[2] = {};
    for (int i : {0, 1})
    {
        CreatePipe(&ahRead[i], &ahWrite[i], &inherit, PIPE_SIZE);
        SetHandleInformation(ahRead[i], HANDLE_FLAG_INHERIT, 0);
    }
    STARTUPINFOW startup = {};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdOutput = ahWrite[0];
    startup.hStdError = ahWrite[1];
    PROCESS_INFORMATION process = {};
    std::wstring strCommand = program.stem().wstring() + L" " + strWords;
    RunResult result{0xDEAD, "", ""};
    const auto start = [&] {
        return CreateProcessW(program.c_str(), strCommand.data(), nullptr, nullptr, TRUE, 0, nullptr,
                              scratch.c_str(), &startup, &process);
    };
    // Once in some thousand times Wine gives up a process before anything of it has run.
    if (start() || (GetLastError() == ERROR_INTERNAL_ERROR && start()))
    {
        if (atPause && !pause.Await(process.hProcess, atPause))
            result.strErr = "ended before the pause";
        WaitForSingleObject(process.hProcess, INFINITE);
        GetExitCodeProcess(process.hProcess, &result.nStatus);
        CloseHandle(process.hProcess);
        CloseHandle(process.hThread);
    }
    else
        result.nStatus += GetLastError() << 16;
    std::string* const astr[] = {&result.strOut, &result.strErr};
    for (int i : {0, 1})
    {
        DWORD nLength = 0;
        PeekNamedPipe(ahRead[i], nullptr, 0, nullptr, &nLength, nullptr);
        std::string strWritten(nLength, '\0');
        if (nLength > 0)
            ReadFile(ahRead[i], strWritten.data(), nLength, &nLength, nullptr);
        *astr[i] += strWritten;
        CloseHandle(ahRead[i]);
        CloseHandle(ahWrite[i]);
    }
    return result;
}

// A queue manager that runs and refuses to end. It is killed with the object at the latest: it would outlive
// the test, and hold what ctest waits for.
class RefusingQueueManager
{
  public:
    explicit RefusingQueueManager(const std::wstring& strName)
    {
        const std::wstring strReady = L"Local\\ZN.Test." + std::to_wstring(GetCurrentProcessId());
        std::wstring strRun = L"sampleqm run " + strName + L" /refuse /ready " + strReady;
        const HANDLE hReady = CreateEventW(nullptr, TRUE, FALSE, strReady.c_str());
        STARTUPINFOW startup = {};
        PROCESS_INFORMATION info = {};
        CreateProcessW((ProgramFolder() / "sampleqm.exe").c_str(), strRun.data(), nullptr, nullptr, FALSE, 0,
                       nullptr, nullptr, &startup, &info);
        hProcess = info.hProcess;
        const HANDLE ah[] = {hReady, hProcess};
        fRuns = WaitForMultipleObjects(2, ah, FALSE, INFINITE) == WAIT_OBJECT_0;
        for (const HANDLE h : {hReady, info.hThread})
            CloseHandle(h);
    }
    ~RefusingQueueManager()
    {
        Kill();
        CloseHandle(hProcess);
    }
    void Kill()
    {
        TerminateProcess(hProcess, 9);
        WaitForSingleObject(hProcess, INFINITE);
    }
    bool fRuns = false;

  private:
    HANDLE hProcess = nullptr;
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
        data = TakeSnapshot(oldData);
        log = TakeSnapshot(oldLog);
        rest = Rest();
        SetEnvironmentVariableW(L"ZN_WORK_PATH", work.c_str());
    }

    // Runs tarvel, without faults or as strFaults says (see runs/faults/faults.cpp); atPause where those let
    // it wait.
    RunResult Run(const std::wstring& strWords, const std::string& strFaults = "",
                  const std::function<void()>& atPause = nullptr)
    {
        SetEnvironmentVariableA("ZN_FAULTS", strFaults.c_str());
        SetEnvironmentVariableW(L"ZN_FAULTS_REPORT", (root / "report").c_str());
        const RunResult result =
            RunProgram(ProgramFolder() / (strFaults.empty() ? "tarvel.exe" : "faults\\tarvel.exe"), strWords,
                       root, atPause);
        strReport = ReadAll(root / "report");
        fs::remove(root / "report");
        return result;
    }
    // Likewise, with the trace of the run in strTrace.
    RunResult Traced(const std::wstring& strWords, const std::string& strFaults = "",
                     const std::function<void()>& atPause = nullptr)
    {
        SetEnvironmentVariableW(L"ZN_TRACE", L"detail");
        const RunResult result = Run(strWords, strFaults, atPause);
        SetEnvironmentVariableW(L"ZN_TRACE", nullptr);
        strTrace.clear();
        wchar_t szWork[MAX_PATH];
        GetEnvironmentVariableW(L"ZN_WORK_PATH", szWork, MAX_PATH);
        for (const auto& [strName, strContent] : TakeSnapshot(fs::path(szWork) / "trace"))
            strTrace += strContent;
        return result;
    }
    std::wstring MoveWords(const std::wstring& strName = L"QM1", const fs::path& newPrefix = "newdata",
                           const fs::path& newLogs = "newlog") const
    {
        return L"/m " + strName + L" /dd " + (root / newPrefix).wstring() + L" /ld " +
               (root / newLogs).wstring();
    }

    // Calls of a function of which the report of the last run tells, and which of all calls was the first of
    // them; 0 if there was none.
    long Calls(const std::string& strFunction) const { return Reported(strFunction).first; }
    long FirstCall(const std::string& strFunction) const { return Reported(strFunction).second; }

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
    // Everything that no part of a move may touch is as it was.
    bool IsRestUntouched() const { return Rest() == rest; }

    const fs::path work = root / "work", oldData = root / "olddata\\qmgrs\\QM!1",
                   oldLog = root / "oldlog\\QM!1", newData = root / "newdata\\qmgrs\\QM!1",
                   newLog = root / "newlog\\QM!1";
    Snapshot data, log, rest;
    std::string strZnsIni, strReport, strTrace;

  private:
    std::pair<long, long> Reported(const std::string& strFunction) const
    {
        std::istringstream lines(strReport);
        std::string strName;
        for (long nCalls, nFirst; lines >> strName >> nCalls >> nFirst;)
            if (strName == strFunction)
                return {nCalls, nFirst};
        return {};
    }
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
