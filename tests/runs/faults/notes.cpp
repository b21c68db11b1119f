// Notes what the program does to the file that ZN_FAULTS_NOTES names, if there is one, a line each, indented
// by the depth of the function trace:
//     > 168               entry              = text       parameter record, formatted
//     < 168 1             exit               - text       text record
//     xcsTerminate ...    call of the product's libraries or of Windows, with its arguments: texts in quotes,
//                         what a number's or a known structure's address leads to, p for other addresses
// The whole trace is on from the program's first instruction to its last, so that every function is seen, and
// the answers of Windows about accounts and access lists are always the same ones.
#include <windows.h>
#include <aclapi.h>
#include <io.h>
#include <sddl.h>
#include <shellapi.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <tuple>

#include "hook.h"
#include "tovxcs2.h"
#include "tovxzu.h"

void AnswerAlways(); // faults.cpp calls both
void NoteCalls();

namespace
{
FILE* s_pNotes = nullptr;
Hooks* const s_pHooks = new Hooks; // the program calls until after this library's end
int s_nDepth = 0;

// The area that the program sees, and the one that the library has given the thread.
XTR_THREAD_AREA s_area = {};
void* s_pRealArea = nullptr;
uint32_t s_nSlot = 0;
XIH_PROCESS* s_pProcess = nullptr;

void SwitchOn()
{
    const DWORD nError = GetLastError();
    s_pRealArea = TlsGetValue(s_nSlot);
    s_area.fTraceActive = s_area.fDetailed = 1;
    s_area.nOptions = XTR_OPTIONS_PARMS | XTR_OPTIONS_TEXT;
    TlsSetValue(s_nSlot, &s_area);
    *s_pProcess = {1, 1, 0};
    SetLastError(nError);
}
void SwitchOff()
{
    TlsSetValue(s_nSlot, s_pRealArea);
    *s_pProcess = {};
}

void Line(const std::string& str)
{
    std::fprintf(s_pNotes, "%*s%s\n", 2 * s_nDepth, "", str.c_str());
    std::fflush(s_pNotes);
}

std::string Word(const char* psz)
{
    return psz != nullptr ? "\"" + std::string(psz) + "\"" : "null";
}
std::string Word(const wchar_t* psz)
{
    char szText[4 * MAX_PATH] = {};
    WideCharToMultiByte(CP_ACP, 0, psz, -1, szText, sizeof szText, nullptr, nullptr);
    return Word(psz != nullptr ? szText : nullptr);
}
std::string Word(const void* p)
{
    return p != nullptr ? "p" : "null";
}
template <class T>
std::string Word(T** p)
{
    return Word(static_cast<const void*>(p));
}
std::string Word(char* psz) // room for an answer
{
    return Word(static_cast<const void*>(psz));
}
template <class T>
concept Number = std::is_arithmetic_v<T> || std::is_enum_v<T>;
template <class T>
concept WideNumber = std::is_arithmetic_v<T> && sizeof(T) > sizeof(wchar_t);
template <Number T>
std::string Word(T number)
{
    char szText[32] = {};
    const auto n = static_cast<long long>(number);
    std::snprintf(szText, sizeof szText, n > 0xFFFF ? "%llX" : "%lld", n);
    return szText;
}
template <WideNumber T>
std::string Word(T* p)
{
    return p != nullptr ? "*" + Word(*p) : "null";
}
std::string Word(const XCS_CONNECTION* p)
{
    return p->nProcess == 0 && p->nHandle == 0 ? "empty" : "connection";
}
std::string Word(const XCS_INSERTS* p)
{
    std::string strResult(p->achEyeCatcher, 4);
    for (const char ch : p->abReserved)
        strResult += ch == 0 ? "" : " damaged";
    for (const char* psz : p->apszText)
        strResult += " " + Word(psz);
    return "{" + strResult + "}";
}
std::string Word(SID_IDENTIFIER_AUTHORITY* p)
{
    return "{" + Word(p->Value[5]) + "}";
}
std::string Word(SHFILEOPSTRUCTW* p)
{
    return "{" + Word(p->hwnd) + " " + Word(p->wFunc) + " " + Word(p->pFrom) + " " + Word(p->pTo) + " " +
           Word(p->fFlags) + "}";
}

// A call is noted before it is made. The library finds the thread's area as it left it.
template <FunctionName NAME, class Signature>
struct Noted;
template <FunctionName NAME, class Result, class... Args>
struct Noted<NAME, Result(Args...)>
{
    static constexpr std::string_view FUNCTION = NAME.szText;
    static inline Result (*s_pReal)(Args...) = nullptr;

    static void Set()
    {
        void** const ppSlot = FindImportSlot(NAME.szText);
        if (ppSlot == nullptr) // a note of what is not imported would show nothing
            return static_cast<void>(TerminateProcess(GetCurrentProcess(), 99));
        s_pReal = reinterpret_cast<Result (*)(Args...)>(*ppSlot);
        WriteImportSlot(ppSlot, reinterpret_cast<void*>(&Call));
    }
    static Result Call(Args... args)
    {
        std::string str = NAME.szText;
        ((str += " " + Word(args)), ...);
        const auto all = std::tie(args...);
        bool fNoted = true;
        if constexpr (FUNCTION == "xcsExecProgramHandle")
            for (const char* psz = std::get<3>(all); *psz != '\0'; psz += std::strlen(psz) + 1)
                str += " {" + Word(psz) + "}";
        if constexpr (FUNCTION == "SetEntriesInAclW")
            for (ULONG n = 0; n < std::get<0>(all); ++n)
            {
                const EXPLICIT_ACCESS_W& entry = std::get<1>(all)[n];
                str += " {" + Word(entry.grfAccessPermissions) + " " + Word(entry.grfAccessMode) + " " +
                       Word(entry.grfInheritance) + " " + Word(entry.Trustee.TrusteeForm) + "}";
            }
        if constexpr (FUNCTION == "FindFirstFileExW") // the others are looks of the program's own
            fNoted = std::get<1>(all) == FindExInfoStandard;
        if constexpr (FUNCTION == "DeleteFileW") // a file of the program's own
            fNoted = std::wcsstr(std::get<0>(all), L".tmp") == nullptr;
        if constexpr (FUNCTION == "SetErrorMode") // the others are the parent's
            str = "SetErrorMode " + Word(std::get<0>(all) & SEM_FAILCRITICALERRORS);
        if (fNoted)
            Line(str);
        const struct Switch
        {
            Switch() { SwitchOff(); }
            ~Switch() { SwitchOn(); }
        } off;
        return s_pReal(args...);
    }
};
void SetEach(auto... apfnSet)
{
    (apfnSet(), ...);
}
#define NOTED(function) &Noted<FunctionName{#function}, decltype(function)>::Set

void Note(char chKind, int nComponent, int nFunction, const std::string& strText)
{
    Line(chKind + (" " + Word(nFunction)) + (nComponent == 42 ? "" : " of another component") + strText);
}
[[gnu::format(printf, 1, 2)]] void NoteParms(const char* pszFormat, ...)
{
    char szText[1 << 14] = {};
    va_list args;
    va_start(args, pszFormat);
    _vsnprintf(szText, sizeof szText - 1, pszFormat, args);
    va_end(args);
    const uint32_t n = s_area.nCurrentFunction;
    Note('=', n & 0xFFFF, static_cast<int>(n >> 16), std::string(" ") + szText);
}
} // namespace

// Before the faults are set, so that these calls can be made to fail too.
void AnswerAlways()
{
    const char* const pszFile = std::getenv("ZN_FAULTS_NOTES");
    s_pNotes = pszFile != nullptr && *pszFile != '\0' ? std::fopen(pszFile, "wb") : nullptr;
    if (s_pNotes == nullptr)
        return;
    *s_pHooks = {Hook(LookupAccountNameW,
                      [](auto, auto, PSID pSid, DWORD* pnSize, auto...) {
                          return CreateWellKnownSid(WinLocalSystemSid, nullptr, pSid, pnSize);
                      }),
                 Hook(GetNamedSecurityInfoW,
                      [](auto, auto, auto, auto, auto, PACL* ppDacl, auto, auto* ppDescriptor) -> DWORD {
                          BOOL fPresent = FALSE, fDefault = FALSE;
                          ConvertStringSecurityDescriptorToSecurityDescriptorW(
                              L"D:(A;;FA;;;BA)(D;;FA;;;BG)(A;;FA;;;SY)(A;;FR;;;WD)", SDDL_REVISION_1,
                              ppDescriptor, nullptr);
                          return !GetSecurityDescriptorDacl(*ppDescriptor, &fPresent, ppDacl, &fDefault);
                      }),
                 Hook(SetNamedSecurityInfoW, [](auto...) -> DWORD { return ERROR_SUCCESS; })};
}

// After the faults are set: a call that fails is noted too.
void NoteCalls()
{
    if (s_pNotes == nullptr)
        return;
    const Hooks hooks = {
        Hook(xtr_FNC_entry,
             [](auto, int nComponent, int nFunction) {
                 Note('>', nComponent, nFunction, "");
                 ++s_nDepth;
             }),
        Hook(xtr_FNC_retcode,
             [](auto, int nComponent, int nFunction, int nReturnCode) {
                 s_nDepth -= s_nDepth > 0 ? 1 : 0;
                 Note('<', nComponent, nFunction, " " + Word(nReturnCode));
             }),
        Hook(xtr_FNC_text, [](int nComponent, int nFunction, auto, int nReserved, const char* pszText) {
            Note('-', nComponent, nFunction,
                 std::string(" ") + pszText + (nReserved == 0 ? "" : " and more"));
        })};
    s_pHooks->insert(s_pHooks->end(), hooks.begin(), hooks.end());
    WriteImportSlot(FindImportSlot("xtr_parms"), reinterpret_cast<void*>(&NoteParms));
    SetEach(NOTED(SetErrorMode), NOTED(SetDllDirectoryW), NOTED(xtrEstablishTraceStatus),
            NOTED(xcsCheckConsistency), NOTED(xcsInitializeEx), NOTED(xcsCheckAuthorization),
            NOTED(xcsTerminate), NOTED(xcsGetIniFilename), NOTED(xcsIniUtilRead), NOTED(xcsIniUtilWrite),
            NOTED(xcsGetQMDetails), NOTED(xcsGetInstallationDetails), NOTED(xcsCompareInstallations),
            NOTED(xcsIsSubpoolActive), NOTED(xcsFreeMemFn), NOTED(xcsExecProgramHandle),
            NOTED(xcsCreateDirectory), NOTED(xcsVolumeSupportsSecurity), NOTED(xcsSaveFileContextSccsId),
            NOTED(xcsVORTFn), NOTED(zutMapRCTo8bit), NOTED(zutDisplayCSPError), NOTED(_waccess),
            NOTED(SHFileOperationW), NOTED(SetCurrentDirectoryW), NOTED(SetFileAttributesW),
            NOTED(FindFirstFileExW), NOTED(DeleteFileW), NOTED(RemoveDirectoryW),
            NOTED(AllocateAndInitializeSid), NOTED(LookupAccountNameW), NOTED(GetNamedSecurityInfoW),
            NOTED(SetEntriesInAclW), NOTED(SetNamedSecurityInfoW), NOTED(LookupPrivilegeValueW),
            NOTED(OpenProcessToken), NOTED(AdjustTokenPrivileges));
    LoadLibraryW(L"tovxcs2r.dll"); // it is there, but may not have made its slot yet
    s_nSlot = **reinterpret_cast<uint32_t**>(FindImportSlot("xihTLSIndex"));
    s_pProcess = *reinterpret_cast<XIH_PROCESS**>(FindImportSlot("xihProcess"));
    SwitchOn();
}
