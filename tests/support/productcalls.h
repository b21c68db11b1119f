#pragma once

#include <cstring>
#include <map>

#include "tempdir.h"
#include "tracecapture.h"

// A work path with one queue manager, QM1, that does not run, and a list of the calls to the product's
// library. Each call is noted and passed on to the library, unless a test sets its result.
struct ProductCalls : TempDir
{
    ProductCalls() { Configure(); }

    void Configure(const std::string& strInstallation = "Inst1", const std::string& strOwner = "Inst1",
                   const std::string& strMore = "")
    {
        SetEnvironmentVariableW(L"ZN_WORK_PATH", root.c_str());
        WriteAll(root / "zns.ini",
                 "Installation:\n   Name=" + strInstallation + "\n   Path=" + root.string() +
                     "\n   Identity=id\\2\nQueueManager:\n   Name=QM1\n   Prefix=" + root.string() +
                     "\n   Directory=QM!1\n   InstallationName=" + strOwner + "\n" + strMore);
    }
    ptrdiff_t Count(const std::string& strCall) const { return std::ranges::count(calls, strCall); }

    std::vector<std::string> calls; // function, texts, numbers and null pointers; other pointers are left out
    std::map<std::string, int32_t> results; // of calls, or functions, that the library is not to see

  private:
    static std::string Word(const char* psz) { return psz != nullptr ? std::string(" ") + psz : " null"; }
    static std::string Word(char*) { return ""; }
    static std::string Word(const void* p) { return p != nullptr ? "" : " null"; }
    static std::string Word(int64_t n) { return " " + std::to_string(n); }

    template <class... Args>
    std::string Note(const char* pszFunction, Args... args)
    {
        return calls.emplace_back((pszFunction + ... + Word(args)));
    }
    template <class Function, class... Args>
    int32_t Pass(const char* pszFunction, Function function, Args... args)
    {
        for (const std::string& strKey : {Note(pszFunction, args...), std::string(pszFunction)})
            if (results.contains(strKey))
                return results[strKey];
        return function(args...);
    }
#define NOTED(function) Hook(function, [this](auto... args) { return Pass(#function, function, args...); })
    const Hooks m_hooks = {
        NOTED(xcsGetQMDetails), NOTED(xcsGetInstallationDetails), NOTED(xcsIsSubpoolActive),
        Hook(xcsFreeMemFn, [this](auto... args) { Note("xcsFreeMemFn", args...), xcsFreeMemFn(args...); }),
        Hook(xcsExecProgramHandle,
             [this](int n1, const char* pszProgram, int n2, const char* psz, auto p1, int n3, int n4, auto p2,
                    auto p3, auto p4, int* pnExitCode, auto p5) {
                 std::string strWords;
                 for (; *psz != '\0'; psz += std::strlen(psz) + 1)
                     strWords += std::string(" <") + psz + ">";
                 Note("exec", n1, pszProgram, n2, strWords.c_str() + 1, p1, n3, n4, p2, p3, p4, p5);
                 *pnExitCode = results["exit code"];
                 return results["exec"];
             })};
};
