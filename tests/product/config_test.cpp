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
const std::string TEXT =
    "# kept\r\nQueueManager:\r\n   Name=QM1\r\n   Prefix=C:\\data\r\n   Directory=QM1\r\n";

int32_t WritePrefix(const Sandbox& sandbox, const std::string& strValue = "E:")
{
    return xcsIniUtilWrite("QueueManager", "Name", "QM1", "Prefix", strValue.c_str(),
                           sandbox.znsIni.string().c_str(), 1);
}

// Another program has a file open for a moment, or does not let it go.
TEST(Config, TriesBusyFilesAgainForAWhile)
{
    // What the first calls fail with; how many reads and renames fail; result; milliseconds slept.
    const std::tuple<DWORD, int, int, int32_t, DWORD> cases[] = {
        {ERROR_ACCESS_DENIED, 299, 0, XCS_RC_OK, 2990},
        {ERROR_SHARING_VIOLATION, 1, 3, XCS_RC_OK, 40},
        {ERROR_LOCK_VIOLATION, 0, 300, XCS_RC_SYSTEM, 2990},
        {ERROR_FILE_NOT_FOUND, 1, 0, XCS_RC_SYSTEM, 0}};
    for (auto [nError, nReads, nRenames, nResult, nExpected] : cases)
    {
        const Sandbox sandbox(TEXT);
        DWORD nSlept = 0;
        const auto open = Hook(CreateFileW, [&n = nReads, nCode = nError](auto... args) {
            return n-- > 0 ? (SetLastError(nCode), INVALID_HANDLE_VALUE) : CreateFileW(args...);
        });
        const auto rename = Hook(MoveFileExW, [&n = nRenames, nCode = nError](auto... args) {
            return n-- > 0 ? (SetLastError(nCode), FALSE) : MoveFileExW(args...);
        });
        const auto sleep = Hook(Sleep, [&](DWORD n) { nSlept += n; });
        EXPECT_EQ(WritePrefix(sandbox), nResult) << nError;
        EXPECT_EQ(nSlept, nExpected);
    }
}

// Each call of the replacement fails once, without an error code as some drivers do it: the old file is
// whole, and nothing lies beside it.
TEST(Config, SurvivesEveryFailureOfTheReplacement)
{
    const std::function<std::shared_ptr<void>()> faults[] = {
        [] { return Fails(CreateMutexW, nullptr, 0); },
        [] { return Fails(WaitForSingleObject, WAIT_TIMEOUT, 0); },
        [] { return Fails(ReadFile, TRUE, 0); }, // nothing read: the file shrank
        [] { return Fails(GetNamedSecurityInfoW, ERROR_ACCESS_DENIED, 0); },
        [] { return Fails(SetKernelObjectSecurity, FALSE, 0); },
        [] { return Fails(WriteFile, FALSE, 0); },
        [] { return Fails(WriteFile, TRUE, 0); }, // nothing written
        [] { return Fails(FlushFileBuffers, FALSE, 0); },
        [] { return Fails(MoveFileExW, FALSE, 0); },
        [] { return Fails(GetFileAttributesW, FILE_ATTRIBUTE_READONLY, 0); }};
    for (const auto& fault : faults)
    {
        SCOPED_TRACE(&fault - faults);
        const Sandbox sandbox(TEXT);
        auto hook = fault();
        EXPECT_EQ(WritePrefix(sandbox), XCS_RC_SYSTEM);
        hook.reset();
        EXPECT_EQ(ReadAll(sandbox.znsIni), TEXT);
        EXPECT_THAT(sandbox.Names(), testing::ElementsAre(L"zns.ini"));
        EXPECT_EQ(WritePrefix(sandbox), XCS_RC_OK); // no lock is left behind
    }
}

TEST(QueueManagers, DetailsAreExactOrRefusedAndNothingElseIsWritten)
{
    const std::string str66(66, 'd'), strLongest = "C:\\" + std::string(247, 'p'); // with \qmgrs\QM1: 260
    std::vector<std::tuple<std::string, std::string, bool>> cases = {{"C:", "QM1", true},
                                                                     {"\\\\srv\\a b", str66, true},
                                                                     {strLongest, "QM1", true},
                                                                     {strLongest + "p", "QM1", false},
                                                                     {"C:", str66 + "d", false}};
    for (const char* psz : {"", "\\data", "C:data", "\\\\", "\\\\.\\C:\\a", "C:\\a?", "C:\\a:b", "C:\\a\x1F"})
        cases.push_back({psz, "QM1", false});
    for (const char* psz : {"", "..", "a\\b", "a/b", "a.", "*", "a:b"})
        cases.push_back({"C:", psz, false});
    for (const auto& [strPrefix, strDirectory, fGood] : cases)
    {
        const std::string strBegin = TEXT.substr(0, TEXT.find("C:\\data")),
                          strEnd = "\n Directory=" + strDirectory;
        const Sandbox sandbox(strBegin + "C:\\" + strEnd);
        EXPECT_EQ(WritePrefix(sandbox, strPrefix), fGood ? XCS_RC_OK : XCS_RC_BAD_VALUE) << strPrefix;
        EXPECT_EQ(ReadAll(sandbox.znsIni), strBegin + (fGood ? strPrefix : "C:\\") + strEnd);
        WriteAll(sandbox.znsIni, strBegin + strPrefix + strEnd);
        XCS_QM_DETAILS* pDetails = nullptr;
        xcsGetQMDetails("QM1", nullptr, &pDetails);
        EXPECT_EQ(pDetails != nullptr ? pDetails->szDataDirectory : "",
                  fGood ? strPrefix + "\\qmgrs\\" + strDirectory : "");
        xcsFreeMemFn(nullptr, 23, nullptr, pDetails);
    }
}

TEST(Authority, MembersOfEitherGroupOnVolumesWithAccessLists)
{
    const Sandbox sandbox;
    // Members of the administrators, of znm; what znm is; the volume's flags; result.
    const std::tuple<bool, bool, SID_NAME_USE, DWORD, int32_t> cases[] = {
        {true, false, SidTypeAlias, FILE_PERSISTENT_ACLS, XCS_RC_OK},
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
