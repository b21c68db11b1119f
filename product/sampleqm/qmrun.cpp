// The running queue manager: holds its kernel objects, writes to its files, ends when asked. Must not start
// with a file missing or damaged, and must survive being killed at any point.
#include "qmrun.h"

#include "access.h"
#include "text.h"

namespace
{
constexpr DWORD WRITE_INTERVAL_MS = 1000;
constexpr DWORD ACQUIRE_TIMEOUT_MS = 2000; // somebody may just be testing whether it runs
constexpr DWORD START_TIMEOUT_MS = 120'000;

RunResult Refuse(RunResult eResult, const std::wstring& strText)
{
    PrintLine(stderr, strText);
    return eResult;
}

bool SignalReady(const std::wstring& strEvent)
{
    if (strEvent.empty())
        return true;
    const KernelHandle ready(OpenEventW(EVENT_MODIFY_STATE, FALSE, strEvent.c_str()));
    return ready && SetEvent(ready.Get());
}
} // namespace

RunResult Run(const QueueManager& queueManager, const QueueManagerFiles& files, const RunOptions& options)
{
    const RunObjectNames& names = queueManager.runObjects;
    const std::wstring strWho = L"Queue manager '" + queueManager.strName + L"' ";
    SharedObjectSecurity security;
    // The events are there before the mutex is owned: whoever finds it running can ask it to end.
    const KernelHandle end(CreateEventW(security.Get(), FALSE, FALSE, names.strEnd.c_str()));
    const KernelHandle refused(end ? CreateEventW(security.Get(), FALSE, FALSE, names.strRefused.c_str())
                                   : nullptr);
    const DWORD nError = GetLastError();
    if (!refused)
        return Refuse(RUN_SYSTEM, strWho + L"cannot create its events: " + ErrorText(nError) +
                                      L"\nRun it as the user who ran it before, or elevated.");
    const KernelHandle running(CreateMutexW(security.Get(), FALSE, names.strRunning.c_str()));
    const HeldMutex held = AcquireMutex(running, ACQUIRE_TIMEOUT_MS);
    if (!held)
        return Refuse(RUN_ALREADY_RUNNING, strWho + L"runs already.");
    ResetEvent(end.Get()); // a request that an earlier run did not live to see

    const Verdict verdict =
        VerifyFiles(files, [](const std::wstring& strLine) { PrintLine(stderr, strLine); });
    if (verdict.nDamaged > 0)
        return Refuse(RUN_FILES_DAMAGED,
                      strWho + L"does not start: files missing or damaged, to be restored from a backup: " +
                          std::to_wstring(verdict.nDamaged));
    RecordAppender activity(files.ActivityPath());
    RecordAppender journal(files.JournalPath());
    auto record = [&](const char* pszText) {
        const std::string strText = UtcNow() + " " + pszText;
        return activity.Append(strText) && journal.Append(strText);
    };
    if (!activity || !journal || !record("started") || !SignalReady(options.strReadyEvent))
        return Refuse(RUN_SYSTEM, strWho + L"cannot write to " + files.ActivityPath() + L" and " +
                                      files.JournalPath() +
                                      L": give this user the right to, and close what has them open.");

    for (;;)
    {
        const DWORD nWait = WaitForSingleObject(end.Get(), WRITE_INTERVAL_MS);
        const bool fAsked = nWait == WAIT_OBJECT_0;
        if (nWait != WAIT_TIMEOUT && !fAsked)
            return Refuse(RUN_SYSTEM, strWho + L"can no longer be asked to end.");
        if (fAsked && options.fRefuse)
            SetEvent(refused.Get()); // if it fails the end command's time runs out
        const char* const pszText = !fAsked ? "active" : options.fRefuse ? "refused to end" : "ended";
        if (!record(pszText))
            return Refuse(RUN_SYSTEM, strWho + L"can no longer write to its files.");
        if (fAsked && !options.fRefuse)
            return RUN_ENDED;
    }
}

bool StartDetached(const QueueManager& queueManager, bool fRefuse)
{
    const std::wstring strEvent = L"Local\\ZN.Ready." + std::to_wstring(GetCurrentProcessId());
    const KernelHandle ready(CreateEventW(nullptr, TRUE, FALSE, strEvent.c_str()));

    std::wstring strProgram(32'768, L'\0');
    strProgram.resize(GetModuleFileNameW(nullptr, strProgram.data(), static_cast<DWORD>(strProgram.size())));
    // A queue manager's name has no character that would need quoting.
    std::wstring strCommandLine =
        L"\"" + strProgram + L"\" run " + queueManager.strName + L" /ready " + strEvent;
    if (fRefuse)
        strCommandLine += L" /refuse";
    const std::wstring strDirectory = strProgram.substr(0, strProgram.find_last_of(L'\\') + 1);
    STARTUPINFOW startup = {};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION information = {};
    if (!ready || !CreateProcessW(strProgram.c_str(), strCommandLine.data(), nullptr, nullptr, FALSE,
                                  DETACHED_PROCESS | CREATE_NEW_PROCESS_GROUP, nullptr, strDirectory.c_str(),
                                  &startup, &information))
        return false;
    const KernelHandle process(information.hProcess);
    const KernelHandle thread(information.hThread);
    const HANDLE aHandles[] = {ready.Get(), process.Get()};
    return WaitForMultipleObjects(ARRAYSIZE(aHandles), aHandles, FALSE, START_TIMEOUT_MS) == WAIT_OBJECT_0;
}
