// The trace as a reader finds it in the file, and failure records.
#include <windows.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <sstream>

#include "funcnames.h"
#include "hook.h"
#include "product_sandbox.h"
#include "returncodes.h"
#include "tovxcs2.h"

namespace {
using testing::ElementsAre;
using testing::HasSubstr;
using testing::SizeIs;

XTR_THREAD_AREA* Area() { return static_cast<XTR_THREAD_AREA*>(TlsGetValue(xihTLSIndex)); }

void AddToHistory(uint32_t nEntry) { Area()->aHistory[Area()->nHistory++ & (XTR_HISTORY_SIZE - 1)] = nEntry; }

// What a traced program does by itself on the way in and out.
void Enter(int nFunction) {
    AddToHistory(XTR_ENTRY_MARK | 42 << 10 | nFunction);
    ++Area()->nDepth;
    xtr_FNC_entry(Area(), 42, nFunction);
}

void Leave(int nFunction, int32_t nReturnCode) {
    if (Area()->nDepth > 0) --Area()->nDepth;
    AddToHistory((static_cast<uint32_t>(nReturnCode) << 16) + (42 << 10) + nFunction);
    xtr_FNC_retcode(Area(), 42, nFunction, nReturnCode);
}

class Services {
  public:
    explicit Services(const wchar_t* pszTrace) {
        SetEnvironmentVariableW(L"ZN_TRACE", pszTrace);
        EXPECT_EQ(TlsGetValue(xihTLSIndex), nullptr);
        EXPECT_EQ(xcsInitializeEx(48, 7, nullptr, nullptr, nullptr, nullptr, nullptr, &m_connection), XCS_RC_OK);
        nEstablished = xtrEstablishTraceStatus();
    }
    ~Services() {
        EXPECT_EQ(xcsTerminate(&m_connection, 4), XCS_RC_OK);
        EXPECT_EQ(TlsGetValue(xihTLSIndex), nullptr);
        EXPECT_EQ(xihProcess.fTraceEnabled, 0u);
    }
    int32_t nEstablished;

  private:
    XCS_CONNECTION m_connection;
};

// The one file of a directory of the work path; empty when there is not exactly one.
std::string TheFile(const Sandbox& sandbox, const std::string& strDirectory) {
    const auto names = sandbox.Names(strDirectory);
    return names.size() == 1 ? sandbox.Read(strDirectory + "/" + names[0]) : "";
}

// The trace's records without the two lines above them, times replaced by nothing.
std::vector<std::string> Records(const Sandbox& sandbox) {
    std::istringstream stream(TheFile(sandbox, "trace"));
    std::vector<std::string> records;
    constexpr size_t TIME_WIDTH = 14;
    for (std::string strLine; std::getline(stream, strLine);)
        records.push_back(strLine.substr(std::min(TIME_WIDTH, strLine.size()), strLine.find("  (") - std::min(TIME_WIDTH, strLine.size())));
    records.erase(records.begin(), records.begin() + std::min<size_t>(2, records.size()));
    for (auto& str : records)
        if (str.ends_with('\r')) str.pop_back();
    return records;
}

TEST(Trace, TellsACallTree) {
    const Sandbox sandbox;
    {
        const Services services(L"flow");
        EXPECT_EQ(Area()->fTraceActive, 1u);
        EXPECT_EQ(Area()->fDetailed, 0u);
        Enter(179);
        Enter(168);
        Leave(168, -1);
        Enter(99);
        Leave(99, 0);
        // What has been written is there while the program still runs, or is killed.
        EXPECT_THAT(Records(sandbox),
            ElementsAre("> _tmain", "|  > CZNMSCSApp::MigrateQueueManager", "|  < CZNMSCSApp::MigrateQueueManager = -1",
                "|  > component 42 function 99", "|  < component 42 function 99 = 0"));
        EXPECT_THAT(TheFile(sandbox, "trace"), HasSubstr(" ms)"));
    }
}

TEST(Trace, FormatsParametersWithoutLoss) {
    const Sandbox sandbox;
    {
        const Services services(L"detail");
        ASSERT_NE(xihProcess.fTraceEnabled, 0u);
        ASSERT_NE(Area()->fDetailed & (Area()->nOptions & XTR_OPTIONS_PARMS), 2u);
        int nWritten = 77;
        xtr_parms("plain 100%%");
        xtr_parms("%s|%S|%d|%u|%04x|%lld|%c", "\xE4", L"\x4F60\xD83D\xDE00", -1, 4294967295u, 0xAB, 1LL << 40, 'c');
        xtr_parms("%S %S %s", L"\xD83D", nullptr, nullptr);
        xtr_parms("%S", L"a\nb\r\tc\x01");
        xtr_parms("%.2s|%.3S|%5d|%-5d|%.1f", "abc", L"defg", 7, 7, 1.25);
        xtr_parms("%n%d", &nWritten, 5);
        xtr_parms("%", 0);
        xtr_parms("%!q", 0);
        xtr_FNC_text(42, 55, Area(), 0, "Queue manager is RUNNING 100%s");
        EXPECT_EQ(nWritten, 77);
        EXPECT_THAT(Records(sandbox),
            ElementsAre(". plain 100%", ". \xC3\xA4|\xE4\xBD\xA0\xF0\x9F\x98\x80|-1|4294967295|00ab|1099511627776|c",
                ". \\uD83D (null) (null)", ". a\\nb\\r\\tc\\x01", ". ab|def|    7|7    |1.2", ". %n5", ". %", ". %!q",
                "- Queue manager is RUNNING 100%s"));
        xtr_parms("%S", std::wstring(100'000, L'x').c_str());
        EXPECT_THAT(Records(sandbox).back(), SizeIs(2 + 16'384));
    }
}

// An exit too many, a depth beyond every array, a handle that is gone: the caller never notices.
TEST(Trace, SurvivesDamagedCounters) {
    const Sandbox sandbox;
    const Services services(L"flow");
    Leave(179, 71);
    EXPECT_EQ(Area()->nDepth, 0u);
    xtr_FNC_entry(Area(), 42, 179); // not counted
    for (const uint32_t nDepth : {128u, 129u, 5000u, 0xFFFFFFFFu}) {
        Area()->nDepth = nDepth;
        xtr_FNC_entry(Area(), 42, 31);
        xtr_FNC_retcode(Area(), 42, 31, 0);
        xtr_FNC_entry(nullptr, 42, 31);
    }
    Area()->nDepth = 0;
    EXPECT_THAT(Records(sandbox), SizeIs(10));
}

TEST(Trace, IsOffOrImpossibleWithoutFailingAnybody) {
    for (const wchar_t* pszTrace : {L"", L"1", L"flowx", static_cast<const wchar_t*>(nullptr)}) {
        const Sandbox sandbox;
        const Services services(pszTrace);
        EXPECT_EQ(services.nEstablished, XCS_RC_OK);
        EXPECT_EQ(Area()->fTraceActive | xihProcess.fTraceEnabled, 0u);
        EXPECT_THAT(sandbox.Names(), ElementsAre("zns.ini"));
    }
    const Sandbox sandbox;
    sandbox.Write("trace", "a file in the way");
    const Services services(L"flow");
    EXPECT_NE(services.nEstablished, XCS_RC_OK);
    EXPECT_EQ(Area()->fTraceActive | xihProcess.fTraceEnabled, 0u);
    XTR_THREAD_AREA* const pArea = Area();
    SetLastError(1234); // the program may hand records over all the same, and has yet to read its error
    xtr_FNC_entry(pArea, 42, 179);
    xtr_parms("%d", 1);
    xcsVORTFn(42, 179, 1, XCS_RC_PROGRAM_FAILURE, nullptr, nullptr, nullptr, nullptr);
    EXPECT_EQ(GetLastError(), 1234u);
}

TEST(Initialization, FailsWithoutConfigurationAndHappensOnce) {
    const Sandbox sandbox;
    const Services services(nullptr);
    XCS_CONNECTION other = {};
    EXPECT_NE(xcsInitializeEx(48, 7, nullptr, nullptr, nullptr, nullptr, nullptr, &other), XCS_RC_OK);
    EXPECT_NE(xcsTerminate(&other, 4), XCS_RC_OK); // and the first one stays
    DWORD nError = 0;
    HANDLE hThread = CreateThread(
        nullptr, 0,
        [](void* p) -> DWORD {
            XCS_CONNECTION connection = {};
            SetEnvironmentVariableW(L"ZN_WORK_PATH", L"C:\\no such path");
            *static_cast<DWORD*>(p) = xcsInitializeEx(48, 7, nullptr, nullptr, nullptr, nullptr, nullptr, &connection);
            return 0;
        },
        &nError, 0, nullptr);
    WaitForSingleObject(hThread, INFINITE);
    CloseHandle(hThread);
    EXPECT_EQ(nError, DWORD{XCS_RC_SYSTEM});
}

void Report(const char* pszText, int nFunction = 33) {
    XCS_INSERTS inserts = {};
    std::memcpy(inserts.achEyeCatcher, "XMSA", 4);
    inserts.apszText[0] = pszText;
    xcsVORTFn(42, nFunction, 10, XCS_RC_PROGRAM_FAILURE, &inserts, nullptr, nullptr, nullptr);
}

TEST(FailureRecord, TellsWhatHappenedAndWhatLedToIt) {
    const Sandbox sandbox;
    const Services services(nullptr);
    for (int n = 0; n < 300; ++n) // the history wraps
        Enter(29);
    Enter(31);
    Enter(33);
    Leave(33, -1);
    Leave(31, 5);
    xcsSaveFileContextSccsId("@(#) source", 140);
    Report("Error 5 setting file security on 'E:\\\xE4'");
    const std::string strRecord = TheFile(sandbox, "errors");
    for (const char* pszPart : {"ZNMFileSecurity::ChangeFileSecurity (33)\r\n", "Probe        10\r\n", "0x40006119", "XMSA\r\n",
             "Error 5 setting file security on 'E:\\\xC3\xA4'\r\n", "System       error 5: Access", "@(#) source, line 140\r\n",
             "product_test"})
        EXPECT_THAT(strRecord, HasSubstr(pszPart));
    EXPECT_THAT(strRecord,
        testing::EndsWith("  > CZNMFileSecurity::SetSecurityOnFiles\r\n"
                          "  > CZNMFileSecurity::ChangeFileSecurity\r\n"
                          "  < CZNMFileSecurity::ChangeFileSecurity = -1\r\n"
                          "  < CZNMFileSecurity::SetSecurityOnFiles = 5\r\n"));
    Area()->nDepth = 0;
}

TEST(FailureRecord, ShowsTheSystemsWordsForTheFirstNumberOnly) {
    const std::pair<const char*, const char*> cases[] = {
        {"LookupPrivilegeValue() failed, error: 87", "System       error 87: "},
        {"FindFirstFileEx(1) error 3, path 'error 5'", "System       error 3: "},
        {"Create SID error, file: 5", nullptr},
        {"", nullptr},
        {nullptr, nullptr},
    };
    for (const auto& [pszText, pszShown] : cases) {
        const Sandbox sandbox;
        Report(pszText);
        const std::string strRecord = TheFile(sandbox, "errors");
        EXPECT_THAT(strRecord, HasSubstr("Probe"));
        EXPECT_EQ(strRecord.find("\nSystem ") != std::string::npos, pszShown != nullptr) << strRecord;
        if (pszShown != nullptr) EXPECT_THAT(strRecord, HasSubstr(pszShown));
    }
}

TEST(FailureRecord, KeepsAHundredAndOverwritesNone) {
    const Sandbox sandbox;
    std::filesystem::create_directory(sandbox.Path("errors"));
    sandbox.Write("errors/notes.txt", "mine");
    for (int n = 0; n < 105; ++n) Report(std::to_string(n).c_str());
    EXPECT_THAT(sandbox.Names("errors"), SizeIs(101));
    EXPECT_EQ(sandbox.Read("errors/notes.txt"), "mine");
}

// A directory that leads elsewhere, a disk that takes nothing: no record, and no harm.
TEST(FailureRecord, IsGivenUpWhereItMustNotOrCannotBeWritten) {
    const Sandbox sandbox;
    {
        ImportHook<decltype(GetFileInformationByHandle)> hook("GetFileInformationByHandle", [](HANDLE, BY_HANDLE_FILE_INFORMATION* p) {
            p->dwFileAttributes = FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_REPARSE_POINT;
            return TRUE;
        });
        Report("text");
    }
    EXPECT_THAT(sandbox.Names("errors"), SizeIs(0));
    ImportHook<decltype(CreateFileW)> hook("CreateFileW", [](auto...) { return INVALID_HANDLE_VALUE; });
    Report("text");
    xcsVORTFn(-1, -1, -1, -1, nullptr, nullptr, nullptr, nullptr);
    EXPECT_THAT(sandbox.Names("errors"), SizeIs(0));
}

TEST(FunctionNames, KnownAndUnknown) {
    EXPECT_EQ(FunctionName(42, 26), "CZNMException::CZNMException");
    EXPECT_EQ(FunctionName(42, 181), "CZNCmdLineInfo::ParseParam");
    EXPECT_EQ(FunctionName(42, 182), "component 42 function 182");
    EXPECT_EQ(FunctionName(23, 31), "component 23 function 31");
}
} // namespace
