// Stands in for tovxcs2.dll beside a copy of the shipped tarvel.exe, passes every call on to the real
// library, which lies beside it as tovxcs2r.dll, and makes calls of the program fail: what it imports is
// replaced in its import table before its first instruction runs.
//
// ZN_FAULTS: "function:call:mode:return:error" (numbers hexadecimal), several separated by ';'. The call'th
// call of the function (mode o), or that and all later ones (mode a), sets the last error and returns the
// value without doing anything. Mode k ends the process at that call instead, as if the power had failed; the
// function "*" then counts the calls of all functions together. Mode w lets the process wait after that call,
// until the test that started it has done what it wants (ZN_FAULTS_PAUSE names the events). Mode c hands
// Ctrl+C to the program's handler after that call. ZN_FAULTS_REPORT: a file that receives, at the end of the
// process, "function calls" for every function called and "held kind number" for what was not given back.
#include <windows.h>
#include <aclapi.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "hook.h"
#include "tovxcs2.h"

namespace
{
struct Import
{
    const char* pszName;
    void* pReal;
    unsigned char* pFailure; // code that returns nReturn
    unsigned long long nReturn;
    DWORD nError;
    long nCalls, nFirst, nFailAt; // 0: never
    char chMode;
};

constexpr int MAX_IMPORTS = 256;
Import s_imports[MAX_IMPORTS];
int s_nImports = 0;
long s_nAllCalls = 0, s_nAllAt = 0;
char s_chAllMode = 'k', s_chPending = 0;
PHANDLER_ROUTINE s_pfnHandler = nullptr;

void WaitForTest()
{
    char szName[200], szEvent[220];
    GetEnvironmentVariableA("ZN_FAULTS_PAUSE", szName, sizeof szName);
    const auto open = [&](const char* pszKind) {
        std::snprintf(szEvent, sizeof szEvent, "%s.%s", szName, pszKind);
        return OpenEventA(SYNCHRONIZE | EVENT_MODIFY_STATE, FALSE, szEvent);
    };
    SetEvent(open("Reached"));
    WaitForSingleObject(open("Go"), INFINITE);
}

void PressControlC()
{
    const HANDLE hThread = CreateThread(
        nullptr, 0, [](void*) { return static_cast<DWORD>(s_pfnHandler(CTRL_C_EVENT)); }, nullptr, 0,
        nullptr);
    WaitForSingleObject(hThread, INFINITE);
    CloseHandle(hThread);
}

// What is to happen after a call happens before the next one.
void DoWhatIsPending()
{
    const DWORD nError = GetLastError();
    if (const char ch = std::exchange(s_chPending, '\0'))
        ch == 'w' ? WaitForTest() : PressControlC();
    SetLastError(nError);
}

// True if the call is to be made.
bool Happens(char chMode)
{
    if (chMode == 'k')
        TerminateProcess(GetCurrentProcess(), 9);
    if (chMode == 'w' || chMode == 'c')
        s_chPending = chMode;
    return chMode != 'o' && chMode != 'a';
}

extern "C" void* Dispatch(Import* pImport)
{
    DoWhatIsPending();
    const long nCall = ++pImport->nCalls;
    const bool fFails = nCall == pImport->nFailAt ||
                        (pImport->chMode == 'a' && nCall > pImport->nFailAt && pImport->nFailAt != 0);
    if (nCall == 1)
        pImport->nFirst = s_nAllCalls + 1;
    if (++s_nAllCalls == s_nAllAt)
        Happens(s_chAllMode);
    if (!fFails || Happens(pImport->chMode))
        return pImport->pReal;
    SetLastError(pImport->nError);
    return pImport->pFailure;
}

BOOL WINAPI TakeHandler(PHANDLER_ROUTINE pfnHandler, BOOL fAdd)
{
    s_pfnHandler = pfnHandler;
    return SetConsoleCtrlHandler(pfnHandler, fAdd);
}

// Code that keeps the arguments, asks Dispatch where to go, and goes there.
unsigned char* EmitThunk(unsigned char* p, Import* pImport)
{
    auto emit = [&p](std::initializer_list<unsigned char> bytes) {
        for (unsigned char byte : bytes)
            *p++ = byte;
    };
    auto emitPointer = [&p](auto value) {
        std::memcpy(p, &value, 8);
        p += 8;
    };
    emit({0x51, 0x52, 0x41, 0x50, 0x41, 0x51, 0x48, 0x83, 0xEC, 0x28}); // push rcx, rdx, r8, r9; sub rsp, 28h
    emit({0x48, 0xB9});                                                 // mov rcx, pImport
    emitPointer(pImport);
    emit({0x48, 0xB8}); // mov rax, Dispatch
    emitPointer(&Dispatch);
    emit({0xFF, 0xD0, 0x48, 0x83, 0xC4, 0x28});             // call rax; add rsp, 28h
    emit({0x41, 0x59, 0x41, 0x58, 0x5A, 0x59, 0xFF, 0xE0}); // pop r9, r8, rdx, rcx; jmp rax
    pImport->pFailure = p;
    emit({0x48, 0xB8}); // mov rax, nReturn; ret
    emitPointer(pImport->nReturn);
    emit({0xC3});
    return p;
}

// --- What has to be given back -------------------------------------------------------------------

enum Kind
{
    SEARCH,
    LOCAL_BLOCK,
    SID_BLOCK,
    RECORD,
    KINDS
};
long s_held[KINDS];

// Stands before a function that hands out or takes back; change tells from the result by how much.
template <class Signature, class Tag = decltype([] {})>
struct Counted;
template <class Result, class... Args, class Tag>
struct Counted<Result(Args...), Tag>
{
    static inline Result (*s_pReal)(Args...);
    static inline long (*s_change)(Result);
    static inline Kind s_kind;
    static Result Call(Args... args)
    {
        const Result result = s_pReal(args...);
        s_held[s_kind] += s_change(result);
        return result;
    }
    Counted(const char* pszFunction, Kind kind, long (*change)(Result))
    {
        void** const ppSlot = FindImportSlot(pszFunction);
        s_kind = kind;
        s_change = change;
        s_pReal = reinterpret_cast<Result (*)(Args...)>(*ppSlot);
        WriteImportSlot(ppSlot, reinterpret_cast<void*>(&Call));
    }
};

void CountWhatIsHeld()
{
    static const auto done = [](DWORD nResult) { return nResult == 0 ? 1L : 0L; };
    static const auto found = [](HANDLE h) { return h != INVALID_HANDLE_VALUE ? 1L : 0L; };
    static const auto ok = [](int32_t nResult) { return nResult == 0 ? 1L : 0L; };
    static const auto back = [](auto) { return -1L; };
    Counted<decltype(FindFirstFileW)>("FindFirstFileW", SEARCH, found);
    Counted<decltype(FindFirstFileExW)>("FindFirstFileExW", SEARCH, found);
    Counted<decltype(FindClose)>("FindClose", SEARCH, back);
    Counted<decltype(GetNamedSecurityInfoW)>("GetNamedSecurityInfoW", LOCAL_BLOCK, done);
    Counted<decltype(SetEntriesInAclW)>("SetEntriesInAclW", LOCAL_BLOCK, done);
    Counted<decltype(LocalFree)>("LocalFree", LOCAL_BLOCK, back);
    Counted<decltype(AllocateAndInitializeSid)>("AllocateAndInitializeSid", SID_BLOCK,
                                                [](BOOL f) { return f ? 1L : 0L; });
    Counted<decltype(FreeSid)>("FreeSid", SID_BLOCK, back);
    Counted<decltype(xcsGetQMDetails)>("xcsGetQMDetails", RECORD, ok);
    Counted<decltype(xcsGetInstallationDetails)>("xcsGetInstallationDetails", RECORD, ok);
    // (declared with a result that nobody looks at, as a function without one cannot be told from)
    Counted<int(void*, int32_t, void*, void*)>("xcsFreeMemFn", RECORD, back);
}

// --- Start and end -------------------------------------------------------------------------------

Import* FindImport(const char* pszName)
{
    for (int i = 0; i < s_nImports; ++i)
        if (std::strcmp(s_imports[i].pszName, pszName) == 0)
            return &s_imports[i];
    return nullptr;
}

void TakeFaults(char* pszFaults)
{
    for (char* psz = std::strtok(pszFaults, ";"); psz != nullptr; psz = std::strtok(nullptr, ";"))
    {
        char szName[64];
        unsigned long nCall = 0, nError = 0;
        unsigned long long nReturn = 0;
        char chMode = 'o';
        std::sscanf(psz, "%63[^:]:%lx:%c:%llx:%lx", szName, &nCall, &chMode, &nReturn, &nError);
        if (std::strcmp(szName, "*") == 0)
            s_nAllAt = static_cast<long>(nCall), s_chAllMode = chMode;
        else if (Import* const pImport = FindImport(szName))
        {
            pImport->nFailAt = static_cast<long>(nCall);
            pImport->chMode = chMode;
            pImport->nReturn = nReturn;
            pImport->nError = nError;
        }
        else
            TerminateProcess(GetCurrentProcess(), 99); // a fault in what is not imported would test nothing
    }
}

void ReplaceImports()
{
    ForEachImport(GetModuleHandleW(nullptr), [](const char* pszDll, const char* pszName, void**) {
        // What is no function, and what the runtime needs to start and end.
        if (std::strncmp(pszName, "xih", 3) == 0)
            return;
        if (_stricmp(pszDll, "msvcrt.dll") == 0 && std::strcmp(pszName, "malloc") != 0 &&
            std::strcmp(pszName, "_waccess") != 0)
            return;
        if (s_nImports < MAX_IMPORTS && FindImport(pszName) == nullptr)
            s_imports[s_nImports++].pszName = pszName;
    });
    if (char* const pszFaults = std::getenv("ZN_FAULTS"))
        TakeFaults(pszFaults);

    WriteImportSlot(FindImportSlot("SetConsoleCtrlHandler"), reinterpret_cast<void*>(&TakeHandler));
    CountWhatIsHeld();
    auto* pCode = static_cast<unsigned char*>(
        VirtualAlloc(nullptr, MAX_IMPORTS * 128, MEM_COMMIT | MEM_RESERVE, PAGE_EXECUTE_READWRITE));
    for (int i = 0; i < s_nImports; ++i)
    {
        void** const ppSlot = FindImportSlot(s_imports[i].pszName);
        s_imports[i].pReal = *ppSlot;
        unsigned char* const pThunk = pCode + i * 128;
        EmitThunk(pThunk, &s_imports[i]);
        WriteImportSlot(ppSlot, pThunk);
    }
}

void Report()
{
    const char* const pszReport = std::getenv("ZN_FAULTS_REPORT");
    FILE* const pFile = pszReport != nullptr ? std::fopen(pszReport, "w") : nullptr;
    if (pFile == nullptr)
        return;
    for (int i = 0; i < s_nImports; ++i)
        if (s_imports[i].nCalls > 0)
            std::fprintf(pFile, "%s %ld %ld\n", s_imports[i].pszName, s_imports[i].nCalls,
                         s_imports[i].nFirst);
    const char* const kinds[] = {"search", "local", "sid", "record"};
    for (int i = 0; i < KINDS; ++i)
        if (s_held[i] != 0)
            std::fprintf(pFile, "held-%s %ld 0\n", kinds[i], s_held[i]);
    std::fprintf(pFile, "* %ld 0\n", s_nAllCalls);
    std::fclose(pFile);
}
} // namespace

extern "C" BOOL WINAPI DllMain(HINSTANCE, DWORD nReason, LPVOID)
{
    if (nReason == DLL_PROCESS_ATTACH)
        ReplaceImports();
    else if (nReason == DLL_PROCESS_DETACH)
        Report();
    return TRUE;
}
