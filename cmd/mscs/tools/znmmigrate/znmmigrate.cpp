// Entry of the command: brings the framework, the common services and the trace up, moves the queue manager,
// and turns the outcome into a message and an exit status. Touches nothing on disk itself.
#include "afxwin.h"

#include <tchar.h>

#include <cstring>
#include <string_view>

#include "messages.h"
#include "tovmsrid.h"
#include "tovmtrce.h"
#include "tovmutln.h"
#include "tovxcs2.h"
#include "tovxzu.h"
#include "znmapp.h"
#include "znmcmdline.h"
#include "znmcontrol.h"

ZNM_SOURCE_ID(ZNM_MIGRATE_TOOL("znmmigrate"));
static_assert(std::string_view(ZN_BUILD_LEVEL) == XCS_VERSION_LEVEL);

namespace
{
// What the process needs from its first moment; the start-up sequence of the entry function is fixed.
bool PrepareProcess()
{
    SetErrorMode(GetErrorMode() |
                 SEM_FAILCRITICALERRORS); // an empty drive is an error, not a box that waits for somebody
    SetDllDirectoryW(L"");        // during the copy the current directory is a tree that others may write to
    return ZNTakeControlEvents(); // where that fails the system ends the process as it always does
}
[[gnu::used]] const bool s_fPrepared = PrepareProcess();

constexpr int STATUS_MOVED = 0;
constexpr int STATUS_FAILED = -1;
constexpr int STATUS_NOT_AUTHORIZED = 71;
constexpr int STATUS_NO_VOLUME_SECURITY = 119;

// What this tool tells the common services about itself.
constexpr int32_t INITIALIZE_COMPONENT = 48;
constexpr int32_t INITIALIZE_OPTIONS = 7;
constexpr int32_t AUTHORIZATION_OPTIONS = 7;
constexpr int32_t TERMINATE_OPTIONS = 4;

// The text is loaded here and not by number: the common services, and with them the trace, are not up yet.
int ReportFrameworkFailure()
{
    constexpr int MAX_TEXT = 260;
    wchar_t szText[MAX_TEXT] = {};
    LoadStringW(GetModuleHandleW(nullptr), IDS_MFC_FAILED, szText, MAX_TEXT);
    CZNMUtil::ZNMessageConsole(ZNM_MESSAGE_STDERR, szText);
    return STATUS_FAILED;
}

// The user hears of it in the utility library's words, not in one of this program's messages.
int ReportMissingAuthority(XCS_CONNECTION& connection, int32_t nResult)
{
    const int nStatus =
        nResult == XCS_RC_NO_VOLUME_SECURITY ? STATUS_NO_VOLUME_SECURITY : STATUS_NOT_AUTHORIZED;
    XCS_INSERTS inserts = {};
    std::memcpy(inserts.achEyeCatcher, "XMSA", sizeof inserts.achEyeCatcher);
    zutDisplayCSPError(&connection, nStatus, nResult, &inserts);
    CZNMTrace::RecordExit(FN_TMAIN, nStatus); // its entry is recorded only once the trace is established
    xcsTerminate(&connection, TERMINATE_OPTIONS);
    return nStatus;
}
} // namespace

extern "C" int _tmain(int argc, _TCHAR* argv[], _TCHAR* envp[])
{
    if (!AfxWinInit(GetModuleHandleW(nullptr), nullptr, GetCommandLineW(), 0))
        return ReportFrameworkFailure();

    if (int32_t nResult = xcsCheckConsistency(XCS_VERSION_LEVEL); nResult != 0)
    {
        zutMapRCTo8bit(&nResult);
        return nResult;
    }

    XCS_CONNECTION initialized = {};
    if (xcsInitializeEx(INITIALIZE_COMPONENT, INITIALIZE_OPTIONS, nullptr, nullptr, nullptr, nullptr, nullptr,
                        &initialized) != 0)
    {
        CZNMUtil::ZNMessageConsole(ZNM_MESSAGE_STDERR, IDS_COMMON_SERVICES_FAILED);
        return STATUS_FAILED;
    }
    XCS_CONNECTION connection = initialized; // what the common services filled stays as it was

    if (const int32_t nResult = xcsCheckAuthorization(AUTHORIZATION_OPTIONS); nResult != 0)
        return ReportMissingAuthority(connection, nResult);

    xtrEstablishTraceStatus(); // a run that cannot be traced is made all the same
    CZNMTrace trace(FN_TMAIN);
    trace.Parms("_tmain() (argc = %d, argv = %p, envp = %p)", argc, static_cast<void*>(argv),
                static_cast<void*>(envp));

    CZNCmdLineInfo cmdInfo;
    theApp.ParseCommandLine(cmdInfo);
    const bool fMoved = theApp.MigrateQueueManager() != 0;
    if (!fMoved) // always, also after a message that says more
        CZNMUtil::ZNMessageConsole(ZNM_MESSAGE_STDERR, IDS_USAGE);
    trace.Leave(fMoved ? 0 : 1);
    xcsTerminate(&connection, TERMINATE_OPTIONS);
    return fMoved ? STATUS_MOVED : STATUS_FAILED;
}
