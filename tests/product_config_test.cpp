// The library on configuration files: reading, changing in one step, queue managers, installations,
// authority, volumes.
#include <windows.h>
#include <aclapi.h>
#include <sddl.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "config.h"
#include "hook.h"
#include "owner.h"
#include "product_sandbox.h"
#include "returncodes.h"
#include "tovxcs2.h"

namespace {
using testing::ElementsAre;

const std::string TEXT = "# kept\r\nQueueManager:\r\n   Name=QM1\r\n   Prefix=C:\\data\r\n   Directory=QM1\r\n";

int32_t WritePrefix(const Sandbox& sandbox, const char* pszName, const char* pszValue) {
    return xcsIniUtilWrite("QueueManager", "Name", pszName, "Prefix", pszValue, sandbox.Path("zns.ini").c_str(), 1);
}

TEST(Config, ReadsIntoTheCallersBuffer) {
    const Sandbox sandbox("Log:\n LogPath=12345\nBad:\n A=a\n");
    const struct {
        const char* pszAttribute;
        uint32_t nSize;
        int32_t nResult;
        std::string strBuffer; // of six '#'
    } cases[] = {
        {"LogPath", 6, XCS_RC_OK, std::string("12345\0", 6)},
        {"LogPath", 5, XCS_RC_OK, "12345#"},
        {"LogPath", 4, XCS_RC_TRUNCATED, "######"},
        {"None", 6, XCS_RC_NOT_FOUND, "######"},
    };
    for (const auto& c : cases) {
        std::string strBuffer(6, '#');
        uint32_t nLength = c.nSize;
        EXPECT_EQ(xcsIniUtilRead("Log", nullptr, nullptr, c.pszAttribute, strBuffer.data(), &nLength, sandbox.Path("zns.ini").c_str(), 1),
            c.nResult);
        EXPECT_EQ(strBuffer, c.strBuffer);
        EXPECT_EQ(nLength, c.nResult == XCS_RC_OK ? 5 : c.nSize);
    }
}

TEST(Config, WritesOrRefusesWithTheFileUntouched) {
    const struct {
        const char *pszName, *pszValue;
        int32_t nResult;
    } cases[] = {
        {"QM1", "E:\\new data", XCS_RC_OK},
        {"QM2", "E:", XCS_RC_NOT_FOUND},
        {"qm1", "E:", XCS_RC_NOT_FOUND},
        {"QM1", "E:\\a\nb", XCS_RC_BAD_VALUE},
        {"QM1", "E:\\a ", XCS_RC_BAD_VALUE},
        {"QM1", "E:\\a?", XCS_RC_BAD_VALUE},
        {"QM1", "E:\\a*", XCS_RC_BAD_VALUE},
        {"QM1", "\"E:\\a\"", XCS_RC_BAD_VALUE},
        {"QM1", "E:\\a|<>", XCS_RC_BAD_VALUE},
        {"QM1", nullptr, XCS_RC_PARAMETER},
    };
    for (const auto& c : cases) {
        const Sandbox sandbox(TEXT);
        EXPECT_EQ(WritePrefix(sandbox, c.pszName, c.pszValue), c.nResult);
        std::string strExpected = TEXT;
        if (c.nResult == XCS_RC_OK) strExpected.replace(strExpected.find("C:\\data"), 7, c.pszValue);
        EXPECT_EQ(sandbox.Read("zns.ini"), strExpected);
        EXPECT_THAT(sandbox.Names(), ElementsAre("zns.ini"));
    }
}

// Behind a byte-order mark a file is UTF-8, whatever the thread's code page.
TEST(Config, ConvertsToAndFromUtf8) {
    const Sandbox sandbox("\xEF\xBB\xBFLog:\nLogPath=C:\\\xC3\xA4\nOther=\xE4\xBD\xA0\n");
    const std::string strIni = sandbox.Path("zns.ini");
    char szValue[20];
    uint32_t nLength = sizeof szValue;
    ASSERT_EQ(GetACP(), 1252u);
    EXPECT_EQ(xcsIniUtilRead("Log", nullptr, nullptr, "LogPath", szValue, &nLength, strIni.c_str(), 1), XCS_RC_OK);
    EXPECT_STREQ(szValue, "C:\\\xE4");
    EXPECT_EQ(xcsIniUtilRead("Log", nullptr, nullptr, "Other", szValue, &nLength, strIni.c_str(), 1), XCS_RC_NOT_FOUND);
    EXPECT_EQ(xcsIniUtilWrite("Log", nullptr, nullptr, "LogPath", "D:\\\xF6", strIni.c_str(), 1), XCS_RC_OK);
    EXPECT_EQ(sandbox.Read("zns.ini"), "\xEF\xBB\xBFLog:\nLogPath=D:\\\xC3\xB6\nOther=\xE4\xBD\xA0\n");
}

using Call = std::function<int32_t()>;
using Fault = std::function<int32_t(const Call&)>;

// Makes a function give a result and, as some drivers do, no error code.
template <class Function, class Result> Fault Gives(const char* pszFunction, Result result) {
    return [=](const Call& call) {
        ImportHook<Function, Fault> hook(pszFunction, [=](auto...) { return SetLastError(0), result; });
        return call();
    };
}
#define GIVES(function, result)                                                                                                            \
    { #function, Gives < decltype(function)>(#function, result) }

// Each call of the replacement fails once: the old file is whole, and nothing lies beside it.
TEST(Config, SurvivesEveryFailureOfTheReplacement) {
    const std::pair<const char*, Fault> cases[] = {
        GIVES(CreateMutexW, nullptr),
        GIVES(WaitForSingleObject, WAIT_TIMEOUT),
        GIVES(GetFileSizeEx, FALSE),
        GIVES(ReadFile, FALSE),
        GIVES(ReadFile, TRUE), // nothing read: the file shrank
        GIVES(GetNamedSecurityInfoW, ERROR_ACCESS_DENIED),
        {"random name", Gives<BOOLEAN(void*, ULONG)>("SystemFunction036", BOOLEAN{FALSE})},
        GIVES(SetSecurityDescriptorControl, FALSE),
        GIVES(SetKernelObjectSecurity, FALSE),
        GIVES(WriteFile, FALSE),
        GIVES(WriteFile, TRUE), // nothing written
        GIVES(FlushFileBuffers, FALSE),
        GIVES(MoveFileExW, FALSE),
        GIVES(GetFileAttributesW, INVALID_FILE_ATTRIBUTES),
        GIVES(GetFileAttributesW, DWORD{FILE_ATTRIBUTE_READONLY}),
        {"creation",
            [](const Call& call) {
                ImportHook<decltype(CreateFileW)> hook("CreateFileW", [&](auto p, auto a, auto s, auto* sa, auto d, auto f, auto t) {
                    return d == CREATE_NEW ? INVALID_HANDLE_VALUE : hook.Real(p, a, s, sa, d, f, t);
                });
                return call();
            }},
    };
    for (const auto& [pszCase, with] : cases) {
        const Sandbox sandbox(TEXT);
        EXPECT_EQ(with([&] { return WritePrefix(sandbox, "QM1", "E:"); }), XCS_RC_SYSTEM) << pszCase;
        EXPECT_EQ(sandbox.Read("zns.ini"), TEXT) << pszCase;
        EXPECT_THAT(sandbox.Names(), ElementsAre("zns.ini")) << pszCase;
        EXPECT_EQ(WritePrefix(sandbox, "QM1", "E:"), XCS_RC_OK) << pszCase; // no lock is left behind
    }
}

// Written in parts, as a pipe or a full disk makes it happen.
TEST(Config, ContinuesShortWrites) {
    const Sandbox sandbox(TEXT);
    ImportHook<decltype(WriteFile)> hook("WriteFile",
        [&](HANDLE h, const void* p, DWORD n, DWORD* pn, OVERLAPPED* o) { return hook.Real(h, p, std::min<DWORD>(n, 7), pn, o); });
    EXPECT_EQ(WritePrefix(sandbox, "QM1", "E:\\longer than it was"), XCS_RC_OK);
    EXPECT_EQ(sandbox.Read("zns.ini").size(), TEXT.size() - 7 + 21);
}

TEST(Config, NewFileIsBornWithTheOldFilesAccessListUnderAFreshName) {
    const Sandbox sandbox(TEXT);
    ImportHook<decltype(GetNamedSecurityInfoW)> old(
        "GetNamedSecurityInfoW", [](LPCWSTR, SE_OBJECT_TYPE, SECURITY_INFORMATION, PSID*, PSID*, PACL*, PACL*, PSECURITY_DESCRIPTOR* ppsd) {
            return ConvertStringSecurityDescriptorToSecurityDescriptorW(L"D:(A;;FA;;;BA)(A;ID;FR;;;SY)", 1, ppsd, nullptr) ? 0
                                                                                                                           : GetLastError();
        });
    std::vector<std::wstring> names, lists;
    DWORD fShare = 0;
    const auto text = [](PSECURITY_DESCRIPTOR psd) {
        wchar_t* psz = nullptr;
        ConvertSecurityDescriptorToStringSecurityDescriptorW(psd, 1, DACL_SECURITY_INFORMATION, &psz, nullptr);
        const LocalBlock owner(psz);
        return std::wstring(psz);
    };
    ImportHook<decltype(CreateFileW)> create(
        "CreateFileW", [&](LPCWSTR p, DWORD a, DWORD s, SECURITY_ATTRIBUTES* sa, DWORD d, DWORD f, HANDLE t) {
            if (d == CREATE_NEW) {
                names.push_back(p);
                lists.push_back(sa != nullptr ? text(sa->lpSecurityDescriptor) : L"");
                fShare |= s;
            }
            return create.Real(p, a, s, sa, d, f, t);
        });
    ImportHook<decltype(SetKernelObjectSecurity)> set(
        "SetKernelObjectSecurity", [&](HANDLE, SECURITY_INFORMATION, PSECURITY_DESCRIPTOR psd) {
            lists.push_back(text(psd));
            return TRUE;
        });
    EXPECT_EQ(WritePrefix(sandbox, "QM1", "E:"), XCS_RC_OK);
    EXPECT_EQ(WritePrefix(sandbox, "QM1", "F:"), XCS_RC_OK);
    ASSERT_EQ(names.size(), 2u);
    EXPECT_NE(names[0], names[1]);
    EXPECT_EQ(fShare, 0u); // nobody opens it before it has taken its place
    const std::wstring strBorn = L"D:P(A;;FA;;;BA)(A;ID;FR;;;SY)", strThen = L"D:(A;;FA;;;BA)(A;ID;FR;;;SY)";
    EXPECT_THAT(lists, ElementsAre(strBorn, strThen, strBorn, strThen));
}

TEST(QueueManagers, DetailsAreExactOrRefused) {
    const std::string strName48(48, 'N'), strDir66(66, 'd'), strInstallation16(16, 'I');
    const auto stanza = [](const std::string& strName, const std::string& strPrefix, const std::string& strDirectory,
                            const std::string& strMore = "") {
        return "QueueManager:\n Name=" + strName + "\n Prefix=" + strPrefix + "\n Directory=" + strDirectory + "\n " + strMore + "\n";
    };
    const auto longest = "C:\\" + std::string(260 - 3 - 7 - 3, 'p'); // with \qmgrs\ and QM1: 260 characters
    const struct {
        std::string strStanza, strName;
        std::optional<std::string> strDataDirectory; // nothing: refused
    } cases[] = {
        {stanza("QM1", "C:\\data", "QM1"), "QM1", "C:\\data\\qmgrs\\QM1"},
        {stanza("QM1", "C:", "QM1"), "QM1", "C:\\qmgrs\\QM1"},
        {stanza("QM1", "C:\\", "QM1"), "QM1", "C:\\qmgrs\\QM1"},
        {stanza("QM1", "\\\\srv\\share", "QM!1"), "QM1", "\\\\srv\\share\\qmgrs\\QM!1"},
        {stanza(strName48, "C:", strDir66, "InstallationName=" + strInstallation16), strName48, "C:\\qmgrs\\" + strDir66},
        {stanza("QM1", longest, "QM1"), "QM1", longest + "\\qmgrs\\QM1"},
        {stanza("QM1", longest + "p", "QM1"), "QM1", std::nullopt},
        {stanza("QM1", "C:\\data", "QM1"), "qm1", std::nullopt},
        {stanza("QM1", "C:\\data", "QM1"), "", std::nullopt},
        {stanza(strName48 + "N", "C:", "QM1"), strName48 + "N", std::nullopt},
        {stanza("QM1", "C:", strDir66 + "d"), "QM1", std::nullopt},
        {stanza("QM1", "C:", "QM1", "InstallationName=" + strInstallation16 + "I"), "QM1", std::nullopt},
        {"QueueManager:\n Name=QM1\n Directory=QM1\n", "QM1", std::nullopt},
        {"QueueManager:\n Name=QM1\n Prefix=C:\n", "QM1", std::nullopt},
    };
    for (const auto& c : cases) {
        const Sandbox sandbox(c.strStanza);
        XCS_QM_DETAILS* pDetails = nullptr;
        const int32_t nResult = xcsGetQMDetails(c.strName.c_str(), nullptr, &pDetails);
        ASSERT_EQ(nResult == 0, c.strDataDirectory.has_value()) << c.strStanza;
        ASSERT_EQ(pDetails != nullptr, nResult == 0);
        if (pDetails != nullptr) {
            EXPECT_EQ(pDetails->szDataDirectory, c.strDataDirectory);
            EXPECT_EQ(pDetails->szName, c.strName);
            EXPECT_EQ(pDetails->fFlags, 0);
        }
        xcsFreeMemFn(nullptr, 23, nullptr, pDetails);
    }
    for (const char* pszPrefix : {"", "data", "\\data", "C:data", "C", "\\\\", "\\\\\\x", "C:\\a?", "C:\\a:b", "1:\\a"}) {
        const Sandbox sandbox(stanza("QM1", pszPrefix, "QM1"));
        XCS_QM_DETAILS* pDetails = nullptr;
        EXPECT_NE(xcsGetQMDetails("QM1", nullptr, &pDetails), 0) << pszPrefix;
    }
    for (const char* pszDirectory : {"", ".", "..", "a\\b", "a/b", "\\", "a.", "*", "a:b", "a\x01"}) {
        const Sandbox sandbox(stanza("QM1", "C:\\data", pszDirectory));
        XCS_QM_DETAILS* pDetails = nullptr;
        EXPECT_NE(xcsGetQMDetails("QM1", nullptr, &pDetails), 0) << pszDirectory;
    }
}

TEST(QueueManagers, FlagAndConfigurationFileName) {
    const Sandbox sandbox("QueueManager:\n Name=QM1\n Prefix=C:\\d\n Directory=dir\n MultiInstance=Yes\n");
    XCS_QM_DETAILS* pDetails = nullptr;
    ASSERT_EQ(xcsGetQMDetails("QM1", nullptr, &pDetails), XCS_RC_OK);
    EXPECT_EQ(pDetails->fFlags, XCS_QM_MULTI_INSTANCE);
    xcsFreeMemFn(nullptr, 23, nullptr, pDetails);
    char szFile[XCS_PATH_SIZE];
    uint32_t nType = 0;
    EXPECT_EQ(xcsGetIniFilename("QM1", szFile, &nType), XCS_RC_OK);
    EXPECT_STREQ(szFile, "C:\\d\\qmgrs\\dir\\qm.ini");
    EXPECT_EQ(xcsGetIniFilename(nullptr, szFile, &nType), XCS_RC_OK);
    EXPECT_EQ(szFile, sandbox.Path("zns.ini"));
    EXPECT_NE(xcsGetIniFilename("QM2", szFile, &nType), XCS_RC_OK);
}

TEST(Installations, ByNameAndPrimary) {
    const std::string strTwo = "Installation:\n Name=One\n Path=C:\\1\\\nInstallation:\n Name=Two\n Path=C:\\2\n Identity=Id2\n";
    const struct {
        std::string strText;
        const char* pszName;
        int32_t nSelector, nResult;
        const char* pszPath;
    } cases[] = {
        {strTwo, "Two", XCS_INSTALLATION_BY_NAME, XCS_RC_OK, "C:\\2"},
        {strTwo, "two", XCS_INSTALLATION_BY_NAME, XCS_RC_UNKNOWN_INSTALLATION, nullptr},
        {strTwo, "", XCS_INSTALLATION_BY_NAME, XCS_RC_UNKNOWN_INSTALLATION, nullptr},
        {strTwo, nullptr, XCS_INSTALLATION_PRIMARY, XCS_RC_OK, "C:\\1"},
        {strTwo + " Primary=Yes\n", nullptr, XCS_INSTALLATION_PRIMARY, XCS_RC_OK, "C:\\2"},
        {"", nullptr, XCS_INSTALLATION_PRIMARY, XCS_RC_UNKNOWN_INSTALLATION, nullptr},
        {strTwo, "One", 99, XCS_RC_PARAMETER, nullptr},
        {"Installation:\n Name=One\n Path=inst\n", "One", XCS_INSTALLATION_BY_NAME, XCS_RC_BAD_CONFIGURATION, nullptr},
    };
    for (const auto& c : cases) {
        const Sandbox sandbox(c.strText);
        XCS_INSTALLATION_DETAILS* p = nullptr;
        EXPECT_EQ(xcsGetInstallationDetails(c.pszName, nullptr, nullptr, c.nSelector, nullptr, nullptr, &p), c.nResult);
        ASSERT_EQ(p != nullptr, c.pszPath != nullptr);
        if (p != nullptr) {
            EXPECT_STREQ(p->szPath, c.pszPath);
            EXPECT_EQ(xcsCompareInstallations(p, p->szName), 0);
            EXPECT_NE(xcsCompareInstallations(p, "Other"), 0);
        }
        xcsFreeMemFn(nullptr, 23, nullptr, p);
    }
}

TEST(Authority, MembersOfEitherGroupOnVolumesWithAccessLists) {
    const Sandbox sandbox;
    const struct {
        bool fAdministrator, fZnm;
        SID_NAME_USE eZnm;
        DWORD fVolume;
        int32_t nResult;
    } cases[] = {
        {true, false, SidTypeAlias, FILE_PERSISTENT_ACLS, XCS_RC_OK},
        {false, true, SidTypeAlias, FILE_PERSISTENT_ACLS, XCS_RC_OK},
        {false, true, SidTypeUser, FILE_PERSISTENT_ACLS, XCS_RC_NOT_AUTHORIZED}, // no group
        {false, false, SidTypeAlias, FILE_PERSISTENT_ACLS, XCS_RC_NOT_AUTHORIZED},
        {true, true, SidTypeAlias, 0, XCS_RC_NO_VOLUME_SECURITY},
    };
    for (const auto& c : cases) {
        ImportHook<decltype(LookupAccountNameW)> lookup(
            "LookupAccountNameW", [&](LPCWSTR, LPCWSTR, PSID pSid, DWORD* pn, LPWSTR, DWORD*, SID_NAME_USE* pe) {
                *pe = c.eZnm;
                return CreateWellKnownSid(WinBuiltinGuestsSid, nullptr, pSid, pn);
            });
        ImportHook<decltype(CheckTokenMembership)> member("CheckTokenMembership", [&](HANDLE, PSID pSid, BOOL* pf) {
            *pf = IsWellKnownSid(pSid, WinBuiltinGuestsSid) ? c.fZnm : c.fAdministrator;
            return TRUE;
        });
        ImportHook<decltype(GetVolumeInformationW)> volume(
            "GetVolumeInformationW", [&](LPCWSTR, LPWSTR, DWORD, DWORD*, DWORD*, DWORD* pf, LPWSTR, DWORD) {
                *pf = c.fVolume;
                return TRUE;
            });
        EXPECT_EQ(xcsCheckAuthorization(7), c.nResult);
    }
    EXPECT_EQ(xcsCheckConsistency(XCS_VERSION_LEVEL), XCS_RC_OK);
    EXPECT_NE(xcsCheckConsistency("9.3.1.1"), XCS_RC_OK);
    EXPECT_NE(xcsCheckConsistency(nullptr), XCS_RC_OK);
}

TEST(Volume, RootLengthWithinThePath) {
    const Sandbox sandbox;
    uint32_t nLength = 77;
    EXPECT_EQ(xcsVolumeSupportsSecurity("C:\\windows\\no such", &nLength), XCS_RC_OK);
    EXPECT_EQ(nLength, 3u);
    EXPECT_EQ(xcsVolumeSupportsSecurity("c:", &nLength), XCS_RC_OK);
    EXPECT_EQ(nLength, 2u);
    nLength = 77;
    EXPECT_NE(xcsVolumeSupportsSecurity("", &nLength), XCS_RC_OK);
    EXPECT_NE(xcsVolumeSupportsSecurity(nullptr, &nLength), XCS_RC_OK);
    ImportHook<decltype(GetVolumePathNameW)> root("GetVolumePathNameW", [](auto...) { return FALSE; });
    EXPECT_EQ(xcsVolumeSupportsSecurity("C:\\x", &nLength), XCS_RC_SYSTEM);
    EXPECT_EQ(nLength, 77u);
}

TEST(Directory, CreatesOneLevelAndGivesTheReason) {
    const Sandbox sandbox;
    uint32_t nReason = 77;
    EXPECT_EQ(xcsCreateDirectory(sandbox.Path("d").c_str(), 1, nullptr, nullptr, 1, &nReason), XCS_RC_OK);
    EXPECT_EQ(nReason, 0u);
    EXPECT_NE(xcsCreateDirectory(sandbox.Path("d").c_str(), 1, nullptr, nullptr, 1, &nReason), XCS_RC_OK);
    EXPECT_EQ(nReason, DWORD{ERROR_ALREADY_EXISTS});
    EXPECT_NE(xcsCreateDirectory(sandbox.Path("a\\b").c_str(), 1, nullptr, nullptr, 1, &nReason), XCS_RC_OK);
    EXPECT_EQ(nReason, DWORD{ERROR_PATH_NOT_FOUND});
    EXPECT_NE(xcsCreateDirectory(nullptr, 1, nullptr, nullptr, 1, &nReason), XCS_RC_OK);
}
} // namespace
