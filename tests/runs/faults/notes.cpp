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
int s_nDepth = 0;
XCS_CONNECTION s_initialized = {};

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
std::string Word(char* psz) // room for an answer
{
    return Word(static_cast<const void*>(psz));
}
std::string Word(long long n)
{
    char szText[32] = {};
    std::snprintf(szText, sizeof szText, n > 0xFFFF ? "%llX" : "%lld", n);
    return szText;
}
template <class Number>
requires std::is_arithmetic_v<Number> || std::is_enum_v<Number> std::string Word(Number number)
{
    return Word(static_cast<long long>(number));
}
template <class Number>
requires(std::is_arithmetic_v<Number> && sizeof(Number) > sizeof(wchar_t)) std::string Word(Number* p)
{
    return p != nullptr ? "*" + Word(*p) : "null";
}
std::string Word(const XCS_CONNECTION* p)
{
    const auto is = [&](const XCS_CONNECTION& other) {
        return p->nHandle == other.nHandle && p->nProcess == other.nProcess;
    };
    return is({}) ? "empty" : is(s_initialized) ? "connection" : "damaged";
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
    static void Note(Args... args)
    {
        std::string str = NAME.szText;
        ((str += " " + Word(args)), ...);
        const auto all = std::tie(args...);
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
            if (std::get<1>(all) != FindExInfoStandard)
                return;
        if constexpr (FUNCTION == "DeleteFileW") // a file of the program's own
            if (std::wcsstr(std::get<0>(all), L".tmp") != nullptr)
                return;
        if constexpr (FUNCTION == "SetErrorMode") // the others are the parent's
            str = "SetErrorMode " + Word(std::get<0>(all) & SEM_FAILCRITICALERRORS);
        Line(str);
    }
    static Result Call(Args... args)
    {
        Note(args...);
        const struct Switch
        {
            Switch() { SwitchOff(); }
            ~Switch() { SwitchOn(); }
        } off;
        if constexpr (FUNCTION == "xcsInitializeEx")
        {
            const Result result = s_pReal(args...);
            s_initialized = *std::get<7>(std::tie(args...));
            return result;
        }
        else
            return s_pReal(args...);
    }
};
#define NOTED(function) &Noted<FunctionName{#function}, decltype(function)>::Set

void Replace(const char* pszFunction, auto* pfn)
{
    WriteImportSlot(FindImportSlot(pszFunction), reinterpret_cast<void*>(pfn));
}

// Component 42 goes without saying.
std::string Function(int nComponent, int nFunction)
{
    return Word(nFunction) + (nComponent == 42 ? "" : " of component " + Word(nComponent));
}
void NoteEntry(XTR_THREAD_AREA*, int nComponent, int nFunction)
{
    Line("> " + Function(nComponent, nFunction));
    ++s_nDepth;
}
void NoteExit(XTR_THREAD_AREA*, int nComponent, int nFunction, int nReturnCode)
{
    s_nDepth -= s_nDepth > 0 ? 1 : 0;
    Line("< " + Function(nComponent, nFunction) + " " + Word(nReturnCode));
}
void NoteText(int nComponent, int nFunction, XTR_THREAD_AREA*, int nReserved, const char* pszText)
{
    Line("- " + Function(nComponent, nFunction) + " " + pszText + (nReserved == 0 ? "" : " and more"));
}
[[gnu::format(printf, 1, 2)]] void NoteParms(const char* pszFormat, ...)
{
    char szText[1 << 14] = {};
    va_list args;
    va_start(args, pszFormat);
    _vsnprintf(szText, sizeof szText - 1, pszFormat, args);
    va_end(args);
    const uint32_t n = s_area.nCurrentFunction;
    Line("= " + Function(n & 0xFFFF, n >> 16) + " " + szText);
}

PSECURITY_DESCRIPTOR Descriptor()
{
    PSECURITY_DESCRIPTOR pDescriptor = nullptr;
    ConvertStringSecurityDescriptorToSecurityDescriptorW(
        L"O:SYG:SYD:(A;;FA;;;BA)(D;;FA;;;BG)(A;;FA;;;SY)(A;;FR;;;WD)", SDDL_REVISION_1, &pDescriptor,
        nullptr);
    return pDescriptor;
}
BOOL WINAPI LookUp(LPCWSTR, LPCWSTR, PSID pSid, LPDWORD pnSize, LPWSTR, LPDWORD, PSID_NAME_USE)
{
    static PSID s_pOwner = nullptr;
    BOOL fDefault = FALSE;
    GetSecurityDescriptorOwner(Descriptor(), &s_pOwner, &fDefault);
    return CopySid(*pnSize, pSid, s_pOwner);
}
DWORD WINAPI GetSecurity(LPCWSTR, SE_OBJECT_TYPE, SECURITY_INFORMATION, PSID*, PSID*, PACL* ppDacl, PACL*,
                         PSECURITY_DESCRIPTOR* ppDescriptor)
{
    BOOL fPresent = FALSE, fDefault = FALSE;
    *ppDescriptor = Descriptor();
    return GetSecurityDescriptorDacl(*ppDescriptor, &fPresent, ppDacl, &fDefault) ? 0 : GetLastError();
}
DWORD WINAPI SetSecurity(LPWSTR, SE_OBJECT_TYPE, SECURITY_INFORMATION, PSID, PSID, PACL, PACL)
{
    return ERROR_SUCCESS;
}
} // namespace

// Before the faults are set, so that these calls can be made to fail too.
void AnswerAlways()
{
    const char* const pszFile = std::getenv("ZN_FAULTS_NOTES");
    s_pNotes = pszFile != nullptr && *pszFile != '\0' ? std::fopen(pszFile, "wb") : nullptr;
    if (s_pNotes == nullptr)
        return;
    Replace("LookupAccountNameW", &LookUp);
    Replace("GetNamedSecurityInfoW", &GetSecurity);
    Replace("SetNamedSecurityInfoW", &SetSecurity);
}

// After the faults are set: a call that fails is noted too.
void NoteCalls()
{
    if (s_pNotes == nullptr)
        return;
    Replace("xtr_FNC_entry", &NoteEntry);
    Replace("xtr_FNC_retcode", &NoteExit);
    Replace("xtr_FNC_text", &NoteText);
    Replace("xtr_parms", &NoteParms);
    for (const auto pfnSet : {NOTED(SetErrorMode),
                              NOTED(SetDllDirectoryW),
                              NOTED(xtrEstablishTraceStatus),
                              NOTED(xcsCheckConsistency),
                              NOTED(xcsInitializeEx),
                              NOTED(xcsCheckAuthorization),
                              NOTED(xcsTerminate),
                              NOTED(xcsGetIniFilename),
                              NOTED(xcsIniUtilRead),
                              NOTED(xcsIniUtilWrite),
                              NOTED(xcsGetQMDetails),
                              NOTED(xcsGetInstallationDetails),
                              NOTED(xcsCompareInstallations),
                              NOTED(xcsIsSubpoolActive),
                              NOTED(xcsFreeMemFn),
                              NOTED(xcsExecProgramHandle),
                              NOTED(xcsCreateDirectory),
                              NOTED(xcsVolumeSupportsSecurity),
                              NOTED(xcsSaveFileContextSccsId),
                              NOTED(xcsVORTFn),
                              NOTED(zutMapRCTo8bit),
                              NOTED(zutDisplayCSPError),
                              NOTED(_waccess),
                              NOTED(SHFileOperationW),
                              NOTED(SetCurrentDirectoryW),
                              NOTED(SetFileAttributesW),
                              NOTED(FindFirstFileExW),
                              NOTED(DeleteFileW),
                              NOTED(RemoveDirectoryW),
                              NOTED(AllocateAndInitializeSid),
                              NOTED(LookupAccountNameW),
                              NOTED(GetNamedSecurityInfoW),
                              NOTED(SetEntriesInAclW),
                              NOTED(SetNamedSecurityInfoW),
                              NOTED(LookupPrivilegeValueW),
                              NOTED(OpenProcessToken),
                              NOTED(AdjustTokenPrivileges)})
        pfnSet();
    LoadLibraryW(L"tovxcs2r.dll"); // it is there, but may not have made its slot yet
    s_nSlot = **reinterpret_cast<uint32_t**>(FindImportSlot("xihTLSIndex"));
    s_pProcess = *reinterpret_cast<XIH_PROCESS**>(FindImportSlot("xihProcess"));
    SwitchOn();
}
