// The library on configuration files: reading, changing in one step, queue managers, authority.
#include <windows.h>
#include <aclapi.h>
#include <ntsecapi.h>
#include <sddl.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "hook.h"
#include "owner.h"
#include "returncodes.h"
#include "sandbox.h"
#include "tovxcs2.h"

namespace
{
using testing::ElementsAre;

const std::string TEXT =
    "# kept\r\nQueueManager:\r\n   Name=QM1\r\n   Prefix=C:\\data\r\n   Directory=QM1\r\n"
    "Log:\r\n   LogPath=D:\\log\r\n";

struct Place
{
    const char *pszStanza, *pszKeyName, *pszKeyValue, *pszAttribute;
};
constexpr Place PREFIX = {"QueueManager", "Name", "QM1", "Prefix"};
constexpr Place LOG_PATH = {"Log", nullptr, nullptr, "LogPath"};

int32_t Write(const Sandbox& sandbox, const Place& place, const std::string& strValue)
{
    return xcsIniUtilWrite(place.pszStanza, place.pszKeyName, place.pszKeyValue, place.pszAttribute,
                           strValue.c_str(), sandbox.Path("zns.ini").c_str(), 1);
}

// Of a queue manager; empty when its look-up is refused.
std::string DataDirectory(const std::string& strName)
{
    XCS_QM_DETAILS* pDetails = nullptr;
    const int32_t nResult = xcsGetQMDetails(strName.c_str(), nullptr, &pDetails);
    EXPECT_EQ(nResult == XCS_RC_OK, pDetails != nullptr);
    const std::string strResult = pDetails != nullptr ? pDetails->szDataDirectory : "";
    xcsFreeMemFn(nullptr, 23, nullptr, pDetails);
    return strResult;
}

// The thread's ANSI code page for the life of this object. For UTF-8 a conversion refuses what Windows
// refuses.
struct ThreadCodePage
{
    UINT nCodePage;
    UINT Actual(UINT n) const { return n == CP_THREAD_ACP ? nCodePage : n; }
    Hooks hooks = {
        Hook(GetCPInfoExW, [this](UINT n, auto... args) { return GetCPInfoExW(Actual(n), args...); }),
        Hook(MultiByteToWideChar,
             [this](UINT n, auto... args) { return MultiByteToWideChar(Actual(n), args...); }),
        Hook(WideCharToMultiByte, [this](UINT n, DWORD f, auto pWide, auto nWide, auto p, auto nSize,
                                         auto pDefault, auto* pfUsed) {
            const bool fRefused =
                Actual(n) == CP_UTF8 && ((f & WC_NO_BEST_FIT_CHARS) != 0 || pfUsed != nullptr);
            return fRefused ? 0 : WideCharToMultiByte(Actual(n), f, pWide, nWide, p, nSize, pDefault, pfUsed);
        })};
};

TEST(Config, ReadsIntoTheCallersBuffer)
{
    const Sandbox sandbox("\xEF\xBB\xBFLog:\n LogPath=12\xC3\xA4xy\n"); // UTF-8, whatever the code page
    const auto read = [&](const char* pszAttribute, uint32_t nLength) {
        std::string strBuffer(6, '#');
        const int32_t nResult = xcsIniUtilRead("Log", nullptr, nullptr, pszAttribute, strBuffer.data(),
                                               &nLength, sandbox.Path("zns.ini").c_str(), 1);
        return std::tuple<int32_t, uint32_t, std::string>(nResult, nLength, strBuffer);
    };
    EXPECT_EQ(read("LogPath", 6), std::tuple(XCS_RC_OK, 5u, std::string("12\xE4xy\0", 6)));
    EXPECT_EQ(read("LogPath", 5), std::tuple(XCS_RC_OK, 5u, "12\xE4xy#"));
    EXPECT_EQ(read("LogPath", 4), std::tuple(XCS_RC_TRUNCATED, 4u, "######"));
    EXPECT_EQ(read("None", 6), std::tuple(XCS_RC_NOT_FOUND, 6u, "######"));
}

TEST(Config, WritesOrRefusesWithTheFileUntouched)
{
    const std::string str246(246, 'p'); // with X:\p before it and \qmgrs\QM1 behind it 260 characters
    std::vector<std::tuple<Place, std::string, int32_t>> cases = {
        {PREFIX, "E:\\new data", XCS_RC_OK},
        {PREFIX, "\\\\srv\\share", XCS_RC_OK},
        {PREFIX, "E:\\p" + str246, XCS_RC_OK},
        {LOG_PATH, "E:\\log\\", XCS_RC_OK},
        {{"QueueManager", "Name", "QM2", "Prefix"}, "E:", XCS_RC_NOT_FOUND},
        {{"QueueManager", "Name", "qm1", "Prefix"}, "E:", XCS_RC_NOT_FOUND},
        {{"QueueManager", "Name", nullptr, "Prefix"}, "E:", XCS_RC_PARAMETER},
        {PREFIX, "E:\\pp" + str246, XCS_RC_BAD_VALUE},
        {LOG_PATH, "E:\\pppppppppppp" + str246, XCS_RC_BAD_VALUE}};
    for (const char* psz : {"", "a", "E:a", "E:\\a ", "\\\\.\\E:\\a", "E:\\a::$INDEX_ALLOCATION"})
        cases.emplace_back(PREFIX, psz, XCS_RC_BAD_VALUE);
    for (const char* psz : {"E:a", "E:\\a:b", "E:\\a\nb", "E:\\a\x1F", "E:\\a|b"})
        cases.emplace_back(LOG_PATH, psz, XCS_RC_BAD_VALUE);
    for (const auto& [place, strValue, nResult] : cases)
    {
        const Sandbox sandbox(TEXT);
        EXPECT_EQ(Write(sandbox, place, strValue), nResult) << strValue;
        const std::string strOld = place.pszKeyName != nullptr ? "C:\\data" : "D:\\log";
        std::string strExpected = TEXT;
        if (nResult == XCS_RC_OK)
            strExpected.replace(TEXT.find(strOld), strOld.size(), strValue);
        EXPECT_EQ(sandbox.Read("zns.ini"), strExpected);
        EXPECT_THAT(sandbox.Names(), ElementsAre(L"zns.ini"));
    }
    const Sandbox sandbox("\xEF\xBB\xBFLog:\nLogPath=C:\\\xC3\xA4\nOther=\xE4\xBD\xA0\n");
    EXPECT_EQ(Write(sandbox, LOG_PATH, "D:\\\xF6"), XCS_RC_OK);
    EXPECT_EQ(sandbox.Read("zns.ini"), "\xEF\xBB\xBFLog:\nLogPath=D:\\\xC3\xB6\nOther=\xE4\xBD\xA0\n");
}

// Another program has a file open for a moment, or does not let it go.
TEST(Config, TriesBusyFilesAgainForAWhile)
{
    const struct
    {
        DWORD nError;
        int nReads, nRenames; // how many of them fail
        int32_t nResult;
        DWORD nSlept;
    } cases[] = {{ERROR_ACCESS_DENIED, 19, 0, XCS_RC_OK, 19 * 50},
                 {ERROR_SHARING_VIOLATION, 1, 3, XCS_RC_OK, 50 + 3 * 10},
                 {ERROR_LOCK_VIOLATION, 0, 299, XCS_RC_OK, 299 * 10},
                 {ERROR_SHARING_VIOLATION, 20, 0, XCS_RC_SYSTEM, 19 * 50},
                 {ERROR_SHARING_VIOLATION, 0, 300, XCS_RC_SYSTEM, 299 * 10},
                 {ERROR_FILE_NOT_FOUND, 1, 0, XCS_RC_SYSTEM, 0},
                 {ERROR_DISK_FULL, 0, 1, XCS_RC_SYSTEM, 0}};
    for (const auto& c : cases)
    {
        SCOPED_TRACE(&c - cases);
        const Sandbox sandbox(TEXT);
        int nReads = c.nReads, nRenames = c.nRenames;
        DWORD nSlept = 0;
        const auto open = Hook(CreateFileW, [&](auto p, auto a, auto s, auto* sa, auto d, auto... args) {
            return d == OPEN_EXISTING && nReads-- > 0 ? (SetLastError(c.nError), INVALID_HANDLE_VALUE)
                                                      : CreateFileW(p, a, s, sa, d, args...);
        });
        const auto rename = Hook(MoveFileExW, [&](auto pszFrom, auto pszTo, DWORD f) {
            EXPECT_EQ(f, 9u); // replace, and not before it is written through
            return nRenames-- > 0 ? (SetLastError(c.nError), FALSE) : MoveFileExW(pszFrom, pszTo, f);
        });
        const auto sleep = Hook(Sleep, [&](DWORD n) { nSlept += n; });
        EXPECT_EQ(Write(sandbox, PREFIX, "E:"), c.nResult);
        EXPECT_EQ(nSlept, c.nSlept);
        EXPECT_EQ(sandbox.Read("zns.ini") == TEXT, c.nResult != XCS_RC_OK);
        EXPECT_THAT(sandbox.Names(), ElementsAre(L"zns.ini"));
    }
}

// Each call of the replacement fails once, without an error code as some drivers do it: the old file is
// whole, and nothing lies beside it.
TEST(Config, SurvivesEveryFailureOfTheReplacement)
{
    const std::function<std::shared_ptr<void>()> faults[] = {
        [] { return Fails(CreateMutexW, nullptr, 0); },
        [] { return Fails(WaitForSingleObject, WAIT_TIMEOUT, 0); },
        [] { return Fails(CreateFileW, INVALID_HANDLE_VALUE, 0); },
        [] { return Fails(GetFileSizeEx, FALSE, 0); },
        [] { return Fails(ReadFile, FALSE, 0); },
        [] { return Fails(ReadFile, TRUE, 0); }, // nothing read: the file shrank
        [] { return Fails(GetNamedSecurityInfoW, ERROR_ACCESS_DENIED, 0); },
        [] { return Fails(SystemFunction036, FALSE, 0); }, // the random name
        [] { return Fails(SetSecurityDescriptorControl, FALSE, 0); },
        [] { return Fails(SetKernelObjectSecurity, FALSE, 0); },
        [] { return Fails(WriteFile, FALSE, 0); },
        [] { return Fails(WriteFile, TRUE, 0); }, // nothing written
        [] { return Fails(FlushFileBuffers, FALSE, 0); },
        [] { return Fails(MoveFileExW, FALSE, 0); },
        [] { return Fails(GetFileAttributesW, INVALID_FILE_ATTRIBUTES, 0); },
        [] { return Fails(GetFileAttributesW, FILE_ATTRIBUTE_READONLY, 0); }};
    for (const auto& fault : faults)
    {
        SCOPED_TRACE(&fault - faults);
        const Sandbox sandbox(TEXT);
        auto hook = fault();
        EXPECT_EQ(Write(sandbox, PREFIX, "E:"), XCS_RC_SYSTEM);
        hook.reset();
        EXPECT_EQ(sandbox.Read("zns.ini"), TEXT);
        EXPECT_THAT(sandbox.Names(), ElementsAre(L"zns.ini"));
        EXPECT_EQ(Write(sandbox, PREFIX, "E:"), XCS_RC_OK); // no lock is left behind
    }
    const Sandbox sandbox(TEXT); // written in parts, as a full disk makes it happen
    const auto hook = Hook(WriteFile, [&](auto h, auto* p, DWORD n, auto... args) {
        return WriteFile(h, p, std::min<DWORD>(n, 7), args...);
    });
    EXPECT_EQ(Write(sandbox, PREFIX, "C:\\dato"), XCS_RC_OK);
    EXPECT_EQ(sandbox.Read("zns.ini"), std::string(TEXT).replace(TEXT.find("data"), 4, "dato"));
}

TEST(Config, NewFileIsBornWithTheOldFilesAccessList)
{
    const Sandbox sandbox(TEXT);
    std::vector<std::wstring> lists;
    const auto add = [&](PSECURITY_DESCRIPTOR psd) {
        LocalText text;
        ConvertSecurityDescriptorToStringSecurityDescriptorW(psd, 1, DACL_SECURITY_INFORMATION, text.Out(),
                                                             nullptr);
        lists.push_back(text.Get());
        return TRUE;
    };
    const auto old = Hook(GetNamedSecurityInfoW, [](auto, auto, auto, auto, auto, auto, auto, auto ppsd) {
        const wchar_t* const pszList = L"D:AI(A;;FA;;;BA)(A;ID;FR;;;SY)";
        return !ConvertStringSecurityDescriptorToSecurityDescriptorW(pszList, 1, ppsd, nullptr);
    });
    const auto create = Hook(CreateFileW, [&](auto p, auto a, auto s, auto* sa, auto d, auto... args) {
        if (d == CREATE_NEW && s == 0) // nobody opens it before it has taken its place
            add(sa->lpSecurityDescriptor);
        return CreateFileW(p, a, s, sa, d, args...);
    });
    const auto set = Hook(SetKernelObjectSecurity, [&](auto, auto, auto psd) { return add(psd); });
    EXPECT_EQ(Write(sandbox, PREFIX, "E:"), XCS_RC_OK);
    EXPECT_THAT(lists, ElementsAre(L"D:PAI(A;;FA;;;BA)(A;ID;FR;;;SY)", L"D:ARAI(A;;FA;;;BA)(A;ID;FR;;;SY)"));
}

TEST(QueueManagers, DetailsAreExactOrRefused)
{
    const std::string str48(48, 'N'), str66(66, 'd'), str16(16, 'I');
    const std::string strLongest = "C:\\" + std::string(247, 'p'); // with \qmgrs\ and QM1: 260 characters
    struct Case
    {
        std::string strPrefix = "C:", strDirectory = "QM1", strExpected = "", strName = "QM1",
                    strSought = strName;
    };
    std::vector<Case> cases = {{"C:\\data", "QM1", "C:\\data\\qmgrs\\QM1"},
                               {"C:\\", "QM1", "C:\\qmgrs\\QM1"},
                               {"\\\\srv\\share", "QM1", "\\\\srv\\share\\qmgrs\\QM1"},
                               {"C:", str66 + "\nInstallationName=" + str16, "C:\\qmgrs\\" + str66, str48},
                               {strLongest, "QM1", strLongest + "\\qmgrs\\QM1"},
                               {"C:\nPrefix=D:", "QM1", "C:\\qmgrs\\QM1"}, // the first one counts
                               {.strName = "QM1", .strSought = "qm1"},
                               {.strName = "QM1", .strSought = ""},
                               {.strName = str48 + "N"}};
    for (const std::string& str : {strLongest + "p", std::string("C:\\a\0b", 6), std::string()})
        cases.push_back({str});
    for (const char* psz : {"data", "\\data", "C:data", "C", "\\\\", "\\\\\\x", "C:\\a?", "C:\\a:b", "1:\\a"})
        cases.push_back({psz});
    for (const std::string& str : {str66 + "d", "QM1\nInstallationName=" + str16 + "I"})
        cases.push_back({"C:", str});
    for (const char* psz : {"", ".", "..", "a\\b", "a/b", "\\", "a.", "*", "a:b", "a\x01"})
        cases.push_back({"C:", psz});
    for (const auto& c : cases)
    {
        const Sandbox sandbox("QueueManager:\n Name=" + c.strName + "\n Prefix=" + c.strPrefix +
                              "\n Directory=" + c.strDirectory);
        EXPECT_EQ(DataDirectory(c.strSought), c.strExpected) << sandbox.Read("zns.ini");
    }
    const Sandbox sandbox("QueueManager:\n Name=QM1\n");
    EXPECT_EQ(DataDirectory("QM1"), "");
}

// In these code pages a character's second byte can be a backslash or a bar; UTF-8 has rules of its own.
TEST(QueueManagers, PathsAreWholeCharactersInEveryCodePage)
{
    for (const auto& [nCodePage, strPrefix, strDirectory] :
         {std::tuple<UINT, std::string, std::string>{932, "D:\\\x95\\", "\x83|"},
          {936, "D:\\\x81\\", "\x81|"},
          {950, "D:\\\xA5\\", "\xA5|"},
          {CP_UTF8, "D:\\\xC3\xA4", "\xE4\xBD\xA0"}})
    {
        const ThreadCodePage codePage{nCodePage};
        const Sandbox sandbox("QueueManager:\n Name=QM1\n Prefix=C:\n Directory=" + strDirectory + "\n");
        EXPECT_EQ(Write(sandbox, PREFIX, strPrefix), XCS_RC_OK) << nCodePage;
        EXPECT_EQ(DataDirectory("QM1"), strPrefix + "\\qmgrs\\" + strDirectory);
    }
}

TEST(Authority, MembersOfEitherGroupOnVolumesWithAccessLists)
{
    const Sandbox sandbox;
    const struct
    {
        bool fAdministrator, fZnm; // a member
        SID_NAME_USE eZnm = SidTypeAlias;
        int32_t nResult = XCS_RC_OK;
        DWORD fVolume = FILE_PERSISTENT_ACLS;
    } cases[] = {{true, false},
                 {false, true},
                 {false, true, SidTypeGroup}, // of the domain
                 {false, true, SidTypeUser, XCS_RC_NOT_AUTHORIZED},
                 {false, false, SidTypeAlias, XCS_RC_NOT_AUTHORIZED},
                 {true, true, SidTypeAlias, XCS_RC_NO_VOLUME_SECURITY, 0}};
    for (const auto& c : cases)
    {
        const auto lookup =
            Hook(LookupAccountNameW, [&](auto, auto, PSID pSid, DWORD* pn, auto, auto, auto* pe) {
                return *pe = c.eZnm, CreateWellKnownSid(WinBuiltinGuestsSid, nullptr, pSid, pn);
            });
        const auto member = Hook(CheckTokenMembership, [&](HANDLE, PSID pSid, BOOL* pf) {
            return *pf = IsWellKnownSid(pSid, WinBuiltinGuestsSid) ? c.fZnm : c.fAdministrator, TRUE;
        });
        const auto volume = Hook(GetVolumeInformationW, [&](auto, auto, auto, auto, auto, DWORD* pf,
                                                            auto...) { return *pf = c.fVolume, TRUE; });
        EXPECT_EQ(xcsCheckAuthorization(7), c.nResult) << &c - cases;
    }
}
} // namespace
