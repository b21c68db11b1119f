// Whole runs of tarvelcheck.exe: what it says before a move, and whether its advice after one that ended
// anywhere brings the queue manager back together. The advice is executed as it is printed.
#include <gmock/gmock.h>

#include <random>
#include <regex>
#include <set>
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
        return RunProgram(ProgramFolder() / "tarvelcheck.exe",
                          strMode + L" " + MoveWords() + (fRecord && strMode == L"after" ? Record() : L"") + strMore, root);
    }
    std::wstring Record() const { return L" /record \"" + (root / "QM1 before.txt").wstring() + L"\""; }
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
        std::istringstream lines(strAdvice.substr(std::min(strAdvice.find(HEADINGS[eGoal]), strAdvice.size())));
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
        ASSERT_TRUE(std::regex_match(strLine, match, std::regex("edit \"(.*)\": in the stanza .* the line must read (.*)=(.*)")));
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
    if (zn.State() == GOAL_STATES[FINISH] && eGoal == TAKE_BACK && !fRecord)
        return ""; // the old places are known to nobody any more
    std::string strWrong = zn.Recover(eGoal);
    if (strWrong.empty() && !zn.IsRestUntouched())
        strWrong = "something else was changed";
    return strWrong;
}
} // namespace

TEST(CheckAfter, AdviceRecoversFromEveryFailure)
{
    for (const char* psz : {"xcsGetQMDetails:1:a:1:0", "xcsCreateDirectory:2:o:1:0", "SHFileOperationW:1:o:7c:0",
                            "SHFileOperationW:2:o:7c:0", "SetNamedSecurityInfoW:3:a:5:5", "xcsIniUtilWrite:1:o:1:0",
                            "xcsGetIniFilename:3:o:1:0", "xcsIniUtilWrite:2:o:1:0", "DeleteFileW:1:o:0:20",
                            "DeleteFileW:7:o:0:20", "RemoveDirectoryW:1:o:0:91", "RemoveDirectoryW:4:o:0:91",
                            "FindFirstFileW:1:a:ffffffffffffffff:5", "xcsTerminate:1:k:0:0"})
        for (const Goal eGoal : {FINISH, TAKE_BACK})
            for (const bool fRecord : {false, true})
                EXPECT_EQ(Recovered(psz, eGoal, fRecord), "") << psz << " " << eGoal << fRecord;
}

TEST(CheckAfter, AdviceRecoversFromEveryKill)
{
    Installation whole;
    whole.Run(whole.MoveWords(), "xcsTerminate:0:o:0:0");
    const long nCalls = whole.Calls("*");
    std::set<std::string> states;
    constexpr long KILLS = 80;
    for (long i = 0; i < KILLS; ++i)
    {
        std::ostringstream fault;
        fault << "*:" << std::hex << 1 + i * (nCalls - 1) / (KILLS - 1) << ":k:0:0";
        Installation zn;
        zn.Run(zn.MoveWords(), fault.str());
        const bool fNew = states.insert(zn.State()).second; // is recovered in each way
        for (int nWay = fNew ? 0 : static_cast<int>(i % 4); nWay < 4; nWay += fNew ? 1 : 4)
            EXPECT_EQ(Recovered(fault.str(), nWay % 2 != 0 ? TAKE_BACK : FINISH, nWay / 2 != 0), "")
                << fault.str() << " " << nWay;
    }
    EXPECT_GE(states.size(), 8u);
}
