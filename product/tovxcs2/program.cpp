// Runs a program to its end. Must not involve a shell or a search path, and must not let a word become two.
#include <windows.h>

#include <cstring>
#include <optional>
#include <string>

#include "operation.h"
#include "owner.h"
#include "path.h"
#include "text.h"
#include "tovxcs2.h"

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

// The command line for a list of zero-terminated words that ends in an empty word. Nothing when a word is no
// text or the line would be too long for the system.
std::optional<std::wstring> CommandLine(const char* pszWords)
{
    std::wstring strCommandLine;
    for (const char* pszWord = pszWords; *pszWord != '\0'; pszWord += std::strlen(pszWord) + 1)
    {
        const auto strWord = Widen(pszWord);
        if (!strWord)
            return std::nullopt;
        AppendQuoted(strCommandLine, *strWord);
        if (strCommandLine.size() >= MAX_COMMAND_LINE)
            return std::nullopt;
    }
    return strCommandLine;
}

// Anything else could be run by a shell, as a batch file is.
bool IsExecutable(const std::wstring& strPath)
{
    constexpr std::wstring_view EXTENSION = L".exe";
    return strPath.size() > EXTENSION.size() &&
           _wcsicmp(strPath.c_str() + strPath.size() - EXTENSION.size(), EXTENSION.data()) == 0;
}

// The program gets neither the caller's handles nor its console: what it prints is not the caller's to show.
// It runs in its own directory, so that it does not hold the caller's.
Outcome RunToEnd(const std::wstring& strProgram, std::wstring strCommandLine, int32_t& nExitCode)
{
    STARTUPINFOW startup = {};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION information = {};
    const std::wstring strDirectory = strProgram.substr(0, strProgram.find_last_of(L'\\') + 1);
    if (!CreateProcessW(strProgram.c_str(), strCommandLine.data(), nullptr, nullptr, FALSE, CREATE_NO_WINDOW,
                        nullptr, strDirectory.c_str(), &startup, &information))
        return SystemRefused();
    const KernelHandle process(information.hProcess);
    const KernelHandle thread(information.hThread);
    DWORD nCode = 0;
    if (WaitForSingleObject(process.Get(), INFINITE) != WAIT_OBJECT_0 ||
        !GetExitCodeProcess(process.Get(), &nCode))
        return SystemRefused();
    nExitCode = static_cast<int32_t>(nCode);
    return XCS_RC_OK;
}
} // namespace

int32_t xcsExecProgramHandle(int32_t, const char* pszProgram, int32_t, const char* pszArguments, void*,
                             int32_t, int32_t, void*, void*, void*, int32_t* pnResult, void*)
{
    return Operation("xcsExecProgramHandle", [&](const OperationTrace& trace) -> Outcome {
        trace.Parms("(pszProgram = %s)", pszProgram);
        if (pszProgram == nullptr || pszArguments == nullptr || pnResult == nullptr)
            return XCS_RC_PARAMETER;
        const auto strProgram = Widen(pszProgram);
        const auto strCommandLine = CommandLine(pszArguments);
        if (!strProgram || !IsAbsolutePath(*strProgram) || !IsExecutable(*strProgram) || !strCommandLine)
            return XCS_RC_PARAMETER;
        trace.Parms("command line %S", strCommandLine->c_str());
        const Outcome outcome = RunToEnd(*strProgram, *strCommandLine, *pnResult);
        if (outcome.nCode == XCS_RC_OK)
            trace.Parms("exit code %d", *pnResult);
        return outcome;
    });
}
