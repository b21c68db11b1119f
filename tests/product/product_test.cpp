// The library on configuration files, queue managers and authority; the trace's file and failure records.
#include <windows.h>
#include <aclapi.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>

#include "hook.h"
#include "returncodes.h"
#include "tempdir.h"
#include "tovmtrce.h"
#include "tovxcs2.h"

namespace
{
using namespace testing;

const std::string BEGIN = "# kept\r\nQueueManager:\r\n   Name=QM1\r\n   Prefix=", END = "\r\n   Directory=";

// The product's work path.
struct Sandbox : TempDir
{
    Sandbox()
    {
        WriteAll(znsIni, BEGIN + "C:" + END + "QM1");
        SetEnvironmentVariableW(L"ZN_WORK_PATH", root.c_str());
    }
    ~Sandbox() { xcsTerminate(&connection, 4); }
    int32_t WritePrefix(const char* pszValue = "E:") const
    {
        return xcsIniUtilWrite("QueueManager", "Name", "QM1", "Prefix", pszValue, znsIni.string().c_str(), 1);
    }
    int32_t StartTrace(const wchar_t* pszTrace)
    {
        SetEnvironmentVariableW(L"ZN_TRACE", pszTrace);
        xcsInitializeEx(48, 7, nullptr, nullptr, nullptr, nullptr, nullptr, &connection);
        return xtrEstablishTraceStatus();
    }
    const fs::path znsIni = root / "zns.ini";
    XCS_CONNECTION connection = {};
};

// Another program has a file open for a moment, or does not let it go.
TEST(Config, TriesBusyFilesAgainForAWhile)
{
    // What the first replacements fail with, and how many; result; milliseconds slept.
    const std::tuple<DWORD, int, int32_t, DWORD> cases[] = {{ERROR_ACCESS_DENIED, 299, XCS_RC_OK, 2990},
                                                            {ERROR_SHARING_VIOLATION, 1, XCS_RC_OK, 10},
                                                            {ERROR_LOCK_VIOLATION, 300, XCS_RC_SYSTEM, 2990},
                                                            {ERROR_FILE_NOT_FOUND, 1, XCS_RC_SYSTEM, 0}};
    for (auto [nError, nFailures, nResult, nExpected] : cases)
    {
        const Sandbox sandbox;
        DWORD nSlept = 0;
        const auto rename = Hook(MoveFileExW, [&n = nFailures, nCode = nError](auto... args) {
            return n-- > 0 ? (SetLastError(nCode), FALSE) : MoveFileExW(args...);
        });
        const auto sleep = Hook(Sleep, [&](DWORD n) { nSlept += n; });
        EXPECT_EQ(sandbox.WritePrefix(), nResult) << nError;
        EXPECT_EQ(nSlept, nExpected);
    }
}

// Each call of the replacement fails once, without an error code as some drivers do it: the old file is
// whole, and nothing lies beside it.
TEST(Config, SurvivesEveryFailureOfTheReplacement)
{
    const std::function<std::shared_ptr<void>()> faults[] = {
        [] { return Fails(ReadFile, TRUE, 0); }, // nothing read: the file shrank
        [] { return Fails(GetNamedSecurityInfoW, ERROR_ACCESS_DENIED, 0); },
        [] { return Fails(SetKernelObjectSecurity, FALSE, 0); },
        [] { return Fails(WriteFile, TRUE, 0); }, // nothing written
        [] { return Fails(FlushFileBuffers, FALSE, 0); },
        [] { return Fails(MoveFileExW, FALSE, 0); },
        [] { return Fails(GetFileAttributesW, FILE_ATTRIBUTE_READONLY, 0); }};
    const Sandbox sandbox;
    for (const auto& fault : faults)
    {
        auto hook = fault();
        EXPECT_EQ(sandbox.WritePrefix(), XCS_RC_SYSTEM) << &fault - faults;
        hook.reset();
        EXPECT_EQ(ReadAll(sandbox.znsIni), BEGIN + "C:" + END + "QM1");
        EXPECT_THAT(sandbox.Names(), ElementsAre(L"zns.ini"));
    }
    EXPECT_EQ(sandbox.WritePrefix(), XCS_RC_OK); // no lock is left behind
}

TEST(QueueManagers, DetailsAreExactOrRefusedAndNothingElseIsWritten)
{
    const std::string str66(66, 'd'), strLongest = "C:\\" + std::string(247, 'p'); // with \qmgrs\QM1: 260
    std::vector<std::tuple<std::string, std::string, bool>> cases = {{"\\\\srv\\a b", str66, true},
                                                                     {strLongest, "QM1", true},
                                                                     {strLongest + "p", "QM1", false},
                                                                     {"C:", str66 + "d", false}};
    for (const char* psz : {"", "\\data", "C:data", "\\\\", "\\\\.\\C:\\a", "C:\\a?", "C:\\a:b", "C:\\a\x1F"})
        cases.push_back({psz, "QM1", false});
    for (const char* psz : {"", "..", "a\\b", "a/b", "a.", "*", "a:b"})
        cases.push_back({"C:", psz, false});
    for (const auto& [strPrefix, strDirectory, fGood] : cases)
    {
        const Sandbox sandbox;
        const std::string strOld = BEGIN + "C:\\" + END + strDirectory,
                          strNew = BEGIN + strPrefix + END + strDirectory;
        WriteAll(sandbox.znsIni, strOld);
        EXPECT_EQ(sandbox.WritePrefix(strPrefix.c_str()), fGood ? XCS_RC_OK : XCS_RC_BAD_VALUE) << strNew;
        EXPECT_EQ(ReadAll(sandbox.znsIni), fGood ? strNew : strOld);
        WriteAll(sandbox.znsIni, strNew);
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
        {false, true, SidTypeAlias, FILE_PERSISTENT_ACLS, XCS_RC_OK},
        {false, true, SidTypeUser, FILE_PERSISTENT_ACLS, XCS_RC_NOT_AUTHORIZED},
        {false, false, SidTypeAlias, FILE_PERSISTENT_ACLS, XCS_RC_NOT_AUTHORIZED},
        {true, true, SidTypeAlias, 0, XCS_RC_NO_VOLUME_SECURITY}};
    for (const auto& [fAdmin, fZnm, eZnm, fVolume, nResult] : cases)
    {
        const auto lookup =
            Hook(LookupAccountNameW, [e = eZnm](auto, auto, auto p, auto pn, auto, auto, auto pe) {
                return *pe = e, CreateWellKnownSid(WinBuiltinGuestsSid, nullptr, p, pn);
            });
        const auto member = Hook(CheckTokenMembership, [fA = fAdmin, fZ = fZnm](HANDLE, PSID p, BOOL* pf) {
            return *pf = IsWellKnownSid(p, WinBuiltinGuestsSid) ? fZ : fA, TRUE;
        });
        const auto volume = Hook(GetVolumeInformationW, [f = fVolume](auto, auto, auto, auto, auto, auto pf,
                                                                      auto...) { return *pf = f, TRUE; });
        EXPECT_EQ(xcsCheckAuthorization(7), nResult) << fZnm << eZnm;
    }
}

TEST(Trace, TellsACallTreeAndFailures)
{
    Sandbox sandbox;
    EXPECT_EQ(sandbox.StartTrace(L"detail"), XCS_RC_OK);
    // The records without the two lines above them and without times.
    const auto records = [&] {
        std::istringstream trace(TakeSnapshot(sandbox.root / "trace").begin()->second);
        std::vector<std::string> lines;
        for (std::string str; std::getline(trace, str);)
            lines.push_back(str.substr(14, str.size() - 1 - 14));
        return std::vector(lines.begin() + 2, lines.end());
    };
    const CZNMTrace trace(FN_TMAIN);
    CZNMTrace(FN_MIGRATE_QUEUE_MANAGER).Leave(-1);
    xcsCompareInstallations("I1", "I2");
    xtr_parms("%s|%S|%d|%u|%04X|%S|%n%!q%lld%", "s", L"\x4F60\n", -1, ~0u, 0xAB, nullptr);
    xtr_parms("x%S", std::wstring(100'000, L'x').c_str());
    // What has been written is there while the program still runs, or is killed.
    EXPECT_THAT(records(),
                ElementsAre("> _tmain", "|  > CZNMSCSApp::MigrateQueueManager",
                            "|  < CZNMSCSApp::MigrateQueueManager = -1", "|  > xcsCompareInstallations",
                            "|  |  . xcsCompareInstallations() (pInstallation = I1, pszName = I2)",
                            "|  < xcsCompareInstallations = 0x00000001 (different)",
                            "|  . s|\xE4\xBD\xA0\\x0A|-1|4294967295|00AB|(null)|%n%!q%lld%",
                            SizeIs(5 + 16'384)));
    auto* const pArea = static_cast<XTR_THREAD_AREA*>(TlsGetValue(xihTLSIndex));
    for (const uint32_t nDepth : {64u, 65u, 128u, 129u, 0xFFFFFFFFu, 0u}) // damaged, and right again
    {
        pArea->nDepth = nDepth;
        xtr_FNC_retcode(pArea, 42, 31, 0);
    }
    EXPECT_THAT(records(), SizeIs(8 + 6));

    xcsSaveFileContextSccsId("@(#) source", 140);
    XCS_INSERTS inserts = {};
    inserts.apszText[0] = "Error 5";
    for (int n = 0; n < 60; ++n)
        xcsVORTFn(42, 33, 10, XCS_RC_PROGRAM_FAILURE, &inserts, nullptr, nullptr, nullptr);
    const Snapshot failures = TakeSnapshot(sandbox.root / "errors");
    EXPECT_EQ(failures.size(), 50u); // of the process
    EXPECT_THAT(failures,
                Contains(Pair(_, AllOf(HasSubstr("Error 5\r\n"), HasSubstr("@(#) source, line 140\r\n"),
                                       HasSubstr("CZNMFileSecurity::ChangeFileSecurity (33)\r\n"),
                                       EndsWith("  < CZNMSCSApp::MigrateQueueManager = -1\r\n")))));
}

TEST(Trace, IsOffOrImpossibleWithoutFailingAnybody)
{
    Sandbox sandbox;
    EXPECT_EQ(xtrEstablishTraceStatus(), XCS_RC_NOT_INITIALIZED);
    EXPECT_EQ(sandbox.StartTrace(L"flowx"), XCS_RC_OK);
    xcsTerminate(&sandbox.connection, 4);
    EXPECT_THAT(sandbox.Names(), ElementsAre(L"zns.ini"));
    WriteAll(sandbox.root / "trace", "a file in the way");
    EXPECT_NE(sandbox.StartTrace(L"flow"), XCS_RC_OK);
    SetLastError(1234); // the program may hand records over all the same, and has yet to read its error
    xtr_FNC_entry(nullptr, 42, 179);
    xtr_parms("%d", 1);
    xcsVORTFn(42, 179, 1, XCS_RC_PROGRAM_FAILURE, nullptr, nullptr, nullptr, nullptr);
    EXPECT_EQ(GetLastError(), 1234u);
}
} // namespace
