// The end command: asks a running queue manager to end and waits until it has ended. Must not end it by
// force.
#include <windows.h>

#include <string>

#include "owner.h"
#include "qmclient.h"
#include "text.h"
#include "tovxcs2.h"
#include "tovxzu.h"

namespace
{
enum ExitCode : int
{
    EXIT_ENDED = 0,
    EXIT_USAGE = 1,
    EXIT_NOT_FOUND = 2,
    EXIT_NOT_RUNNING = 3,
    EXIT_REFUSED = 4,
    EXIT_TIMED_OUT = 5,
    EXIT_SYSTEM = 6,
    EXIT_NOT_AUTHORIZED = 71,
    EXIT_NO_VOLUME_SECURITY = 119,
};

constexpr DWORD TIMEOUT_MS = 60'000;

constexpr wchar_t USAGE[] =
    L"Usage: endznm [-w | -i | -p | -rp | -ri] QMName\n"
    L"Asks a running queue manager to end and waits until it has ended.\n"
    L"  -w   when its applications have disconnected (the default)\n"
    L"  -i   immediately, when their current calls are done\n"
    L"  -p   preemptively, without waiting for calls\n"
    L"  -rp, -ri   as -p and -i; applications are told to connect again\n"
    L"Exit status: 0 ended, 1 wrong usage, 2 no such queue manager, 3 it does not run,\n"
    L"  4 it refused to end, 5 it did not end within 60 seconds, 6 the system failed,\n"
    L"  71 not authorized, 119 not authorized: the volume keeps no access lists";

int Fail(ExitCode eCode, const std::wstring& strText)
{
    PrintLine(stderr, strText);
    return eCode;
}

bool IsOption(const std::wstring& strWord)
{
    return strWord == L"-w" || strWord == L"-i" || strWord == L"-p" || strWord == L"-rp" || strWord == L"-ri";
}

int CheckAuthority(const CommonServices& services)
{
    const int32_t nResult = xcsCheckAuthorization(0);
    if (nResult == 0)
        return EXIT_ENDED;
    const int nStatus = nResult == XCS_RC_NO_VOLUME_SECURITY ? EXIT_NO_VOLUME_SECURITY : EXIT_NOT_AUTHORIZED;
    zutDisplayCSPError(services.Connection(), nStatus, nResult, nullptr);
    return nStatus;
}

// The mutex comes to whoever waits when the queue manager gives it up, also when it dies.
int WaitForEnd(const QueueManager& queueManager, const KernelHandle& running, const KernelHandle& refused)
{
    const std::wstring strWho = L"Queue manager '" + queueManager.strName + L"' ";
    const HANDLE aHandles[] = {running.Get(), refused.Get()};
    const DWORD nWait = WaitForMultipleObjects(ARRAYSIZE(aHandles), aHandles, FALSE, TIMEOUT_MS);
    const DWORD nError = GetLastError();
    switch (nWait)
    {
    case WAIT_OBJECT_0:
    case WAIT_ABANDONED_0: {
        const HeldMutex acquired(running.Get());
        PrintLine(stdout, strWho + L"ended.");
        return EXIT_ENDED;
    }
    case WAIT_OBJECT_0 + 1:
        return Fail(EXIT_REFUSED, strWho + L"refused to end and still runs.\n"
                                           L"Disconnect its applications and try again, if need be with -i.");
    case WAIT_TIMEOUT:
        return Fail(EXIT_TIMED_OUT, strWho + L"did not end within 60 seconds and is still ending.\n"
                                             L"Disconnect its applications and try again.");
    default:
        return Fail(EXIT_SYSTEM, strWho + L"may still run: " + ErrorText(nError) + L"\nTry again.");
    }
}

int End(const QueueManager& queueManager)
{
    const RunObjectNames& names = queueManager.runObjects;
    if (!IsRunning(names))
        return Fail(EXIT_NOT_RUNNING, L"Queue manager '" + queueManager.strName + L"' does not run.");
    // Each only if the one before succeeded: the last error is that of the first failure.
    const KernelHandle running(OpenMutexW(SYNCHRONIZE | MUTEX_MODIFY_STATE, FALSE, names.strRunning.c_str()));
    const KernelHandle end(running ? OpenEventW(EVENT_MODIFY_STATE, FALSE, names.strEnd.c_str()) : nullptr);
    const KernelHandle refused(end ? OpenEventW(SYNCHRONIZE, FALSE, names.strRefused.c_str()) : nullptr);
    const bool fAsked = refused && SetEvent(end.Get());
    const DWORD nError = GetLastError();
    if (!fAsked)
        return Fail(EXIT_SYSTEM,
                    L"Queue manager '" + queueManager.strName + L"' cannot be asked to end: " +
                        ErrorText(nError) +
                        L"\nOnly elevated administrators and members of the group 'znm' can end it.");
    return WaitForEnd(queueManager, running, refused);
}
} // namespace

extern "C" int wmain(int argc, wchar_t** argv)
{
    RestrictLibrarySearch();
    if (argc != 2 && !(argc == 3 && IsOption(argv[1])))
        return Fail(EXIT_USAGE, USAGE);
    const std::wstring strName = argv[argc - 1];
    const CommonServices services;
    if (services.Result() != 0)
    {
        services.ReportFailure();
        return EXIT_SYSTEM;
    }
    if (const int nStatus = CheckAuthority(services))
        return nStatus;
    const auto queueManager = FindQueueManager(strName);
    if (!queueManager)
        return Fail(EXIT_NOT_FOUND, L"There is no queue manager '" + strName +
                                        L"', or its stanza in zns.ini cannot be used.\n"
                                        L"Check the name, letter case too, and the stanza.");
    return End(*queueManager);
}
