// Whole runs as transcripts: what the shipped program calls and traces, in order, as text files. A change
// that is wanted is written into them by
//     export ZN_TRANSCRIPTS_UPDATE=tests/runs/transcripts
//     scripts/wine build/windows/bin/runs_test.exe --gtest_filter=Transcripts.*
// and reviewed as their difference. runs/faults/notes.cpp tells what a line means. In the rows '?' is the
// root.
#include <gtest/gtest.h>

#include <cstdlib>
#include <regex>

#include "installation.h"
#include "messagetexts.h"

namespace
{
constexpr wchar_t WORDS[] = L"/m QM1 /dd ?\\newdata /ld ?\\newlog\\";
#define RUNS "xcsIsSubpoolActive:1:a:0:0;"
constexpr char OWNER_FAULTS[] = "SetNamedSecurityInfoW:1:a:5:5;LookupPrivilegeValueW:1:o:0:8;"
                                "OpenProcessToken:1:o:0:9;AdjustTokenPrivileges:1:o:0:a";
// Other steps fail for each of the directories that are created.
constexpr char UNREADABLE[] = "xcsVolumeSupportsSecurity:1:o:1:0;GetNamedSecurityInfoW:1:o:5:5;"
                              "GetAce:3:o:0:1;SetEntriesInAclW:2:o:8:8;SHFileOperationW:1:o:7c:0";
constexpr char ABSENT[] = "GetNamedSecurityInfoW:1:o:2:2;IsValidSid:3:o:0:539;"
                          "SetNamedSecurityInfoW:3:o:57:57;SHFileOperationW:1:o:7c:0";
constexpr char AGAIN[] =
    "GetNamedSecurityInfoW:1:o:3:3;LookupAccountNameW:1:o:0:7a;SHFileOperationW:1:o:7c:4c8";
constexpr char OLD_FILE[] = "write OD\\s\\f x;protect OD\\s\\f";
#define OWNER "configured InstallationName=Inst1 InstallationName="
#define NO_SECURITY "xcsVolumeSupportsSecurity:1:a:40806178:0;"

// With a root of one component, as each component has its lines when directories are created.
struct SmallInstallation : Installation
{
    SmallInstallation()
    {
        SetFileAttributesW((oldData / "s\\b").c_str(), FILE_ATTRIBUTE_NORMAL);
        for (const fs::path& path : {oldData / "a", oldData / "s", oldLog / "active"})
            fs::remove_all(path);
        fs::create_directories(newData);
        fs::create_directories(newLog);
    }

    std::string Transcript(const std::wstring& strWords, const std::string& strFaults)
    {
        SetEnvironmentVariableW(L"ZN_FAULTS_NOTES", (work / "trace notes").c_str());
        const RunResult result = Run(strWords, strFaults.empty() ? "malloc:0:o:0:0" : strFaults);
        SetEnvironmentVariableW(L"ZN_FAULTS_NOTES", nullptr);
        std::string str = ReadAll(work / "trace notes") + "status " +
                          std::to_string(static_cast<int>(result.nStatus)) + ", " + State() +
                          (IsRestUntouched() ? "\n" : ", something else has changed\n") + result.strErr +
                          result.strOut;
        if (const size_t nUser = str.rfind("\nUser '"); nUser != std::string::npos)
            str.replace(nUser, std::string::npos, "\n(the library's text)\n");
        std::erase(str, '\r');
        for (const auto& [strOld, strNew] : {std::pair(root.filename().string(), std::string("root")),
                                             {"\\b0{16}\\b", "null"},
                                             {"\\b[0-9A-F]{16}\\b", "p"}})
            str = std::regex_replace(str, std::regex(strOld), strNew);
        // Messages by their numbers: the texts differ between languages.
        for (unsigned nID = 20; nID < 50; ++nID)
        {
            std::string strText = Message(nID);
            std::erase(strText, '\r');
            strText.pop_back();
            for (size_t n = 0; !strText.empty() && (n = str.find(strText, n)) != str.npos;)
                str.replace(n, strText.size(), "(message " + std::to_string(nID) + ")");
        }
        return str;
    }
};
} // namespace

TEST(Transcripts, AreAsKept)
{
    const struct
    {
        const char* pszName;
        std::string strFaults = "";
        std::wstring strWords = WORDS;
        std::string strBefore = ""; // what is done before
    } cases[] = {
        {"moved", "", L"/m QM1 /dd ?\\newdata /ld ?\\newlog\\\\",
         std::string("remove R\\newdata;") + OLD_FILE},
        {"stopped-and-moved", RUNS NO_SECURITY "xcsExecProgramHandle:1:o:0:0",
         L"-LD ?/newlog -M QM1 -DD ?\\newdata\\"},
        {"end-authority", "xcsCheckAuthorization:1:o:40806177:0"},
        {"end-authority-volume", "xcsCheckAuthorization:1:o:40806178:0"},
        {"end-consistency", "xcsCheckConsistency:1:o:20006110:0"},
        {"end-framework", "GetModuleHandleW:1:o:0:7e"},
        {"end-framework-words", "GetCommandLineW:1:o:0:8"},
        {"end-initialize", "xcsInitializeEx:1:o:20006110:0"},
        {"end-words-few", "", L"/m QM1 /ld ?\\newlog"},
        {"end-words-many", "", L"/m QM1 /dd ?\\newdata /ld ?\\newlog /m QM1"},
        {"end-words-flag", "", L"/m QM1 /dd ?\\newdata /Xy%s%n%% ?\\newlog"},
        {"end-words-pair", "", L"/m /dd ?\\newdata /ld ?\\newlog /m"},
        {"end-words-value", "", L"QM1 /m /dd ?\\newdata /ld ?\\newlog"},
        {"end-32", "", L"/m QM2 /dd ?\\newdata /ld ?\\newlog"},
        {"end-32-deleted", "xcsGetQMDetails:2:a:1:0"},
        {"end-32-record", "xcsGetQMDetails:1:a:0:0"},
        {"end-32-installation", "xcsGetInstallationDetails:1:a:10006164:0"},
        {"end-32-installation-record", "xcsGetInstallationDetails:1:a:0:0"},
        {"end-32-primary", "xcsGetInstallationDetails:1:a:10006164:0", WORDS, OWNER "Installation0"},
        {"end-33", RUNS "xcsExecProgramHandle:1:o:1:0"},
        {"end-37-access", "_waccess:2:o:ffffffff:5"},
        {"end-37-attributes", "GetFileAttributesW:2:o:ffffffff:45d", L"/m QM1 /dd ?\\data /ld ?\\log"},
        {"end-37-file", "", WORDS, "remove NL;write NL x;protect NL"},
        {"end-37-parent", "", L"/m QM1 /dd ?\\bystander\\file /ld ?\\log"},
        {"end-38-created", NO_SECURITY "xcsCreateDirectory:2:o:1:5", L"/m QM1 /dd ?\\data /ld ?\\log"},
        {"end-38-copy", "SetCurrentDirectoryW:1:a:0:3;SHFileOperationW:1:o:7c:0"},
        {"end-38-owner", OWNER_FAULTS, WORDS, OLD_FILE},
        {"end-38-owner-gone", "SetNamedSecurityInfoW:2:a:2:2"},
        {"end-38-rights", UNREADABLE, L"/m QM1 /dd ?\\data\\x /ld ?\\newlog"},
        {"end-38-rights-absent", ABSENT, WORDS, "remove R\\newdata"},
        {"end-38-rights-again", AGAIN, WORDS, "remove NL"},
        {"end-38-merge", "SetEntriesInAclW:1:a:8:8"},
        {"end-38-sid-znm", "LookupAccountNameW:1:o:0:534"},
        {"end-38-sid-znm-again", "LookupAccountNameW:1:a:0:7a"},
        {"end-38-sid-system", "AllocateAndInitializeSid:1:o:0:539"},
        {"end-38-sid-world", "AllocateAndInitializeSid:2:o:0:539"},
        {"end-38-sid-admin", "AllocateAndInitializeSid:3:o:0:539"},
        {"end-39-prefix", NO_SECURITY "GetCurrentDirectoryW:1:o:12c:0;xcsIniUtilWrite:1:o:1:0"},
        {"end-39-logpath", NO_SECURITY "xcsIniUtilWrite:2:o:1:0"},
        {"end-40-file", NO_SECURITY "DeleteFileW:1:o:0:20"},
        {"end-40-directory", NO_SECURITY "RemoveDirectoryW:1:o:0:91"},
        {"end-42", "", L"/m QM1 /dd ?\\olddata /ld ?\\newlog", OWNER},
        {"end-42-log", "", L"/m QM1 /dd ?\\newdata /ld ?\\oldlog"},
        {"end-42-both", "", L"/m QM1 /dd ?\\newlog /ld ?\\newlog\\qmgrs",
         OWNER "Installation0;write OD\\qm.ini Log:\n LogPath=?\\oldlog\\QM!1\\\\;protect OD\\qm.ini"},
        {"end-47", RUNS, WORDS, OWNER "Inst1\r\n   MultiInstance=Yes"},
        {"end-znsini", "xcsGetIniFilename:1:o:1:0"},
        {"end-qmini", "xcsGetIniFilename:2:o:1:0"},
        {"end-qmini-new", NO_SECURITY "xcsGetIniFilename:3:o:1:0"},
        {"end-logpath", "xcsIniUtilRead:1:o:1:0"},
    };
    const char* const pszKept = std::getenv("ZN_TRANSCRIPTS_UPDATE");
    const char* const pszTmp = std::getenv("TMP");
    const std::string strTmp = pszTmp != nullptr ? pszTmp : "";
    for (const auto& c : cases)
    {
        SCOPED_TRACE(c.pszName);
        SetEnvironmentVariableA("TMP", "C:\\");
        SmallInstallation zn;
        SetEnvironmentVariableA("TMP", strTmp.c_str());
        zn.Do(std::regex_replace(c.strBefore, std::regex("\\?"), zn.root.string()));
        zn.Remember();
        const std::wstring strWords = std::regex_replace(c.strWords, std::wregex(L"\\?"), zn.root.wstring());
        const std::string strTranscript = zn.Transcript(strWords, c.strFaults),
                          strFile = std::string(c.pszName) + ".txt";
        if (pszKept != nullptr)
            WriteAll(fs::path(pszKept) / strFile, strTranscript);
        else
            EXPECT_EQ(ReadAll(ProgramFolder() / "transcripts" / strFile), strTranscript);
    }
    if (pszKept != nullptr)
        GTEST_SKIP() << "written to " << pszKept;
}
