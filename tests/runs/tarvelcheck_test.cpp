// Whole runs of tarvelcheck.exe: what it says before a move, and whether its advice after one that ended
// anywhere brings the queue manager back together. The advice is executed as it is printed.
#include <gmock/gmock.h>

#include <random>
#include <regex>
#include <sstream>

#include "installation.h"
#include "znmrecord.h"

using testing::HasSubstr;
using testing::Not;

namespace
{
enum Goal
{
    FINISH,
    TAKE_BACK
};
const char* const HEADINGS[] = {"To finish the move:", "To take the move back:"};
const char* const GOAL_STATES[] = {"data -+ log -+ zns new qm new", "data +- log +- zns old qm old"};
const DWORD GOAL_STATUSES[] = {0, 1};

class Checked : public Installation
{
  public:
    RunResult Check(const std::wstring& strMode, const std::wstring& strMore = L"")
    {
        const std::wstring strKnown = strMode == L"before" ? L"" : fRecord ? Record() : OldPlaces();
        return RunProgram(ProgramFolder() / "tarvelcheck.exe",
                          strMode + L" " + MoveWords() + strKnown + strMore, root);
    }
    std::wstring Record() const { return L" /record \"" + (root / "QM1 before.txt").wstring() + L"\""; }
    std::wstring OldPlaces() const { return L" /od " + oldData.wstring() + L" /ol " + oldLog.wstring(); }
    void MakeRecord()
    {
        fRecord = true;
        const RunResult result = Check(L"before", Record());
        EXPECT_EQ(result.nStatus, 0u) << result.strOut;
        rest[L"QM1 before.txt"] = ReadAll(root / "QM1 before.txt");
    }

    // Executes the steps below a heading: commands by cmd.exe, edits by hand. False if there are none.
    bool Follow(const std::string& strAdvice, Goal eGoal)
    {
        std::istringstream lines(
            strAdvice.substr(std::min(strAdvice.find(HEADINGS[eGoal]), strAdvice.size())));
        bool fAny = false;
        std::string strLine;
        std::getline(lines, strLine);
        while (std::getline(lines, strLine) && strLine.starts_with("    "))
        {
            fAny = true;
            strLine = strLine.substr(4, strLine.find('\r') - 4);
            const std::wstring strWide(strLine.begin(), strLine.end());
            if (strLine.starts_with("edit "))
                Edit(strLine);
            else
                RunProgram(L"C:\\windows\\system32\\cmd.exe", L"/c \"" + strWide + L"\"", root);
        }
        return fAny;
    }

    // Asks and follows until the goal is reached; what was said otherwise.
    std::string Recover(Goal eGoal)
    {
        std::string strSaid;
        for (int nRound = 0; nRound < 4; ++nRound)
        {
            const std::string strBefore = State();
            const RunResult said = Check(L"after");
            EXPECT_EQ(State(), strBefore);
            strSaid += strBefore + "\n" + std::to_string(said.nStatus) + "\n" + said.strOut;
            if (said.nStatus == GOAL_STATUSES[eGoal] && State() == GOAL_STATES[eGoal])
                return "";
            if (!Follow(said.strOut, eGoal))
                break;
        }
        return strSaid + State();
    }

    bool fRecord = false;

  private:
    static void Edit(const std::string& strLine)
    {
        std::smatch match;
        ASSERT_TRUE(std::regex_match(
            strLine, match, std::regex("edit \"(.*)\": in the stanza .* the line must read (.*)=(.*)")));
        std::string strText = ReadAll(match[1].str());
        const size_t nStanza = match[2] == "Prefix" ? strText.find("Name=QM1") : 0;
        const size_t nValue = strText.find(match[2].str() + "=", nStanza) + match[2].length() + 1;
        strText.replace(nValue, strText.find_first_of("\r\n", nValue) - nValue, match[3].str());
        std::ofstream(fs::path(match[1].str()), std::ios::binary) << strText;
    }
};

// Moves that fail at a call or end there, as if the power had failed (see faults/faults.cpp).
std::string Recovered(const std::string& strFault, Goal eGoal, bool fRecord)
{
    Checked zn;
    if (fRecord)
        zn.MakeRecord();
    zn.Run(zn.MoveWords(), strFault);
    std::string strWrong = zn.Recover(eGoal);
    if (strWrong.empty() && !zn.IsRestUntouched())
        strWrong = "something else was changed";
    return strWrong;
}
} // namespace

TEST(CheckAfter, AdviceRecoversFromFailuresAndKills)
{
    std::istringstream failures(
        "xcsGetQMDetails:1:a:1:0 xcsCreateDirectory:2:o:1:0 SHFileOperationW:1:o:7c:0 "
        "SHFileOperationW:2:o:7c:0 SetNamedSecurityInfoW:3:a:5:5 xcsIniUtilWrite:1:o:1:0 "
        "xcsGetIniFilename:3:o:1:0 xcsIniUtilWrite:2:o:1:0 DeleteFileW:1:o:0:20 DeleteFileW:7:o:0:20 "
        "RemoveDirectoryW:1:o:0:91 RemoveDirectoryW:4:o:0:91 FindFirstFileW:1:a:ffffffffffffffff:5");
    std::vector<std::string> faults{std::istream_iterator<std::string>(failures), {}};
    Installation whole;
    whole.Run(whole.MoveWords(), "xcsTerminate:0:o:0:0");
    constexpr long KILLS = 30;
    for (long i = 0; i <= KILLS; ++i)
    {
        std::ostringstream fault;
        fault << "*:" << std::hex << 1 + i * (whole.Calls("*") - 1) / KILLS << ":k:0:0";
        faults.push_back(fault.str());
    }
    for (size_t i = 0; i < faults.size(); ++i)
        for (const Goal eGoal : {FINISH, TAKE_BACK})
            EXPECT_EQ(Recovered(faults[i], eGoal, (i + eGoal) % 2 == 0), "") << faults[i] << " " << eGoal;
}

// What went on after a move that ended early, and what may then be done.
TEST(CheckAfter, DeletesNothingThatIsNewer)
{
    struct Case
    {
        const char *pszFault, *pszWritten; // the file that went on, below the root
        DWORD nStatus;
        const char *pszSays, *pszAtTheEnd; // where it is after the advice
    };
    const char* const pszNoDeletion = "DeleteFileW:1:o:0:20";
    const Case cases[] = {
        {pszNoDeletion, "oldlog\\QM!1\\ctl", 2, "the old trees are the newer ones", "newlog\\QM!1\\ctl"},
        {pszNoDeletion, "newlog\\QM!1\\ctl", 2, "rmdir", "newlog\\QM!1\\ctl"},
        {"xcsIniUtilWrite:2:o:1:0", "oldlog\\QM!1\\ctl", 2, "xcopy", "newlog\\QM!1\\ctl"},
        {"xcsIniUtilWrite:1:o:1:0", "oldlog\\QM!1\\ctl", 1, "both files name the old trees",
         "newlog\\QM!1\\ctl"},
    };
    for (const Case& c : cases)
    {
        Checked zn;
        zn.Run(zn.MoveWords(), c.pszFault);
        WriteAll(zn.root / c.pszWritten, "went on");
        RunResult said = zn.Check(L"after");
        EXPECT_EQ(said.nStatus, c.nStatus) << said.strOut;
        EXPECT_THAT(said.strOut, HasSubstr(c.pszSays)) << c.pszWritten;
        for (int nRound = 0; nRound < 3 && zn.Follow(said.strOut, FINISH); ++nRound)
            said = zn.Check(L"after");
        EXPECT_EQ(said.nStatus, 0u) << said.strOut;
        EXPECT_EQ(ReadAll(zn.root / c.pszAtTheEnd), "went on") << said.strOut;
        EXPECT_THAT(zn.State(), testing::StartsWith("data -+ log -"));
    }
}

TEST(CheckAfter, NamesNoDeletionWhereItCannotTell)
{
    struct Case
    {
        const char* pszFault;
        void (*damage)(Checked&);
        DWORD nStatus;
        const char* pszSays;
    };
    const auto zeros = [](Checked& zn) { // as after a power failure: the right size and time
        const HANDLE hFile = CreateFileW((zn.newLog / "active\\log1").c_str(), GENERIC_READ | GENERIC_WRITE,
                                         0, nullptr, OPEN_EXISTING, 0, nullptr);
        FILETIME time;
        DWORD nWritten = 0;
        GetFileTime(hFile, nullptr, nullptr, &time);
        WriteFile(hFile, std::string(99, '\0').data(), 99, &nWritten, nullptr);
        SetFileTime(hFile, nullptr, nullptr, &time);
        CloseHandle(hFile);
    };
    const Case cases[] = {
        {"", [](Checked& zn) { zn.MakeRecord(); }, 0, "every byte as in the record"},
        {"xcsTerminate:0:o:0:0", zeros, 3, "another content than in the record"},
        {"xcsTerminate:0:o:0:0", [](Checked& zn) { fs::remove(zn.newData / "a"); }, 3, "missing: "},
        {"DeleteFileW:1:o:0:20", zeros, 3, "another content than in the record"},
        {"DeleteFileW:1:o:0:20",
         [](Checked& zn) { WriteAll(zn.oldLog / "ctl", "1"), WriteAll(zn.newData / "a", "2"); }, 3,
         "written since the record"},
        {"xcsIniUtilWrite:1:o:1:0", [](Checked& zn) { WriteAll(zn.newData / "theirs", "x"); }, 1,
         "not named for deletion"},
        {"xcsIniUtilWrite:1:o:1:0", [](Checked& zn) { WriteAll(zn.newLog / "ctl", "ran here"); }, 3,
         "written later"},
        {"xcsIniUtilWrite:1:o:1:0", [](Checked& zn) { fs::remove(zn.oldData / "a"); }, 3, "missing: "},
        {"xcsIniUtilWrite:1:o:1:0", [](Checked& zn) { WriteAll(zn.work / "zns.ini", "Installation:\n"); }, 3,
         "no queue manager"},
        {"xcsIniUtilWrite:1:o:1:0", [](Checked& zn) { WriteAll(zn.root / "QM1 before.txt", "x"); }, 3,
         "cannot be used"},
    };
    for (const Case& c : cases)
    {
        Checked zn;
        zn.MakeRecord();
        zn.Run(zn.MoveWords(), c.pszFault);
        if (*c.pszFault != '\0')
            c.damage(zn);
        const Snapshot before = TakeSnapshot(zn.root);
        const RunResult said = zn.Check(L"after");
        EXPECT_EQ(said.nStatus, c.nStatus) << said.strOut;
        EXPECT_THAT(said.strOut, HasSubstr(c.pszSays));
        EXPECT_THAT(said.strOut, Not(HasSubstr("rmdir /s")));
        EXPECT_EQ(TakeSnapshot(zn.root), before);
    }
}

TEST(CheckBefore, FindsWhatStopsAMove)
{
    struct Case
    {
        const wchar_t *pszName, *pszData, *pszLog; // the destinations below the root
        std::wstring strMore;
        void (*prepare)(Checked&);
        const char* pszSays;
    };
    const auto nothing = [](Checked&) {};
    const Case cases[] = {
        {L"QM1", L"newdata", L"newlog", L"", nothing, "Nothing stops the move"},
        {L"QM1", L"olddata", L"newlog", L"", nothing, "is used by this Queue Manager"},
        {L"QM1", L"OLDDATA", L"newlog", L"", nothing, "is the old directory"},
        {L"QM1", L"newdata", L"olddata\\qmgrs\\QM!1\\x", L"", nothing, "lies in an old tree"},
        {L"QM1", L"one", L"one\\qmgrs", L"", nothing, "both destinations are one directory"},
        {L"QM1", L"a\\con", L"newlog", L"", nothing, "reserved name"},
        {L"QM1", L"newdata", L"newlog", L"", [](Checked& zn) { WriteAll(zn.newLog / "theirs", "x"); },
         "holds what the old tree does not"},
        {L"QM1", L"newdata", L"newlog", L"",
         [](Checked& zn) { SetFileAttributesW((zn.oldData / "qm.ini").c_str(), FILE_ATTRIBUTE_READONLY); },
         "is read-only"},
        {L"QM1", L"newdata", L"a-log-directory-with-a-much-longer-name-than-the-old-one", L"",
         [](Checked& zn) { WriteAll(zn.oldLog / std::wstring(190, L'n'), "x"); },
         "too long in the new place"},
        {L"QM1", L"newdata", L"newlog", L" /record bystander\\file", nothing, "cannot be made anew"},
        {L"QM1", L"newdata", L"newlog", L" /record oldlog\\QM!1\\r", nothing, "lie in a tree that moves"},
    };
    for (const Case& c : cases)
    {
        Checked zn;
        c.prepare(zn);
        const Snapshot before = TakeSnapshot(zn.root);
        const RunResult said =
            RunProgram(ProgramFolder() / "tarvelcheck.exe",
                       L"before " + zn.MoveWords(c.pszName, c.pszData, c.pszLog) + c.strMore, zn.root);
        EXPECT_THAT(said.strOut, HasSubstr(c.pszSays));
        EXPECT_EQ(said.nStatus, &c == cases ? 0u : 1u) << said.strOut;
        EXPECT_EQ(TakeSnapshot(zn.root), before);
    }
    Checked zn;
    for (const wchar_t* psz : {L"", L"after", L"before /m", L"after /m QM1 /dd C:\\a /ld C:\\b /x y"})
        EXPECT_EQ(RunProgram(ProgramFolder() / "tarvelcheck.exe", psz, zn.root).nStatus, 5u);
}

TEST(CheckAfter, CanBeRunWhileTheQueueManagerRuns)
{
    Checked zn;
    const fs::path sampleqm = ProgramFolder() / "sampleqm.exe";
    const std::wstring strRoot = zn.root.wstring();
    RunProgram(sampleqm, L"create QM2 /dd " + strRoot + L"\\q /ld " + strRoot + L"\\l /files 20", zn.root);
    RefusingQueueManager running(L"QM2");
    ASSERT_TRUE(running.fRuns);
    const auto check = [&](const wchar_t* pszMode) {
        return RunProgram(ProgramFolder() / "tarvelcheck.exe", pszMode + zn.MoveWords(L"QM2") + L" /record r",
                          zn.root);
    };
    const RunResult before = check(L"before "), after = check(L"after ");
    EXPECT_THAT(before.strOut, HasSubstr("note  running: "));
    EXPECT_THAT(before.strOut, HasSubstr("was written while the queue manager runs"));
    EXPECT_EQ(before.nStatus, 0u) << before.strOut;
    EXPECT_EQ(after.nStatus, 1u) << after.strOut;
}

TEST(CheckRecord, KeepsEveryNameAndRefusesDamage)
{
    CZNRecord record;
    record.strQueueManager = record.strDirectory = record.strOldData = record.strOldLog = record.strNewData =
        record.strNewLog = record.strZnsIni = record.strQmIni = L"C:\\50%\\\u00e9\xD83D\xDE00\xD800\tx";
    record.strQmText = "Log:\r\n\tLogPath=\xE4%\n# end";
    ZNEntry entry;
    entry.strCreated = entry.strWritten = L"2024-05-31T12:00:00.1234567Z";
    entry.strSha256 = std::string(64, 'a');
    entry.strSddl = L"O:BAG:SYD:(A;;FA;;;WD)";
    record.data.entries[L"s\\\u65e5\u672c"] = record.log.entries[L"qm.ini"] = entry;
    const std::string strText = record.ToText();
    std::string strError;
    const auto read = CZNRecord::FromText(strText, strError);
    ASSERT_TRUE(read) << strError;
    EXPECT_EQ(read->ToText(), strText);
    EXPECT_EQ(read->strOldLog, record.strOldLog);
    EXPECT_EQ(read->strQmText, record.strQmText);

    std::mt19937 random(1);
    const std::string strBody = strText.substr(0, strText.rfind("sha256"));
    for (int i = 0; i < 10'000; ++i)
    {
        const bool fSealed = i % 2 == 0; // by somebody who changed it by hand
        std::string strDamaged = fSealed ? strBody : strText;
        const size_t nAt = random() % strDamaged.size();
        if (i / 2 % 2 == 0)
            strDamaged[nAt] = static_cast<char>(random());
        else
            strDamaged.replace(nAt, random() % 9, strDamaged, random() % strDamaged.size(), random() % 90);
        strError.clear();
        const auto damaged = CZNRecord::FromText(fSealed ? ZNSealRecord(strDamaged) : strDamaged, strError);
        EXPECT_NE(damaged.has_value(), !strError.empty());
        if (!fSealed && strDamaged != strText)
            EXPECT_FALSE(damaged);
    }
}
