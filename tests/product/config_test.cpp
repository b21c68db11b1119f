// The library on configuration files: reading, changing in one step, queue managers, authority.
#include <windows.h>
#include <aclapi.h>
#include <ntsecapi.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "hook.h"
#include "returncodes.h"
#include "sandbox.h"
#include "tovxcs2.h"

namespace
{
using testing::ElementsAre;

const std::string TEXT =
    "# kept\r\nQueueManager:\r\n   Name=QM1\r\n   Prefix=C:\\data\r\n   Directory=QM1\r\n"
    "Log:\r\n   LogPath=D:\\log\r\n";

// Writes the attribute "Prefix" of QM1, or "LogPath".
int32_t Write(const Sandbox& sandbox, const std::string& strAttribute, const std::string& strValue)
{
    const bool fLog = strAttribute == "LogPath";
    return xcsIniUtilWrite(fLog ? "Log" : "QueueManager", fLog ? nullptr : "Name", fLog ? nullptr : "QM1",
                           strAttribute.c_str(), strValue.c_str(), sandbox.Path("zns.ini").c_str(), 1);
}

// Of a queue manager; empty when its look-up is refused.
std::string DataDirectory(const std::string& strName)
{
    XCS_QM_DETAILS* pDetails = nullptr;
    xcsGetQMDetails(strName.c_str(), nullptr, &pDetails);
    const std::string strResult = pDetails != nullptr ? pDetails->szDataDirectory : "";
    xcsFreeMemFn(nullptr, 23, nullptr, pDetails);
    return strResult;
}

TEST(Config, WritesOrRefusesWithTheFileUntouched)
{
    const std::string str246(246, 'p'); // with X:\p before it and \qmgrs\QM1 behind it 260 characters
    const std::tuple<std::string, std::string, int32_t> cases[] = {
        {"Prefix", "E:\\new data", XCS_RC_OK},
        {"Prefix", "E:\\p" + str246, XCS_RC_OK},
        {"Prefix", "E:\\pp" + str246, XCS_RC_BAD_VALUE},
        {"Prefix", "E:\\a ", XCS_RC_BAD_VALUE},
        {"LogPath", "E:\\log\\", XCS_RC_OK},
        {"LogPath", "E:\\pppppppppppp" + str246, XCS_RC_BAD_VALUE},
        {"LogPath", "E:a", XCS_RC_BAD_VALUE}};
    for (const auto& [strAttribute, strValue, nResult] : cases)
    {
        const Sandbox sandbox(TEXT);
        EXPECT_EQ(Write(sandbox, strAttribute, strValue), nResult) << strValue;
        const std::string strOld = strAttribute == "Prefix" ? "C:\\data" : "D:\\log";
        std::string strExpected = TEXT;
        if (nResult == XCS_RC_OK)
            strExpected.replace(TEXT.find(strOld), strOld.size(), strValue);
        EXPECT_EQ(sandbox.Read("zns.ini"), strExpected);
    }
    const Hooks western = ThreadCodePage(1252);
    // UTF-8, in which the code page's characters are other bytes.
    const std::string strMarked = "\xEF\xBB\xBFLog:\nLogPath=C:\nOther=\xE4\xBD\xA0\n";
    const Sandbox sandbox(strMarked);
    EXPECT_EQ(Write(sandbox, "LogPath", "D:\\\xF6"), XCS_RC_BAD_VALUE);
    EXPECT_EQ(sandbox.Read("zns.ini"), strMarked);
    EXPECT_EQ(Write(sandbox, "LogPath", "D:"), XCS_RC_OK);
    EXPECT_EQ(sandbox.Read("zns.ini"), "\xEF\xBB\xBFLog:\nLogPath=D:\nOther=\xE4\xBD\xA0\n");
}

// Another program has a file open for a moment, or does not let it go.
TEST(Config, TriesBusyFilesAgainForAWhile)
{
    // What the first calls fail with; how many reads and renames fail; result; milliseconds slept.
    const std::tuple<DWORD, int, int, int32_t, DWORD> cases[] = {
        {ERROR_ACCESS_DENIED, 299, 0, XCS_RC_OK, 2990},
        {ERROR_SHARING_VIOLATION, 1, 3, XCS_RC_OK, 40},
        {ERROR_SHARING_VIOLATION, 300, 0, XCS_RC_SYSTEM, 2990},
        {ERROR_LOCK_VIOLATION, 0, 300, XCS_RC_SYSTEM, 2990},
        {ERROR_FILE_NOT_FOUND, 1, 0, XCS_RC_SYSTEM, 0}};
    for (auto [nError, nReads, nRenames, nResult, nExpected] : cases)
    {
        const Sandbox sandbox(TEXT);
        DWORD nSlept = 0;
        const auto open = Hook(CreateFileW, [&n = nReads, nCode = nError](auto... args) {
            return n-- > 0 ? (SetLastError(nCode), INVALID_HANDLE_VALUE) : CreateFileW(args...);
        });
        const auto rename = Hook(MoveFileExW, [&n = nRenames, nCode = nError](auto from, auto to, DWORD f) {
            EXPECT_EQ(f, 9u); // replace, and not before it is written through
            return n-- > 0 ? (SetLastError(nCode), FALSE) : MoveFileExW(from, to, f);
        });
        const auto sleep = Hook(Sleep, [&](DWORD n) { nSlept += n; });
        EXPECT_EQ(Write(sandbox, "Prefix", "E:"), nResult) << nError;
        EXPECT_EQ(nSlept, nExpected);
        EXPECT_EQ(sandbox.Read("zns.ini") == TEXT, nResult != XCS_RC_OK);
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
        EXPECT_EQ(Write(sandbox, "Prefix", "E:"), XCS_RC_SYSTEM);
        hook.reset();
        EXPECT_EQ(sandbox.Read("zns.ini"), TEXT);
        EXPECT_THAT(sandbox.Names(), ElementsAre(L"zns.ini"));
        EXPECT_EQ(Write(sandbox, "Prefix", "E:"), XCS_RC_OK); // no lock is left behind
    }
}

TEST(QueueManagers, DetailsAreExactOrRefused)
{
    const std::string str48(48, 'N'), str66(66, 'd'), str16(16, 'I');
    const std::string strLongest = "C:\\" + std::string(247, 'p'); // with \qmgrs\ and QM1: 260 characters
    struct Case
    {
        std::string strPrefix = "C:", strDirectory = "QM1", strExpected = "", strName = "QM1";
    };
    std::vector<Case> cases = {{"C:\\", "QM1", "C:\\qmgrs\\QM1"},
                               {"\\\\srv\\share", "QM1", "\\\\srv\\share\\qmgrs\\QM1"},
                               {"C:", str66 + "\nInstallationName=" + str16, "C:\\qmgrs\\" + str66, str48},
                               {strLongest, "QM1", strLongest + "\\qmgrs\\QM1"},
                               {strLongest + "p"},
                               {"C:", str66 + "d"},
                               {"C:", "QM1\nInstallationName=" + str16 + "I"},
                               {.strName = str48 + "N"}};
    for (const char* psz : {"", "\\data", "C:data", "\\\\", "\\\\.\\C:\\a", "C:\\a?", "C:\\a:b", "C:\\a\x1F"})
        cases.push_back({psz});
    for (const char* psz : {"", "..", "a\\b", "a/b", "a.", "*", "a:b"})
        cases.push_back({"C:", psz});
    for (const auto& c : cases)
    {
        const Sandbox sandbox("QueueManager:\n Name=" + c.strName + "\n Prefix=" + c.strPrefix +
                              "\n Directory=" + c.strDirectory);
        EXPECT_EQ(DataDirectory(c.strName), c.strExpected) << sandbox.Read("zns.ini");
    }
}

// In these code pages a character's second byte can be a backslash or a bar; UTF-8 has rules of its own.
TEST(QueueManagers, PathsAreWholeCharactersInEveryCodePage)
{
    for (const auto& [nCodePage, strPrefix, strDirectory] :
         {std::tuple<UINT, std::string, std::string>{932, "D:\\\x95\\", "\x83|"},
          {950, "D:\\\xA5\\", "\xA5|"},
          {CP_UTF8, "D:\\\xC3\xA4", "\xE4\xBD\xA0"}})
    {
        const Hooks hooks = ThreadCodePage(nCodePage);
        const Sandbox sandbox("QueueManager:\n Name=QM1\n Prefix=C:\n Directory=" + strDirectory + "\n");
        EXPECT_EQ(Write(sandbox, "Prefix", strPrefix), XCS_RC_OK) << nCodePage;
        EXPECT_EQ(DataDirectory("QM1"), strPrefix + "\\qmgrs\\" + strDirectory);
    }
}

TEST(Authority, MembersOfEitherGroupOnVolumesWithAccessLists)
{
    const Sandbox sandbox;
    // Members of the administrators, of znm; what znm is; the volume's flags; result.
    const std::tuple<bool, bool, SID_NAME_USE, DWORD, int32_t> cases[] = {
        {true, false, SidTypeAlias, FILE_PERSISTENT_ACLS, XCS_RC_OK},
        {false, true, SidTypeAlias, FILE_PERSISTENT_ACLS, XCS_RC_OK},
        {false, true, SidTypeGroup, FILE_PERSISTENT_ACLS, XCS_RC_OK}, // of the domain
        {false, true, SidTypeUser, FILE_PERSISTENT_ACLS, XCS_RC_NOT_AUTHORIZED},
        {false, false, SidTypeAlias, FILE_PERSISTENT_ACLS, XCS_RC_NOT_AUTHORIZED},
        {true, true, SidTypeAlias, 0, XCS_RC_NO_VOLUME_SECURITY}};
    for (const auto& [fAdmin, fZnm, eZnm, fVolume, nResult] : cases)
    {
        const auto lookup =
            Hook(LookupAccountNameW, [e = eZnm](auto, auto, auto p, auto* pn, auto, auto, auto* pe) {
                return *pe = e, CreateWellKnownSid(WinBuiltinGuestsSid, nullptr, p, pn);
            });
        const auto member = Hook(CheckTokenMembership, [fA = fAdmin, fZ = fZnm](HANDLE, PSID p, BOOL* pf) {
            return *pf = IsWellKnownSid(p, WinBuiltinGuestsSid) ? fZ : fA, TRUE;
        });
        const auto volume = Hook(GetVolumeInformationW, [f = fVolume](auto, auto, auto, auto, auto, DWORD* pf,
                                                                      auto...) { return *pf = f, TRUE; });
        EXPECT_EQ(xcsCheckAuthorization(7), nResult) << fZnm << eZnm;
    }
}
} // namespace
