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

int32_t WritePrefix(const Sandbox& sandbox, const char* pszName, const char* pszValue)
{
    return xcsIniUtilWrite("QueueManager", "Name", pszName, "Prefix", pszValue,
                           sandbox.Path("zns.ini").c_str(), 1);
}

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
    const std::tuple<const char*, const char*, int32_t> cases[] = {
        {"QM1", "E:\\new data", XCS_RC_OK},    {"QM2", "E:", XCS_RC_NOT_FOUND},
        {"qm1", "E:", XCS_RC_NOT_FOUND},       {"QM1", "E:\\a\nb", XCS_RC_BAD_VALUE},
        {"QM1", "E:\\a ", XCS_RC_BAD_VALUE},   {"QM1", "E:\\a?", XCS_RC_BAD_VALUE},
        {"QM1", "E:\\a*", XCS_RC_BAD_VALUE},   {"QM1", "\"E:\\a\"", XCS_RC_BAD_VALUE},
        {"QM1", "E:\\a|<>", XCS_RC_BAD_VALUE}, {"QM1", nullptr, XCS_RC_PARAMETER}};
    for (const auto& [pszName, pszValue, nResult] : cases)
    {
        const Sandbox sandbox(TEXT);
        EXPECT_EQ(WritePrefix(sandbox, pszName, pszValue), nResult);
        std::string strExpected = TEXT;
        if (nResult == XCS_RC_OK)
            strExpected.replace(strExpected.find("C:\\data"), 7, pszValue);
        EXPECT_EQ(sandbox.Read("zns.ini"), strExpected);
        EXPECT_THAT(sandbox.Names(), ElementsAre(L"zns.ini"));
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
        EXPECT_EQ(with([&] { return WritePrefix(sandbox, "QM1", "E:"); }), XCS_RC_SYSTEM) << pszCase;
        EXPECT_EQ(sandbox.Read("zns.ini"), TEXT) << pszCase;
        EXPECT_THAT(sandbox.Names(), ElementsAre(L"zns.ini")) << pszCase;
        EXPECT_EQ(WritePrefix(sandbox, "QM1", "E:"), XCS_RC_OK) << pszCase; // no lock is left behind
    }
    const Sandbox sandbox(TEXT); // written in parts, as a pipe or a full disk makes it happen
    ImportHook<decltype(WriteFile)> hook("WriteFile",
                                         [&](HANDLE h, const void* p, DWORD n, DWORD* pn, OVERLAPPED* o) {
                                             return hook.Real(h, p, std::min<DWORD>(n, 7), pn, o);
                                         });
    EXPECT_EQ(WritePrefix(sandbox, "QM1", "C:\\dato"), XCS_RC_OK);
    EXPECT_EQ(sandbox.Read("zns.ini"), std::string(TEXT).replace(TEXT.find("data"), 4, "dato"));
}

TEST(Config, NewFileIsBornWithTheOldFilesAccessList)
{
    const Sandbox sandbox(TEXT);
    ImportHook<decltype(GetNamedSecurityInfoW)> old(
        "GetNamedSecurityInfoW", [](auto, auto, auto, auto, auto, auto, auto, auto* ppsd) {
            return ConvertStringSecurityDescriptorToSecurityDescriptorW(L"D:(A;;FA;;;BA)(A;ID;FR;;;SY)", 1,
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
    EXPECT_EQ(WritePrefix(sandbox, "QM1", "E:"), XCS_RC_OK);
    EXPECT_THAT(lists, ElementsAre(L"D:P(A;;FA;;;BA)(A;ID;FR;;;SY)", L"D:(A;;FA;;;BA)(A;ID;FR;;;SY)"));
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

TEST(Authority, MembersOfEitherGroupOnVolumesWithAccessLists)
{
    const Sandbox sandbox;
    const std::tuple<BOOL, BOOL, SID_NAME_USE, DWORD, int32_t> cases[] = {
        {TRUE, FALSE, SidTypeAlias, FILE_PERSISTENT_ACLS, XCS_RC_OK},
        {FALSE, TRUE, SidTypeAlias, FILE_PERSISTENT_ACLS, XCS_RC_OK},
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
