// The product's programs as whole runs: words handed over, a queue manager's life, the utility library's
// texts.
#include <windows.h>
#include <shellapi.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>

#include "owner.h"
#include "product_sandbox.h"
#include "returncodes.h"
#include "tovxcs2.h"

namespace {
using testing::ElementsAreArray;
using testing::HasSubstr;

constexpr const wchar_t* ECHO_FILE = L"ZN_TEST_ECHO";

// Started with that variable, this program is the child: it writes the words that it got and ends with 42.
const struct Echo {
    Echo() {
        wchar_t szFile[MAX_PATH];
        if (GetEnvironmentVariableW(ECHO_FILE, szFile, MAX_PATH) == 0) return;
        int nWords = 0;
        wchar_t** ppWords = CommandLineToArgvW(GetCommandLineW(), &nWords);
        std::ofstream file(std::filesystem::path(szFile), std::ios::binary);
        for (int n = 1; n < nWords; ++n) {
            char szWord[1000];
            WideCharToMultiByte(CP_ACP, 0, ppWords[n], -1, szWord, sizeof szWord, nullptr, nullptr);
            file << szWord << '\0';
        }
        file.close();
        std::_Exit(42);
    }
} s_echo;

std::string ProgramPath(const std::string& strName = "") {
    char szPath[MAX_PATH];
    GetModuleFileNameA(nullptr, szPath, MAX_PATH);
    return strName.empty() ? szPath : std::filesystem::path(szPath).replace_filename(strName).string();
}

int32_t Execute(const std::string& strProgram, const std::vector<std::string>& words, int32_t& nResult) {
    std::string strBlock = strProgram + '\0';
    for (const auto& strWord : words) strBlock += strWord + '\0';
    return xcsExecProgramHandle(
        31, strProgram.c_str(), 1, (strBlock + '\0').c_str(), nullptr, 2, 34, nullptr, nullptr, nullptr, &nResult, nullptr);
}

TEST(Program, HandsEveryWordOverAsItIs) {
    const Sandbox sandbox;
    const std::vector<std::string> words = {
        "-w", "QM1", "a b", "a\"b", "\"", "\\", "\\\\", "a\\", "a b\\", "a\\\"b", "a\\\\\"", "\t", "%PATH%", "&|<>^", "*", "'", "\xE4"};
    SetEnvironmentVariableW(ECHO_FILE, std::filesystem::path(sandbox.Path("words")).c_str());
    int32_t nResult = 0;
    EXPECT_EQ(Execute(ProgramPath(), words, nResult), XCS_RC_OK);
    SetEnvironmentVariableW(ECHO_FILE, nullptr);
    EXPECT_EQ(nResult, 42);
    std::string strExpected;
    for (const auto& strWord : words) strExpected += strWord + '\0';
    EXPECT_EQ(sandbox.Read("words"), strExpected);
}

TEST(Program, RunsOnlyWhatIsNamedInFull) {
    const Sandbox sandbox;
    sandbox.Write("a.bat", "exit 0");
    sandbox.Write("b.exe", "no program");
    for (const std::string& strProgram : std::vector<std::string>{"cmd.exe", "\\windows\\system32\\cmd.exe", "C:cmd.exe", "",
             sandbox.Path("a.bat"), sandbox.Path("b.exe"), sandbox.Path("none.exe"), sandbox.Path()}) {
        int32_t nResult = 77;
        EXPECT_NE(Execute(strProgram, {"-w"}, nResult), XCS_RC_OK) << strProgram;
        EXPECT_EQ(nResult, 77);
    }
    int32_t nResult = 77;
    EXPECT_NE(Execute(ProgramPath(), {std::string(40'000, 'x')}, nResult), XCS_RC_OK);
    EXPECT_NE(xcsExecProgramHandle(31, nullptr, 1, "", nullptr, 2, 34, nullptr, nullptr, nullptr, &nResult, nullptr), XCS_RC_OK);
}

// One of the product's programs; words that need no quoting.
KernelHandle StartProgram(const std::string& strName, const std::string& strWords) {
    std::string strLine = "\"" + ProgramPath(strName) + "\" " + strWords;
    STARTUPINFOA startup = {};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION information = {};
    EXPECT_TRUE(CreateProcessA(nullptr, strLine.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup, &information));
    const KernelHandle thread(information.hThread);
    return KernelHandle(information.hProcess);
}

int RunProgram(const std::string& strName, const std::string& strWords) {
    const KernelHandle process = StartProgram(strName, strWords);
    DWORD nCode = 0;
    WaitForSingleObject(process.Get(), INFINITE);
    GetExitCodeProcess(process.Get(), &nCode);
    return static_cast<int>(nCode);
}

class SampleQueueManager : public testing::Test {
  protected:
    SampleQueueManager() {
        EXPECT_EQ(SampleQm("create QM.1 /dd " + sandbox.Path("data\\") + " /ld " + sandbox.Path("log") + " /files 60"), 0);
    }
    ~SampleQueueManager() override { EndZnm("-i QM.1"); }

    int SampleQm(const std::string& strWords) { return RunProgram("sampleqm.exe", strWords); }
    int EndZnm(const std::string& strWords) { return RunProgram("endznm.exe", strWords); }
    bool IsActive() { return xcsIsSubpoolActive("QM.1", "QM!1", nullptr, 2, strIdentity.c_str()) == 0; }
    size_t Records(const std::string& strFile) {
        const std::string strContent = sandbox.Read(strFile);
        return static_cast<size_t>(std::count(strContent.begin(), strContent.end(), '\n'));
    }

    // Test programs that run at the same time have queue managers of their own.
    const std::string strIdentity = "Id" + std::to_string(GetCurrentProcessId());
    Sandbox sandbox{"Installation:\r\n   Name=One\r\n   Path=C:\\inst\r\n   Identity=" + strIdentity + "\r\n"};
    const std::string strActivity = "data/qmgrs/QM!1/activity.rec";
    const std::string strJournal = "log/QM!1/journal.rec";
};

TEST_F(SampleQueueManager, LivesAndEnds) {
    EXPECT_EQ(sandbox.Read("data/qmgrs/QM!1/qm.ini"),
        "# Configuration of this queue manager.\r\nLog:\r\n   LogPath=" + sandbox.Path("log") + "\\QM!1\\\r\n");
    EXPECT_EQ(SampleQm("create QM.1 /dd " + sandbox.Path("data2") + " /ld " + sandbox.Path("log2")), 2);
    EXPECT_EQ(SampleQm("verify QM.1"), 0);
    EXPECT_FALSE(IsActive());
    EXPECT_EQ(EndZnm("-w QM.1"), 3);
    EXPECT_EQ(SampleQm("start QM.1"), 0);
    EXPECT_TRUE(IsActive());
    EXPECT_GE(Records(strActivity), 2u); // the first one straight after the start
    EXPECT_GE(Records(strJournal), 2u);
    EXPECT_EQ(SampleQm("start QM.1"), 4);
    EXPECT_EQ(SampleQm("verify QM.1"), 0);
    EXPECT_EQ(EndZnm("-w QM.1"), 0);
    EXPECT_FALSE(IsActive());
    EXPECT_EQ(SampleQm("verify QM.1"), 0);
}

TEST_F(SampleQueueManager, RefusesToEndWhenToldTo) {
    const std::string strReady = "Local\\ZN.Test." + strIdentity;
    const KernelHandle ready(CreateEventA(nullptr, TRUE, FALSE, strReady.c_str()));
    const KernelHandle process = StartProgram("sampleqm.exe", "run QM.1 /refuse /ready " + strReady);
    const HANDLE ah[] = {ready.Get(), process.Get()};
    ASSERT_EQ(WaitForMultipleObjects(2, ah, FALSE, INFINITE), WAIT_OBJECT_0);
    for (const char* pszOption : {"-w ", "-i ", "-p ", "-rp ", "-ri ", ""})
        EXPECT_EQ(EndZnm(pszOption + std::string("QM.1")), 4) << pszOption;
    EXPECT_TRUE(IsActive());
    TerminateProcess(process.Get(), 9);
    WaitForSingleObject(process.Get(), INFINITE);
    EXPECT_FALSE(IsActive());
    EXPECT_EQ(EndZnm("QM.1"), 3);
    // The crash cut a record off in one file, and in the other nothing.
    const std::string strWhole = sandbox.Read(strActivity);
    sandbox.Write(strActivity, strWhole + "00000009 half a rec");
    EXPECT_EQ(SampleQm("start QM.1"), 0);
    EXPECT_EQ(EndZnm("QM.1"), 0);
    EXPECT_EQ(sandbox.Read(strActivity).substr(0, strWhole.size()), strWhole);
    EXPECT_EQ(SampleQm("verify QM.1"), 0);
}

TEST_F(SampleQueueManager, DoesNotStartWithDamagedOrMissingFiles) {
    const std::string strFile = "log/QM!1/file00001.rec", strRead = sandbox.Read(strFile);
    std::string strFlipped = strRead;
    strFlipped[strFlipped.find("message")] ^= 1;
    const size_t nLast = strRead.rfind('\n', strRead.size() - 2) + 1;
    for (const auto& strDamaged : {strFlipped, strRead.substr(0, nLast), strRead.substr(0, strRead.size() - 1),
             strRead.substr(strRead.find('\n') + 1), strRead + "x", std::string()}) {
        sandbox.Write(strFile, strDamaged);
        EXPECT_EQ(SampleQm("start QM.1"), 3);
        EXPECT_EQ(SampleQm("verify QM.1"), 3);
    }
    std::filesystem::remove(sandbox.Path(strFile));
    EXPECT_EQ(SampleQm("verify QM.1"), 3);
    sandbox.Write(strFile, strRead);
    EXPECT_EQ(SampleQm("verify QM.1"), 0);
    sandbox.Write("data/qmgrs/QM!1/manifest.rec", "");
    EXPECT_EQ(SampleQm("start QM.1"), 3);
    EXPECT_FALSE(IsActive());
}

TEST_F(SampleQueueManager, StartsWhereTheConfigurationSays) {
    for (const char* pszRoot : {"data", "log"}) std::filesystem::rename(sandbox.Path(pszRoot), sandbox.Path(std::string("new ") + pszRoot));
    EXPECT_EQ(SampleQm("verify QM.1"), 2); // its qm.ini is gone
    const auto set = [&](const char* pszStanza, const char* pszKey, const char* pszAttribute, const std::string& strValue,
                         const std::string& strFile) {
        return xcsIniUtilWrite(pszStanza, pszKey, pszKey != nullptr ? "QM.1" : nullptr, pszAttribute, strValue.c_str(), strFile.c_str(), 1);
    };
    EXPECT_EQ(set("QueueManager", "Name", "Prefix", sandbox.Path("new data"), sandbox.Path("zns.ini")), 0);
    EXPECT_EQ(SampleQm("start QM.1"), 3); // its log files are gone
    EXPECT_EQ(set("Log", nullptr, "LogPath", sandbox.Path("new log\\QM!1\\"), sandbox.Path("new data\\qmgrs\\QM!1\\qm.ini")), 0);
    EXPECT_EQ(SampleQm("start QM.1"), 0);
    EXPECT_GE(Records("new " + strActivity), 2u);
    EXPECT_GE(Records("new " + strJournal), 2u);
    EXPECT_EQ(EndZnm("-p QM.1"), 0);
    EXPECT_FALSE(std::filesystem::exists(sandbox.Path("data")));
}

TEST(Programs, RefuseWrongUse) {
    const Sandbox sandbox;
    for (const char* pszWords : {"", "QM1", "jump QM1", "start QM1 /files", "create QM1 /dd C:\\x", "create Q*M /dd C:\\x /ld C:\\y",
             "create QM1 /dd C:\\x /ld C:\\y /files -1"})
        EXPECT_EQ(RunProgram("sampleqm.exe", pszWords), 1) << pszWords;
    for (const char* pszWords : {"", "-x QM1", "-w", "-w QM1 QM2"})
        EXPECT_EQ(RunProgram("endznm.exe", pszWords), std::string_view(pszWords) == "-w" ? 2 : 1) << pszWords;
    EXPECT_EQ(RunProgram("sampleqm.exe", "verify QM1"), 2);
    EXPECT_EQ(RunProgram("endznm.exe", "QM1"), 2);
    SetEnvironmentVariableW(L"ZN_WORK_PATH", L"relative");
    EXPECT_EQ(RunProgram("endznm.exe", "QM1"), 6);
}
} // namespace
