// Whole runs of tarvelcheck.exe: what it says before a move, and whether its advice after one that ended
// anywhere brings the queue manager back together. The advice is executed as it is printed.
#include <gmock/gmock.h>

#include <random>
#include <regex>
#include <sstream>

#include "messagetexts.h"
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
    RunResult Look(const std::wstring& strWords, const std::string& strFaults = "")
    {
        return Run(strWords, strFaults, nullptr, "tarvelcheck.exe");
    }
    RunResult After(const std::string& strFaults = "")
    {
        return Look(L"after " + MoveWords() + (fRecord ? Record() : OldPlaces()), strFaults);
    }
    std::wstring Record() const { return L" /record \"" + (root / "QM1 before.txt").wstring() + L"\""; }
    std::wstring OldPlaces() const { return L" /od " + Quoted(oldData) + L" /ol " + Quoted(oldLog); }
    void MakeRecord(const wchar_t* pszLog = L"newlog")
    {
        fRecord = true;
        const RunResult result = Look(L"before " + MoveWords(L"QM1", L"newdata", pszLog) + Record());
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
            const std::wstring strWide = fs::path(std::u8string(strLine.begin(), strLine.end())).wstring();
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
            const RunResult said = After();
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
        {"xcsIniUtilWrite:2:o:1:0", "newdata\\qmgrs\\QM!1\\a", 2, "attrib -r", "newdata\\qmgrs\\QM!1\\a"},
        {"xcsIniUtilWrite:1:o:1:0", "oldlog\\QM!1\\ctl", 1, "both files name the old trees",
         "newlog\\QM!1\\ctl"},
    };
    for (const Case& c : cases)
    {
        Checked zn;
        zn.Run(zn.MoveWords(), c.pszFault);
        WriteAll(zn.root / c.pszWritten, "went on");
        SetFileAttributesW((zn.newData / "qm.ini").c_str(), FILE_ATTRIBUTE_READONLY);
        RunResult said = zn.After();
        EXPECT_EQ(said.nStatus, c.nStatus) << said.strOut;
        EXPECT_THAT(said.strOut, HasSubstr(c.pszSays)) << c.pszWritten;
        for (int nRound = 0; nRound < 3 && zn.Follow(said.strOut, FINISH); ++nRound)
            said = zn.After();
        EXPECT_EQ(said.nStatus, 0u) << said.strOut;
        EXPECT_EQ(ReadAll(zn.root / c.pszAtTheEnd), "went on") << said.strOut;
        EXPECT_THAT(zn.State(), testing::ContainsRegex("data -. log -."));
    }
}

TEST(CheckAfter, NamesNoDeletionWhereItCannotTell)
{
    const char *const pszMoved = "xcsTerminate:0:o:0:0", *const pszLeft = "DeleteFileW:1:o:0:20",
                      *const pszNotMoved = "xcsIniUtilWrite:1:o:1:0",
                      *const pszBetween = "xcsIniUtilWrite:2:o:1:0", *const pszRecord = "QM1 before.txt";
    struct Case
    {
        const char *pszFault, *pszSays;
        Change change = {}; // after the move
        DWORD nStatus = 3;
        const char* pszLookFault = "";
        const wchar_t* pszRecordedLog = L"newlog";
        bool fZeros = false; // as after a power failure: the right size and time
    };
    const Case cases[] = {
        {"", "every byte as in the record", {}, 0},
        {.pszFault = pszMoved, .pszSays = "another content than in the record", .fZeros = true},
        {pszMoved, "missing: ", {.pszRemove = "newdata\\qmgrs\\QM!1\\a"}},
        {pszMoved, "missing: ", {.pszRemove = "newlog\\QM!1"}},
        {pszMoved, "are not in the record", {.pszWrite = "newdata\\qmgrs\\QM!1\\more"}, 0},
        {pszMoved, "is a link; ", {.pszLink = "newlog\\QM!1\\l", .pszTarget = "bystander"}, 0},
        {pszMoved, "another spelling", {.pszInZnsIni = "newdata", .pszInstead = "NEWDATA"}},
        {pszMoved,
         "neither the old ones nor",
         {.pszWrite = "c\\qmgrs\\QM!1\\qm.ini",
          .pszText = "Log:\n LogPath=C:\\l\\",
          .pszInZnsIni = "newdata",
          .pszInstead = "c"}},
        {pszMoved, "has no LogPath", {.pszWrite = "newdata\\qmgrs\\QM!1\\qm.ini", .pszText = "Log:\n"}},
        {pszMoved, "services of level", {}, 3, "xcsInitializeEx:1:o:1:0"},
        {pszMoved, "cannot be listed", {}, 3, "FindFirstFileExW:2:o:ffffffffffffffff:5"},
        {.pszFault = pszLeft, .pszSays = "another content than in the record", .fZeros = true},
        {pszLeft, "written since the record", {.pszWrite = "newdata\\qmgrs\\QM!1\\a"}},
        {pszLeft, "share a directory", {.pszLink = "newlog\\QM!1\\l", .pszTarget = "oldlog\\QM!1\\active"}},
        {pszLeft,
         "could not be compared",
         {.pszLink = "other\\qmgrs\\QM0", .pszTarget = "olddata\\qmgrs\\QM!1\\s"}},
        {pszBetween, "not as they should be", {.pszRemove = "newdata\\qmgrs\\QM!1\\a"}},
        {pszBetween,
         "share a directory",
         {.pszLink = "newlog\\QM!1\\l", .pszTarget = "oldlog\\QM!1\\active"}},
        {pszNotMoved, "not named for deletion", {.pszWrite = "newdata\\qmgrs\\QM!1\\theirs"}, 1},
        {pszNotMoved, "written later", {.pszWrite = "newlog\\QM!1\\ctl"}},
        {pszNotMoved, "missing: ", {.pszRemove = "olddata\\qmgrs\\QM!1\\a"}},
        {pszNotMoved, "no queue manager", {.pszWrite = "work\\zns.ini"}},
        {pszNotMoved, "cannot be used", {.pszWrite = pszRecord}},
        {pszNotMoved, "cannot be used: error 2", {.pszRemove = pszRecord}},
        {.pszFault = pszNotMoved, .pszSays = "of other destinations", .pszRecordedLog = L"another"},
    };
    for (const Case& c : cases)
    {
        Checked zn;
        zn.MakeRecord(c.pszRecordedLog);
        zn.Run(zn.MoveWords(), c.pszFault);
        zn.Apply(c.change);
        if (c.fZeros)
        {
            const FileHandle file(CreateFileW((zn.newLog / "active\\log1").c_str(),
                                              GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0,
                                              nullptr));
            FILETIME time;
            DWORD nWritten = 0;
            GetFileTime(file.Get(), nullptr, nullptr, &time);
            WriteFile(file.Get(), std::string(99, '\0').data(), 99, &nWritten, nullptr);
            SetFileTime(file.Get(), nullptr, nullptr, &time);
        }
        const Snapshot before = TakeSnapshot(zn.root);
        const RunResult said = zn.After(c.pszLookFault);
        EXPECT_EQ(said.nStatus, c.nStatus) << said.strOut;
        EXPECT_THAT(said.strOut, HasSubstr(c.pszSays));
        EXPECT_THAT(said.strOut, Not(HasSubstr("rmdir /s")));
        EXPECT_EQ(TakeSnapshot(zn.root), before);
    }
}

// The old tree has the only copy of a file. Whatever the look fails to see, it names no deletion.
TEST(CheckAfter, FailingCallsLeadToNoDeletion)
{
    Checked zn;
    zn.MakeRecord();
    zn.Run(zn.MoveWords(), "DeleteFileW:1:o:0:20");
    fs::remove(zn.newData / "s\\t\\c");
    const auto look = [&](const std::string& strFaults) {
        zn.fRecord = !zn.fRecord;
        const RunResult said = zn.After(strFaults);
        EXPECT_THAT(said.strOut, Not(HasSubstr("rmdir"))) << strFaults;
        EXPECT_NE(said.nStatus, 0u) << strFaults;
    };
    for (const std::string strFunction :
         {"CreateFileW", "FindFirstFileExW", "GetFileAttributesW", "FindNextFileW", "ReadFile",
          "GetFileInformationByHandleEx", "BCryptHashData", "BCryptFinishHash", "xcsGetQMDetails",
          "xcsIniUtilRead"})
    {
        const bool fFalse = strFunction == "FindNextFileW" || strFunction == "ReadFile" ||
                            strFunction.starts_with("GetFileI");
        look("xcsTerminate:0:o:0:0"); // counts
        const long nCalls = zn.Calls(strFunction);
        ASSERT_GT(nCalls, 0) << strFunction;
        for (long nCall = 1; nCall <= nCalls; nCall += 1 + nCalls / 16)
            for (const char* const pszMode : {":o", ":a"})
            {
                std::ostringstream fault;
                fault << strFunction << ":" << std::hex << nCall << pszMode
                      << (fFalse ? ":0:5" : ":ffffffffffffffff:5");
                look(fault.str());
            }
    }
}

TEST(CheckBefore, FindsWhatStopsAMove)
{
    const std::string strLong =
        "oldlog\\QM!1\\" + std::string(230 - fs::temp_directory_path().string().size(), 'n');
    const std::string strUsed = "would end with: " + Message(42, CP_UTF8);
    struct Case
    {
        const char* pszSays;
        Change change = {};
        DWORD nStatus = 1;
        const wchar_t *pszData = L"newdata", *pszLog = L"newlog"; // the destinations below the root
        const wchar_t *pszName = L"QM1", *pszMore = L"";
        const char* pszFault = "";
        bool fHeld = false; // by another program
    };
    const Case cases[] = {
        {"Nothing stops the move", {}, 0},
        {.pszSays = "zns.ini has none named QM9", .pszName = L"QM9"},
        {.pszSays = strUsed.c_str(), .pszData = L"olddata"},
        {.pszSays = "is the old directory", .pszData = L"OLDDATA"},
        {.pszSays = "lies in an old tree", .pszLog = L"olddata\\qmgrs\\QM!1\\x"},
        {.pszSays = "both destinations are one directory", .pszData = L"one", .pszLog = L"one\\qmgrs"},
        {.pszSays = "reserved name", .pszData = L"a\\con"},
        {.pszSays = "the volume of Y:\\x", .pszData = L"Y:\\x"},
        {"is a file or cannot", {.pszWrite = "newdata"}},
        {"holds what the old tree does not", {.pszWrite = "newlog\\QM!1\\theirs"}},
        {"they will be overwritten", {.pszWrite = "newlog\\QM!1\\ctl"}, 0},
        {"is read-only",
         {.pszWrite = "olddata\\qmgrs\\QM!1\\qm.ini", .nAttributes = FILE_ATTRIBUTE_READONLY}},
        {"LogPath is missing", {.pszWrite = "olddata\\qmgrs\\QM!1\\qm.ini"}},
        {"correct Prefix", {.pszInZnsIni = "olddata", .pszInstead = ".\\olddata"}},
        {"multi-instance", {.pszInZnsIni = "Name=QM1", .pszInstead = "Name=QM1\n   MultiInstance=Yes"}},
        {"links: ", {.pszLink = "oldlog\\QM!1\\l", .pszTarget = "bystander"}},
        {"queue manager QM0 lies in",
         {.pszLink = "other\\qmgrs\\QM0", .pszTarget = "olddata\\qmgrs\\QM!1\\s"}},
        {"too long in the new place",
         {.pszWrite = strLong.c_str()},
         1,
         L"newdata",
         L"much-longer-than-before"},
        {.pszSays = "file cannot be read: ", .fHeld = true},
        {.pszSays = "cannot be made anew", .pszMore = L" /record bystander\\file"},
        {.pszSays = "lie in a tree that moves", .pszMore = L" /record oldlog\\QM!1\\r"},
        {.pszSays = "does not run elevated", .nStatus = 0, .pszFault = "OpenProcessToken:1:o:0:5"},
        {.pszSays = "net localgroup znm /add", .pszFault = "LookupAccountNameW:1:o:0:534"},
        {.pszSays = "not of level", .pszFault = "xcsCheckConsistency:1:o:1:0"},
        {.pszSays = "they do not start", .pszFault = "xcsInitializeEx:1:o:1:0"},
        {.pszSays = "ends with status 71", .pszFault = "xcsCheckAuthorization:1:o:40806177:0"},
        {.pszSays = "ends with status 119", .pszFault = "xcsCheckAuthorization:1:o:40806178:0"},
        {.pszSays = "keeps no access lists", .pszFault = "xcsVolumeSupportsSecurity:1:o:40806178:0"},
        {.pszSays = "make room, or", .pszFault = "GetDiskFreeSpaceExW:1:o:1:0"}, // none is free
    };
    for (const Case& c : cases)
    {
        Checked zn;
        zn.Apply(c.change);
        const Snapshot before = TakeSnapshot(zn.root);
        FileHandle held = c.fHeld ? Hold(zn.oldData / "a") : FileHandle();
        const RunResult said =
            zn.Look(L"before " + zn.MoveWords(c.pszName, c.pszData, c.pszLog) + c.pszMore, c.pszFault);
        held.Close();
        EXPECT_THAT(said.strOut, HasSubstr(c.pszSays));
        EXPECT_EQ(said.nStatus, c.nStatus) << said.strOut;
        EXPECT_EQ(TakeSnapshot(zn.root), before);
    }
    Checked zn;
    for (const wchar_t* psz :
         {L"", L"after", L"after /m QM1 /dd C:\\a /ld C:\\b /x y", L"after /m QM1 /m QM1 /dd C:\\a /ld C:\\b",
          L"after /m QM1 /dd C:\\a /ld C:\\b /od x"})
        EXPECT_EQ(zn.Look(psz).nStatus, 5u);
}

TEST(CheckAfter, CanBeRunWhileTheQueueManagerRuns)
{
    Checked zn;
    RunProgram(ProgramFolder() / "sampleqm.exe",
               L"create QM2 /dd " + Quoted(zn.root / "q") + L" /ld " + Quoted(zn.root / "l") + L" /files 20",
               zn.root);
    RefusingQueueManager running(L"QM2");
    ASSERT_TRUE(running.fRuns);
    const std::wstring strWords = zn.MoveWords(L"QM2") + L" /record r";
    const RunResult before = zn.Look(L"before " + strWords);
    std::ofstream(zn.root / "q\\qmgrs\\QM2\\qm.ini", std::ios::app) << "# went on";
    const RunResult after = zn.Look(L"after " + strWords);
    EXPECT_THAT(before.strOut, HasSubstr("was written while the queue manager runs"));
    EXPECT_EQ(before.nStatus, 0u) << before.strOut;
    EXPECT_THAT(after.strOut, HasSubstr("could not be compared with it"));
    EXPECT_EQ(after.nStatus, 1u) << after.strOut;
}

TEST(CheckAfter, CanBeRunWhileAMoveIsUnderWay)
{
    Checked zn;
    zn.Run(zn.MoveWords(), "SHFileOperationW:1:w:0:0", [&] {
        EXPECT_THAT(zn.Look(L"before " + zn.MoveWords()).strOut, HasSubstr("STOP  other moves: "));
        EXPECT_EQ(zn.After().nStatus, 3u);
    });
    EXPECT_THAT(zn.Look(L"after " + zn.MoveWords()).strOut, HasSubstr("The old places are unknown"));
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
