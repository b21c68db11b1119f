// The product's library in the test's hands: answers for one queue manager, which exists, and a list of the
// calls. Checks the constant arguments, and that each record handed out comes back, once and in the agreed
// way.
#pragma once

#include <cstring>
#include <map>

#include "tempdir.h"
#include "tracecapture.h"

struct Library
{
    ~Library() { EXPECT_EQ(nHeld, 0); }

    std::string strInstallationOfQM = "Inst1", strDataDirectory = "D:\\data\\qmgrs\\QM1",
                strLogPath = "D:\\log\\QM1\\";
    std::map<std::string, int>
        lookups;             // results of installation look-ups by name; "" stands for the primary one
    int nDetailsLeft = 1000; // look-ups of the queue manager that still succeed
    int nActiveResult = 1, nExecResult = 0, nExitCode = 0;
    uint8_t fFlags = 0;
    std::vector<std::string> calls;
    int nHeld = 0;

    template <class... Words>
    void Call(const Words&... words)
    {
        std::string strCall;
        (((strCall += strCall.empty() ? "" : " ") += words), ...);
        calls.push_back(strCall);
    }
    static std::string Text(const char* psz) { return psz != nullptr ? psz : "null"; }
    static void AreNull(std::initializer_list<void*> reserved)
    {
        EXPECT_THAT(reserved, testing::Each(nullptr));
    }

    template <class Record>
    Record* Hold(Record** ppRecord)
    {
        return ++nHeld, *ppRecord = new Record{};
    }

    template <class Signature>
    using Hook = ImportHook<Signature, Library>; // each signature stands once
    Hook<decltype(xcsGetQMDetails)> details{
        "xcsGetQMDetails", [this](const char* pszName, auto, XCS_QM_DETAILS** pp) {
            Call("details", pszName);
            if (nDetailsLeft-- <= 0)
                return 1;
            XCS_QM_DETAILS* const p = Hold(pp);
            std::strcpy(p->szName, pszName);
            std::strcpy(p->szDirectory, "QM1");
            std::strcpy(p->szDataDirectory, strDataDirectory.c_str());
            std::strcpy(p->szInstallationName, strInstallationOfQM.c_str());
            std::strcpy(p->szSubpool, "sub");
            p->fFlags = fFlags;
            return 0;
        }};
    Hook<decltype(xcsGetInstallationDetails)> installation{
        "xcsGetInstallationDetails", [this](const char* pszName, void* p1, void* p2, int nSelector, void* p3,
                                            auto, XCS_INSTALLATION_DETAILS** pp) {
            AreNull({p1, p2, p3});
            const std::string strName = pszName != nullptr ? pszName : "";
            Call("installation", std::to_string(nSelector), Text(pszName));
            if (lookups[strName] != 0)
                return lookups[strName];
            XCS_INSTALLATION_DETAILS* const p = Hold(pp);
            std::strcpy(p->szName, strName.c_str());
            std::strcpy(p->szPath, "C:\\Prog");
            std::strcpy(p->szIdentity, "id");
            return 0;
        }};
    Hook<decltype(xcsCompareInstallations)> compare{
        "xcsCompareInstallations",
        [](const void* p, const char* psz) { return std::strcmp(static_cast<const char*>(p), psz); }};
    Hook<decltype(xcsFreeMemFn)> freeMem{"xcsFreeMemFn", [this](void* p1, int n, void* p2, void* pRecord) {
                                             AreNull({p1, p2});
                                             EXPECT_EQ(n, 23);
                                             ::operator delete(pRecord);
                                             --nHeld;
                                         }};
    Hook<decltype(xcsIsSubpoolActive)> active{
        "xcsIsSubpoolActive",
        [this](const char* pszSubpool, const char* pszDirectory, void* p, int n, const char* pszId) {
            AreNull({p});
            Call("active", pszSubpool, pszDirectory, std::to_string(n), pszId);
            return nActiveResult;
        }};
    Hook<decltype(xcsExecProgramHandle)> exec{
        "xcsExecProgramHandle", [this](int n1, const char* pszProgram, int n2, const char* psz, void* p1,
                                       int n3, int n4, void* p2, void* p3, void* p4, int* pn, void* p5) {
            AreNull({p1, p2, p3, p4, p5});
            EXPECT_THAT(std::vector({n1, n2, n3, n4}), testing::ElementsAre(31, 1, 2, 34));
            std::string strWords;
            for (; *psz != '\0'; psz += std::strlen(psz) + 1)
                strWords += std::string("<") + psz + ">";
            Call("exec", pszProgram, strWords);
            *pn = nExitCode;
            return nExecResult;
        }};
    Hook<decltype(xcsGetIniFilename)> name{"xcsGetIniFilename",
                                           [this](const char* psz, char* pszFile, uint32_t* pn) {
                                               Call("name", Text(psz));
                                               std::strcpy(pszFile, psz != nullptr ? "qm.ini" : "zns.ini");
                                               *pn = psz != nullptr ? 7 : 9;
                                               return 0;
                                           }};
    Hook<decltype(xcsIniUtilRead)> read{
        "xcsIniUtilRead", [this](auto psz1, auto psz2, auto psz3, auto psz4, char* pszBuffer,
                                 uint32_t* pnLength, auto pszFile, uint32_t n) {
            Call("read", psz1, Text(psz2), Text(psz3), psz4, std::to_string(*pnLength), pszFile,
                 std::to_string(n));
            std::memset(pszBuffer, '#', *pnLength);
            std::memcpy(pszBuffer, strLogPath.data(), std::min<size_t>(strLogPath.size(), *pnLength));
            *pnLength = static_cast<uint32_t>(strLogPath.size());
            return 0;
        }};
    Hook<decltype(xcsIniUtilWrite)> write{
        "xcsIniUtilWrite",
        [this](auto psz1, auto psz2, auto psz3, auto psz4, auto psz5, auto pszFile, uint32_t n) {
            Call("write", psz1, Text(psz2), Text(psz3), psz4, psz5, pszFile, std::to_string(n));
            return 0;
        }};
};

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
    std::map<std::string, int32_t> results; // of functions that are not to be called

  private:
    static std::string Word(const char* psz) { return psz != nullptr ? std::string(" ") + psz : " null"; }
    static std::string Word(char*) { return ""; }
    static std::string Word(const void* p) { return p != nullptr ? "" : " null"; }
    static std::string Word(int64_t n) { return " " + std::to_string(n); }

    template <class Hook, class... Args>
    int32_t Pass(const char* pszFunction, const Hook& hook, Args... args)
    {
        calls.push_back((pszFunction + ... + Word(args)));
        return results.contains(pszFunction) ? results[pszFunction] : hook.Real(args...);
    }
#define NOTE(function)                                                                                       \
    ImportHook<decltype(function), ProductCalls> m_##function                                                \
    {                                                                                                        \
#function, [this](auto... args) { return Pass(#function, m_##function, args...); }                   \
    }
    NOTE(xcsGetQMDetails);
    NOTE(xcsGetInstallationDetails);
    NOTE(xcsIsSubpoolActive);
    NOTE(xcsGetIniFilename);
    NOTE(xcsIniUtilRead);
    NOTE(xcsIniUtilWrite);
    ImportHook<decltype(xcsFreeMemFn), ProductCalls> m_free{"xcsFreeMemFn", [this](auto... args) {
                                                                calls.push_back(
                                                                    ("xcsFreeMemFn" + ... + Word(args)));
                                                                m_free.Real(args...);
                                                            }};
    ImportHook<decltype(xcsExecProgramHandle), ProductCalls> m_exec{
        "xcsExecProgramHandle", [this](int n1, const char* pszProgram, int n2, const char* psz, auto p1,
                                       int n3, int n4, auto p2, auto p3, auto p4, int* pnExitCode, auto p5) {
            std::string strWords;
            for (; *psz != '\0'; psz += std::strlen(psz) + 1)
                strWords += std::string(" <") + psz + ">";
            calls.push_back("exec" + Word(n1) + Word(pszProgram) + Word(n2) + strWords + Word(p1) + Word(n3) +
                            Word(n4) + Word(p2) + Word(p3) + Word(p4) + Word(p5));
            *pnExitCode = results["exit code"];
            return results["exec"];
        }};
};
