// Stands in for tovxcs2.dll beside a copy of the shipped tarvel.exe, passes every call on to the real
// library, which lies beside it as tovxcs2r.dll, and makes calls of the program fail: what it imports is
// replaced in its import table before its first instruction runs.
//
// ZN_FAULTS: "function:call:mode:return:error" (numbers hexadecimal), several separated by ';'. The call'th
// call of the function (mode o), or that and all later ones (mode a), sets the last error and returns the
// value without doing anything. Mode k ends the process at that call instead, as if the power had failed; the
// function "*" then counts the calls of all functions together, but for those that stay in the process. Mode
// w lets the process wait after that call, until the test that started it has done what it wants
// (ZN_FAULTS_PAUSE has the handles of two events). Mode c hands Ctrl+C to the program's handler after that
// call. ZN_FAULTS_REPORT: a file that gets "function calls" for every function at the end.
#include <windows.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>
#include <utility>

#include "hook.h"
#include "tovxcs2.h"

void ReplaceVolumes(); // volumes.cpp
void AnswerAlways();   // notes.cpp
void NoteCalls();

namespace
{
extern "C" void* Dispatch(struct Import* pImport);

// An imported function: code that keeps the arguments, asks Dispatch where to go and goes there, code that
// returns a value, and what Dispatch has to know.
struct [[gnu::packed]] Import
{
    // push rcx, rdx, r8, r9; sub rsp, 28h; mov rcx, this
    unsigned char achSave[12] = {0x51, 0x52, 0x41, 0x50, 0x41, 0x51, 0x48, 0x83, 0xEC, 0x28, 0x48, 0xB9};
    Import* pThis = this;
    unsigned char achDispatch[2] = {0x48, 0xB8}; // mov rax, Dispatch
    void* (*pfnDispatch)(Import*) = &Dispatch;
    // call rax; add rsp, 28h; pop r9, r8, rdx, rcx; jmp rax
    unsigned char achGo[14] = {0xFF, 0xD0, 0x48, 0x83, 0xC4, 0x28, 0x41,
                               0x59, 0x41, 0x58, 0x5A, 0x59, 0xFF, 0xE0};
    unsigned char achFailure[2] = {0x48, 0xB8}; // mov rax, nReturn
    unsigned long long nReturn = 0;
    unsigned char chReturn = 0xC3; // ret

    void* pReal = nullptr;
    unsigned long nError = 0, nCalls = 0, nAt = 0; // the call that the fault is for; 0: none
    char chMode = 'o';
    bool fInward = false; // its calls stay in the process
};
// The program calls until after this library's end: this is never given back.
auto& s_imports = *new std::map<std::string, Import*>;
Import s_all;
char s_chPending = 0;
PHANDLER_ROUTINE s_pfnHandler = nullptr;

// What is to happen after a call happens before the next one.
void DoWhatIsPending()
{
    const DWORD nError = GetLastError();
    const char chMode = std::exchange(s_chPending, '\0');
    unsigned long long nReached = 0, nGo = 0;
    if (chMode == 'w' && std::sscanf(std::getenv("ZN_FAULTS_PAUSE"), "%llu %llu", &nReached, &nGo) == 2)
        SignalObjectAndWait(reinterpret_cast<HANDLE>(nReached), reinterpret_cast<HANDLE>(nGo), INFINITE,
                            FALSE);
    if (chMode == 'c')
        s_pfnHandler(CTRL_C_EVENT);
    SetLastError(nError);
}

void Report()
{
    const char* const pszFile = std::getenv("ZN_FAULTS_REPORT");
    FILE* const pFile = pszFile != nullptr ? std::fopen(pszFile, "w") : nullptr;
    if (pFile == nullptr)
        return;
    for (const auto& [strName, pImport] : s_imports)
        std::fprintf(pFile, "\n%s %lu", strName.c_str(), pImport->nCalls);
    std::fclose(pFile);
}

// Counts a call. True if it is to fail.
bool IsToFail(Import& import)
{
    const unsigned long nCall = ++import.nCalls;
    if (import.nAt == 0 || nCall < import.nAt || (nCall > import.nAt && import.chMode != 'a'))
        return false;
    if (import.chMode == 'k')
    {
        Report();
        TerminateProcess(GetCurrentProcess(), 9);
    }
    if (import.chMode == 'w' || import.chMode == 'c')
        s_chPending = import.chMode;
    return import.chMode == 'o' || import.chMode == 'a';
}

extern "C" void* Dispatch(Import* pImport)
{
    DoWhatIsPending();
    if (!pImport->fInward)
        IsToFail(s_all);
    if (!IsToFail(*pImport))
        return pImport->pReal;
    SetLastError(pImport->nError);
    return pImport->achFailure;
}

void ReplaceImports()
{
    static const auto s_handler = Hook(SetConsoleCtrlHandler, [](PHANDLER_ROUTINE pfnHandler, BOOL fAdd) {
        return SetConsoleCtrlHandler(s_pfnHandler = pfnHandler, fAdd);
    });
    auto* const pCode = static_cast<Import*>(
        VirtualAlloc(nullptr, 1 << 16, MEM_COMMIT | MEM_RESERVE, PAGE_EXECUTE_READWRITE));
    s_imports["*"] = &s_all;
    ForEachImport(GetModuleHandleW(nullptr), [&](const char* pszDll, const char* pszName, void** ppSlot) {
        // Not what is no function, nor what the language's runtime needs to start and end.
        if (std::strncmp(pszName, "xih", 3) == 0 ||
            ((_stricmp(pszDll, "msvcrt.dll") == 0 || _strnicmp(pszDll, "api-ms-win-crt-", 15) == 0) &&
             std::strcmp(pszName, "malloc") != 0 && std::strcmp(pszName, "_waccess") != 0))
            return;
        Import* const pImport = s_imports[pszName] = new (pCode + s_imports.size()) Import;
        pImport->pReal = *ppSlot;
        pImport->fInward = std::strstr("malloc TlsGetValue GetLastError SetLastError", pszName) != nullptr ||
                           std::strncmp(pszName, "xtr_", 4) == 0;
        WriteImportSlot(ppSlot, pImport);
    });
    for (char* psz = std::strtok(std::getenv("ZN_FAULTS"), ";"); psz != nullptr;
         psz = std::strtok(nullptr, ";"))
    {
        char szName[64] = "", chMode = 'o';
        unsigned long nAt = 0, nError = 0;
        unsigned long long nReturn = 0;
        std::sscanf(psz, "%63[^:]:%lx:%c:%llx:%lx", szName, &nAt, &chMode, &nReturn, &nError);
        if (!s_imports.contains(szName))
            TerminateProcess(GetCurrentProcess(), 99); // a fault in what is not imported would test nothing
        Import& import = *s_imports[szName];
        import.nAt = nAt;
        import.chMode = chMode;
        import.nReturn = nReturn;
        import.nError = nError;
    }
}
} // namespace

extern "C" BOOL WINAPI DllMain(HINSTANCE, DWORD nReason, LPVOID)
{
    if (nReason == DLL_PROCESS_ATTACH)
    {
        AnswerAlways();
        ReplaceImports();
        ReplaceVolumes();
        NoteCalls();
    }
    else if (nReason == DLL_PROCESS_DETACH)
        Report();
    return TRUE;
}
