// Ends the process at a console control event while that loses nothing and surprises nobody: as long as the
// configuration names the old trees, and they are whole. Later the shortest way to a state without leftovers
// is to go on.
#include "znmcontrol.h"

#include <windows.h>

#include "tovmsrid.h"

ZNM_SOURCE_ID(ZNM_MIGRATE_TOOL("znmcontrol"));

namespace
{
constexpr UINT STATUS_ENDED = static_cast<UINT>(-1);

SRWLOCK s_lock = SRWLOCK_INIT;
bool s_fFinish = false;

// Runs on a thread that the system starts for the event.
BOOL WINAPI OnControlEvent(DWORD nEvent)
{
    AcquireSRWLockExclusive(&s_lock);
    if (!s_fFinish)
        TerminateProcess(GetCurrentProcess(), STATUS_ENDED);
    ReleaseSRWLockExclusive(&s_lock);
    // The system ends the process when the handler of one of these returns.
    if (nEvent == CTRL_CLOSE_EVENT || nEvent == CTRL_LOGOFF_EVENT || nEvent == CTRL_SHUTDOWN_EVENT)
        Sleep(INFINITE);
    return TRUE;
}
} // namespace

bool ZNTakeControlEvents()
{
    return SetConsoleCtrlHandler(&OnControlEvent, TRUE) != FALSE;
}

void ZNIgnoreControlEvents()
{
    AcquireSRWLockExclusive(&s_lock);
    s_fFinish = true;
    ReleaseSRWLockExclusive(&s_lock);
}
