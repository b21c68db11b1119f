// The library on configuration files: reading, changing in one step, queue managers, authority.
#include <windows.h>
#include <aclapi.h>
#include <sddl.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "hook.h"
#include "sandbox.h"
#include "returncodes.h"
#include "tovxcs2.h"

namespace
{
using testing::ElementsAre;

const std::string TEXT =
    "# kept\r\nQueueManager:\r\n   Name=QM1\r\n   Prefix=C:\\data\r\n   Directory=QM1\r\n";

int32_t WritePrefix(const Sandbox& sandbox, const char* pszValue)
{
    return xcsIniUtilWrite("QueueManager", "Name", "QM1", "Prefix", pszValue, sandbox.Path("zns.ini").c_str(),
                           1);
}

// The thread's ANSI code page for the life of this object. For UTF-8 a conversion refuses what Windows
// refuses.
struct ThreadCodePage
{
    UINT nCodePage;
    UINT Actual(UINT n) const { return n == CP_THREAD_ACP ? nCodePage : n; }
    ImportHook<decltype(GetCPInfoExW)> info{
        "GetCPInfoExW", [this](UINT n, auto f, auto* p) { return info.Real(Actual(n), f, p); }};
    ImportHook<decltype(MultiByteToWideChar)> widen{
        "MultiByteToWideChar", [this](UINT n, auto... args) { return widen.Real(Actual(n), args...); }};
    ImportHook<decltype(WideCharToMultiByte)> narrow{
        "WideCharToMultiByte",
        [this](UINT n, DWORD f, auto pWide, auto nWide, auto p, auto nSize, auto pDefault, auto* pfUsed) {
            if (Actual(n) == CP_UTF8 && ((f & WC_NO_BEST_FIT_CHARS) != 0 || pfUsed != nullptr))
                return SetLastError(ERROR_INVALID_PARAMETER), 0;
            return narrow.Real(Actual(n), f, pWide, nWide, p, nSize, pDefault, pfUsed);
        }};
};

TEST(Config, ReadsIntoTheCallersBuffer)
{
    const Sandbox sandbox(
        "\xEF\xBB\xBFLog:\n LogPath=12\xC3\xA4xy\n"); // UTF-8 behind a mark, whatever the code page
    const std::tuple<const char*, uint32_t, int32_t, std::string> cases[] = {
        {"LogPath", 6, XCS_RC_OK, std::string("12\xE4xy\0", 6)},
        {"LogPath", 5, XCS_RC_OK, "12\xE4xy#"},
        {"LogPath", 4, XCS_RC_TRUNCATED, "######"},
        {"None", 6, XCS_RC_NOT_FOUND, "######"}};
    for (const auto& [pszAttribute, nSize, nResult, strExpected] : cases)
    {
        std::string strBuffer(6, '#');
        uint32_t nLength = nSize;
        EXPECT_EQ(xcsIniUtilRead("Log", nullptr, nullptr, pszAttribute, strBuffer.data(), &nLength,
                                 sandbox.Path("zns.ini").c_str(), 1),
                  nResult);
        EXPECT_EQ(strBuffer, strExpected);
        EXPECT_EQ(nLength, nResult == XCS_RC_OK ? 5 : nSize);
    }
}

TEST(Config, WritesOrRefusesWithTheFileUntouched)
{
    const std::string strText = TEXT + "Log:\r\n   LogPath=C:\\data\r\n", strLong(248, 'p');
    const struct
    {
        const char* pszName; // of the queue manager; null: LogPath is written
        std::string strValue;
        int32_t nResult = XCS_RC_BAD_VALUE;
    } cases[] = {{"QM1", "E:\\new data", XCS_RC_OK},
                 {"QM1", "E:", XCS_RC_OK},
                 {"QM1", "\\\\srv\\share", XCS_RC_OK},
                 {"QM1", "E:\\" + strLong.substr(1), XCS_RC_OK}, // with \qmgrs\QM1: 260 characters
                 {nullptr, "E:\\log\\", XCS_RC_OK},
                 {"QM2", "E:", XCS_RC_NOT_FOUND},
                 {"qm1", "E:", XCS_RC_NOT_FOUND},
                 {"QM1", "E:\\" + strLong},
                 {"QM1", "E:\\a "},
                 {"QM1", "data"},
                 {"QM1", ""},
                 {"QM1", "\\\\.\\E:\\a"},
                 {"QM1", "E:\\data::$INDEX_ALLOCATION"},
                 {nullptr, "E:\\log:stream"},
                 {nullptr, "E:log"},
                 {nullptr, "E:\\a\nb"},
                 {nullptr, "E:\\a|b"},
                 {nullptr, "E:\\" + std::string(258, 'l')}};
    for (const auto& c : cases)
    {
        const Sandbox sandbox(strText);
        EXPECT_EQ(c.pszName != nullptr
                      ? xcsIniUtilWrite("QueueManager", "Name", c.pszName, "Prefix", c.strValue.c_str(),
                                        sandbox.Path("zns.ini").c_str(), 1)
                      : xcsIniUtilWrite("Log", nullptr, nullptr, "LogPath", c.strValue.c_str(),
                                        sandbox.Path("zns.ini").c_str(), 2),
                  c.nResult)
            << c.strValue;
        std::string strExpected = strText;
        if (c.nResult == XCS_RC_OK)
            strExpected.replace(strExpected.find("C:\\data", c.pszName != nullptr ? 0 : TEXT.size()), 7,
                                c.strValue);
        EXPECT_EQ(sandbox.Read("zns.ini"), strExpected);
        EXPECT_THAT(sandbox.Names(), ElementsAre(L"zns.ini"));
    }
}

// Another program has a file open for a moment, or does not let it go.
TEST(Config, TriesBusyFilesAgainForAWhile)
{
    const struct
    {
        const char* pszCase;
        DWORD nError;
        int nReads, nRenames; // how many of them fail
        int32_t nResult;
        DWORD nSlept;
        DWORD nAttributes = FILE_ATTRIBUTE_NORMAL;
    } cases[] = {{"read, access", ERROR_ACCESS_DENIED, 19, 0, XCS_RC_OK, 19 * 50},
                 {"read, sharing", ERROR_SHARING_VIOLATION, 1, 0, XCS_RC_OK, 50},
                 {"read, lock", ERROR_LOCK_VIOLATION, 1, 0, XCS_RC_OK, 50},
                 {"read, for good", ERROR_SHARING_VIOLATION, 20, 0, XCS_RC_SYSTEM, 19 * 50},
                 {"read, other", ERROR_FILE_NOT_FOUND, 1, 0, XCS_RC_SYSTEM, 0},
                 {"rename, access", ERROR_ACCESS_DENIED, 0, 3, XCS_RC_OK, 3 * 100},
                 {"rename, sharing", ERROR_SHARING_VIOLATION, 0, 19, XCS_RC_OK, 19 * 100},
                 {"rename, lock", ERROR_LOCK_VIOLATION, 0, 1, XCS_RC_OK, 100},
                 {"rename, for good", ERROR_ACCESS_DENIED, 0, 20, XCS_RC_SYSTEM, 19 * 100},
                 {"rename, other", ERROR_DISK_FULL, 0, 1, XCS_RC_SYSTEM, 0},
                 {"read-only", 0, 0, 0, XCS_RC_SYSTEM, 0, FILE_ATTRIBUTE_READONLY}};
    for (const auto& c : cases)
    {
        const Sandbox sandbox(TEXT);
        SetFileAttributesW((sandbox.root / "zns.ini").c_str(), c.nAttributes);
        int nReads = c.nReads, nRenames = c.nRenames;
        DWORD nSlept = 0;
        ImportHook<decltype(CreateFileW)> open(
            "CreateFileW", [&](auto p, auto a, auto s, auto* sa, auto d, auto f, auto t) {
                return d == OPEN_EXISTING && nReads-- > 0 ? (SetLastError(c.nError), INVALID_HANDLE_VALUE)
                                                          : open.Real(p, a, s, sa, d, f, t);
            });
        ImportHook<decltype(MoveFileExW)> rename("MoveFileExW", [&](auto pFrom, auto pTo, auto f) {
            return nRenames-- > 0 ? (SetLastError(c.nError), FALSE) : rename.Real(pFrom, pTo, f);
        });
        ImportHook<decltype(Sleep)> sleep("Sleep", [&](DWORD n) { nSlept += n; });
        EXPECT_EQ(WritePrefix(sandbox, "E:"), c.nResult) << c.pszCase;
        EXPECT_EQ(nSlept, c.nSlept) << c.pszCase;
        EXPECT_EQ(sandbox.Read("zns.ini") == TEXT, c.nResult != XCS_RC_OK) << c.pszCase;
        EXPECT_THAT(sandbox.Names(), ElementsAre(L"zns.ini")) << c.pszCase;
    }
}

TEST(Config, ConvertsToUtf8AndKeepsWhatTheCodePageLacks)
{
    const Sandbox sandbox("\xEF\xBB\xBFLog:\nLogPath=C:\\\xC3\xA4\nOther=\xE4\xBD\xA0\n");
    EXPECT_EQ(
        xcsIniUtilWrite("Log", nullptr, nullptr, "LogPath", "D:\\\xF6", sandbox.Path("zns.ini").c_str(), 1),
        XCS_RC_OK);
    EXPECT_EQ(sandbox.Read("zns.ini"), "\xEF\xBB\xBFLog:\nLogPath=D:\\\xC3\xB6\nOther=\xE4\xBD\xA0\n");
}

using Call = std::function<int32_t()>;
using Fault = std::function<int32_t(const Call&)>;

// Makes a function give a result and, as some drivers do, no error code.
template <class Function, class Result>
Fault Gives(const char* pszFunction, Result result)
{
    return [=](const Call& call) {
        ImportHook<Function, Fault> hook(pszFunction, [=](auto...) { return SetLastError(0), result; });
        return call();
    };
}
#define GIVES(function, result) std::pair(#function, Gives<decltype(function)>(#function, result))

// Each call of the replacement fails once: the old file is whole, and nothing lies beside it.
TEST(Config, SurvivesEveryFailureOfTheReplacement)
{
    const Fault creation = [](const Call& call) {
        ImportHook<decltype(CreateFileW)> hook(
            "CreateFileW", [&](auto p, auto a, auto s, auto* sa, auto d, auto f, auto t) {
                return d == CREATE_NEW ? INVALID_HANDLE_VALUE : hook.Real(p, a, s, sa, d, f, t);
            });
        return call();
    };
    const std::pair<const char*, Fault> cases[] = {
        GIVES(CreateMutexW, nullptr),
        GIVES(WaitForSingleObject, WAIT_TIMEOUT),
        GIVES(GetFileSizeEx, FALSE),
        GIVES(ReadFile, FALSE),
        GIVES(ReadFile, TRUE), // nothing read: the file shrank
        GIVES(GetNamedSecurityInfoW, ERROR_ACCESS_DENIED),
        {"name", Gives<BOOLEAN(void*, ULONG)>("SystemFunction036", BOOLEAN{FALSE})},
        GIVES(SetSecurityDescriptorControl, FALSE),
        GIVES(SetKernelObjectSecurity, FALSE),
        GIVES(WriteFile, FALSE),
        GIVES(WriteFile, TRUE), // nothing written
        GIVES(FlushFileBuffers, FALSE),
        GIVES(MoveFileExW, FALSE),
        GIVES(GetFileAttributesW, INVALID_FILE_ATTRIBUTES),
        GIVES(GetFileAttributesW, DWORD{FILE_ATTRIBUTE_READONLY}),
        {"creation", creation}};
    for (const auto& [pszCase, with] : cases)
    {
        const Sandbox sandbox(TEXT);
        EXPECT_EQ(with([&] { return WritePrefix(sandbox, "E:"); }), XCS_RC_SYSTEM) << pszCase;
        EXPECT_EQ(sandbox.Read("zns.ini"), TEXT) << pszCase;
        EXPECT_THAT(sandbox.Names(), ElementsAre(L"zns.ini")) << pszCase;
        EXPECT_EQ(WritePrefix(sandbox, "E:"), XCS_RC_OK) << pszCase; // no lock is left behind
    }
    const Sandbox sandbox(TEXT); // written in parts, as a pipe or a full disk makes it happen
    ImportHook<decltype(WriteFile)> hook("WriteFile",
                                         [&](HANDLE h, const void* p, DWORD n, DWORD* pn, OVERLAPPED* o) {
                                             return hook.Real(h, p, std::min<DWORD>(n, 7), pn, o);
                                         });
    EXPECT_EQ(WritePrefix(sandbox, "C:\\dato"), XCS_RC_OK);
    EXPECT_EQ(sandbox.Read("zns.ini"), std::string(TEXT).replace(TEXT.find("data"), 4, "dato"));
}

TEST(Config, NewFileIsBornWithTheOldFilesAccessList)
{
    const Sandbox sandbox(TEXT);
    ImportHook<decltype(GetNamedSecurityInfoW)> old(
        "GetNamedSecurityInfoW", [](auto, auto, auto, auto, auto, auto, auto, auto* ppsd) {
            return ConvertStringSecurityDescriptorToSecurityDescriptorW(L"D:AI(A;;FA;;;BA)(A;ID;FR;;;SY)", 1,
                                                                        ppsd, nullptr)
                       ? 0
                       : GetLastError();
        });
    std::vector<std::wstring> lists;
    const auto add = [&](PSECURITY_DESCRIPTOR psd) {
        wchar_t* psz = nullptr;
        ConvertSecurityDescriptorToStringSecurityDescriptorW(psd, 1, DACL_SECURITY_INFORMATION, &psz,
                                                             nullptr);
        lists.push_back(psz);
        LocalFree(psz);
    };
    ImportHook<decltype(CreateFileW)> create(
        "CreateFileW", [&](auto p, auto a, auto s, auto* sa, auto d, auto f, auto t) {
            if (d == CREATE_NEW)
            {
                add(sa->lpSecurityDescriptor);
                EXPECT_EQ(s, 0u); // nobody opens it before it has taken its place
            }
            return create.Real(p, a, s, sa, d, f, t);
        });
    ImportHook<decltype(SetKernelObjectSecurity)> set("SetKernelObjectSecurity",
                                                      [&](auto, auto, auto psd) { return add(psd), TRUE; });
    EXPECT_EQ(WritePrefix(sandbox, "E:"), XCS_RC_OK);
    EXPECT_THAT(lists, ElementsAre(L"D:PAI(A;;FA;;;BA)(A;ID;FR;;;SY)", L"D:ARAI(A;;FA;;;BA)(A;ID;FR;;;SY)"));
}

TEST(QueueManagers, DetailsAreExactOrRefused)
{
    const auto stanza = [](const std::string& strName, const std::string& strPrefix,
                           const std::string& strDirectory, const std::string& strMore = "") {
        return "QueueManager:\n Name=" + strName + "\n Prefix=" + strPrefix + "\n Directory=" + strDirectory +
               "\n " + strMore + "\n";
    };
    const std::string strName48(48, 'N'), strDir66(66, 'd'),
        strInstallation16 = "InstallationName=" + std::string(16, 'I');
    const auto longest = "C:\\" + std::string(260 - 3 - 7 - 3, 'p'); // with \qmgrs\ and QM1: 260 characters
    std::vector<std::tuple<std::string, std::string, std::string>> cases = {
        // stanza, name, data directory: empty if refused
        {stanza("QM1", "C:\\data", "QM1"), "QM1", "C:\\data\\qmgrs\\QM1"},
        {stanza("QM1", "C:", "QM1"), "QM1", "C:\\qmgrs\\QM1"},
        {stanza("QM1", "C:\\", "QM1"), "QM1", "C:\\qmgrs\\QM1"},
        {stanza("QM1", "\\\\srv\\share", "QM!1"), "QM1", "\\\\srv\\share\\qmgrs\\QM!1"},
        {stanza(strName48, "C:", strDir66, strInstallation16), strName48, "C:\\qmgrs\\" + strDir66},
        {stanza("QM1", longest, "QM1"), "QM1", longest + "\\qmgrs\\QM1"},
        {stanza("QM1", longest + "p", "QM1"), "QM1", ""},
        {stanza("QM1", "C:\\data", "QM1"), "qm1", ""},
        {stanza("QM1", "C:\\data", "QM1"), "", ""},
        {stanza(strName48 + "N", "C:", "QM1"), strName48 + "N", ""},
        {stanza("QM1", "C:", strDir66 + "d"), "QM1", ""},
        {stanza("QM1", "C:", "QM1", strInstallation16 + "I"), "QM1", ""},
        {"QueueManager:\n Name=QM1\n Directory=QM1\n", "QM1", ""},
        {"QueueManager:\n Name=QM1\n Prefix=C:\n", "QM1", ""},
        {"", "QM1", ""},
        {stanza("QM1", std::string("C:\\a\0b", 6), "QM1"), "QM1", ""},
        {"\xEF\xBB\xBF" + stanza("QM1", "C:", "a") + stanza("QM1", "D:", "b") + "cut of", "QM1",
         "C:\\qmgrs\\a"}};
    for (const char* psz :
         {"", "data", "\\data", "C:data", "C", "\\\\", "\\\\\\x", "C:\\a?", "C:\\a:b", "1:\\a"})
        cases.emplace_back(stanza("QM1", psz, "QM1"), "QM1", "");
    for (const char* psz : {"", ".", "..", "a\\b", "a/b", "\\", "a.", "*", "a:b", "a\x01"})
        cases.emplace_back(stanza("QM1", "C:", psz), "QM1", "");
    std::string strMany;
    for (int n = 0; n < 100'000; ++n)
        strMany += stanza("M" + std::to_string(n), "C:", "m");
    cases.emplace_back(strMany + stanza("QM1", "C:", "last"), "QM1", "C:\\qmgrs\\last");
    for (const auto& [strStanza, strName, strDataDirectory] : cases)
    {
        const Sandbox sandbox(strStanza);
        XCS_QM_DETAILS* pDetails = nullptr;
        EXPECT_EQ(xcsGetQMDetails(strName.c_str(), nullptr, &pDetails) == 0, !strDataDirectory.empty())
            << strStanza.substr(0, 300);
        EXPECT_EQ(pDetails != nullptr ? pDetails->szDataDirectory : "", strDataDirectory)
            << strStanza.substr(0, 300);
        xcsFreeMemFn(nullptr, 23, nullptr, pDetails);
    }
}

// In these code pages a character's second byte can be a backslash or a bar; UTF-8 has conversion rules of
// its own.
TEST(QueueManagers, PathsAreWholeCharactersInEveryCodePage)
{
    const struct
    {
        UINT nCodePage;
        std::string strPrefix, strDirectory;
    } cases[] = {{932, "D:\\\x95\\", "\x83|"},
                 {936, "D:\\\x81\\", "\x81|"},
                 {950, "D:\\\xA5\\", "\xA5|"},
                 {CP_UTF8, "D:\\\xC3\xA4", "\xE4\xBD\xA0"}};
    for (const auto& c : cases)
    {
        const ThreadCodePage codePage{c.nCodePage};
        const Sandbox sandbox("QueueManager:\n Name=QM1\n Prefix=C:\n Directory=" + c.strDirectory + "\n");
        EXPECT_EQ(WritePrefix(sandbox, c.strPrefix.c_str()), XCS_RC_OK) << c.nCodePage;
        XCS_QM_DETAILS* pDetails = nullptr;
        EXPECT_EQ(xcsGetQMDetails("QM1", nullptr, &pDetails), XCS_RC_OK) << c.nCodePage;
        EXPECT_EQ(pDetails != nullptr ? pDetails->szDataDirectory : "",
                  c.strPrefix + "\\qmgrs\\" + c.strDirectory);
        xcsFreeMemFn(nullptr, 23, nullptr, pDetails);
    }
}

TEST(Authority, MembersOfEitherGroupOnVolumesWithAccessLists)
{
    const Sandbox sandbox;
    const std::tuple<BOOL, BOOL, SID_NAME_USE, DWORD, int32_t> cases[] = {
        {TRUE, FALSE, SidTypeAlias, FILE_PERSISTENT_ACLS, XCS_RC_OK},
        {FALSE, TRUE, SidTypeAlias, FILE_PERSISTENT_ACLS, XCS_RC_OK},
        {FALSE, TRUE, SidTypeGroup, FILE_PERSISTENT_ACLS, XCS_RC_OK}, // of the domain
        {FALSE, TRUE, SidTypeUser, FILE_PERSISTENT_ACLS, XCS_RC_NOT_AUTHORIZED},
        {FALSE, FALSE, SidTypeAlias, FILE_PERSISTENT_ACLS, XCS_RC_NOT_AUTHORIZED},
        {TRUE, TRUE, SidTypeAlias, 0, XCS_RC_NO_VOLUME_SECURITY}};
    for (const auto& [fAdministrator, fZnm, eZnm, fVolume, nResult] : cases)
    {
        ImportHook<decltype(LookupAccountNameW)> lookup(
            "LookupAccountNameW", [&](auto, auto, PSID pSid, DWORD* pn, auto, auto, auto* pe) {
                return *pe = eZnm, CreateWellKnownSid(WinBuiltinGuestsSid, nullptr, pSid, pn);
            });
        ImportHook<decltype(CheckTokenMembership)> member(
            "CheckTokenMembership", [&](HANDLE, PSID pSid, BOOL* pf) {
                return *pf = IsWellKnownSid(pSid, WinBuiltinGuestsSid) ? fZnm : fAdministrator, TRUE;
            });
        ImportHook<decltype(GetVolumeInformationW)> volume(
            "GetVolumeInformationW",
            [&](auto, auto, auto, auto, auto, DWORD* pf, auto, auto) { return *pf = fVolume, TRUE; });
        EXPECT_EQ(xcsCheckAuthorization(7), nResult);
    }
}
} // namespace
