// Runs a program to its end. Must not involve a shell or a search path, and must not let a word become two.
#include <windows.h>

#include <string>

#include "config.h"
#include "owner.h"
#include "returncodes.h"
#include "text.h"
#include "tovxcs2.h"
#include "trace.h"

namespace
{
constexpr size_t MAX_COMMAND_LINE = 32767; // with its terminator

// By the rules that programs take their command lines apart with: backslashes are doubled only in front of a
// quotation mark.
void AppendQuoted(std::wstring& strCommandLine, std::wstring_view strWord)
{
    if (!strCommandLine.empty())
        strCommandLine += L' ';
    strCommandLine += L'"';
    size_t nBackslashes = 0;
    for (const wchar_t ch : strWord)
    {
        if (ch == L'"')
            strCommandLine.append(nBackslashes + 1, L'\\');
        nBackslashes = ch == L'\\' ? nBackslashes + 1 : 0;
        strCommandLine += ch;
    }
    strCommandLine.append(nBackslashes, L'\\').append(L"\"");
}

// A batch file, say, would be run by a shell.
bool IsExecutable(const std::wstring& strPath)
{
    constexpr std::wstring_view EXTENSION = L".exe";
    return strPath.size() > EXTENSION.size() &&
           CompareStringOrdinal(strPath.c_str() + strPath.size() - EXTENSION.size(), -1, EXTENSION.data(), -1,
                                TRUE) == CSTR_EQUAL;
}
} // namespace

int32_t xcsExecProgramHandle(int32_t, const char* pszProgram, int32_t, const char* pszArguments, void*,
                             int32_t, int32_t, void*, void*, void*, int32_t* pnResult, void*)
try
{
    OperationTrace trace("xcsExecProgramHandle");
    trace.Parms("(pszProgram = %s)", pszProgram);
    if (pszProgram == nullptr || pszArguments == nullptr || pnResult == nullptr)
        return trace.Return(XCS_RC_PARAMETER);
    const auto strProgram = Widen(pszProgram);
    if (!strProgram || !IsAbsolutePath(*strProgram) || !IsExecutable(*strProgram))
        return trace.Return(XCS_RC_PARAMETER);
    std::wstring strCommandLine;
    for (const char* pszWord = pszArguments; *pszWord != '\0';
         pszWord += std::char_traits<char>::length(pszWord) + 1)
    {
        const auto strWord = Widen(pszWord);
        if (!strWord)
            return trace.Return(XCS_RC_PARAMETER);
        AppendQuoted(strCommandLine, *strWord);
        if (strCommandLine.size() >= MAX_COMMAND_LINE)
            return trace.Return(XCS_RC_PARAMETER);
    }

    trace.Parms("command line %S", strCommandLine.c_str());

    // Neither the caller's handles nor its console: what the program prints is not the caller's to show. It
    // stands in its own directory, so that the caller's is not in its way.
    STARTUPINFOW startup = {};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION information = {};
    const std::wstring strDirectory = strProgram->substr(0, strProgram->find_last_of(L'\\') + 1);
    if (!CreateProcessW(strProgram->c_str(), strCommandLine.data(), nullptr, nullptr, FALSE, CREATE_NO_WINDOW,
                        nullptr, strDirectory.c_str(), &startup, &information))
    {
        const DWORD nError = GetLastError();
        return trace.Return(XCS_RC_SYSTEM, nError);
    }
    const KernelHandle process(information.hProcess);
    const KernelHandle thread(information.hThread);
    DWORD nExitCode = 0;
    if (WaitForSingleObject(process.Get(), INFINITE) != WAIT_OBJECT_0 ||
        !GetExitCodeProcess(process.Get(), &nExitCode))
        return trace.Return(XCS_RC_SYSTEM);
    *pnResult = static_cast<int32_t>(nExitCode);
    trace.Parms("exit code %d", *pnResult);
    return trace.Return(XCS_RC_OK);
}
catch (...)
{
    return XCS_RC_NO_MEMORY; // nothing else is raised
}
