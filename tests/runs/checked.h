// An installation that tarvelcheck.exe looks at, and whose advice is executed as it is printed.
#pragma once

#include <gmock/gmock.h>

#include <regex>
#include <set>
#include <sstream>

#include "messagetexts.h"

enum Goal
{
    FINISH,
    TAKE_BACK
};
constexpr const char* HEADINGS[] = {"To finish the move:", "To take the move back:"};

class Checked : public Installation
{
  public:
    RunResult Look(const std::wstring& strWords, const std::string& strFaults = "",
                   const std::function<void()>& atPause = nullptr)
    {
        return Run(strWords, strFaults, atPause, "tarvelcheck.exe");
    }
    RunResult After(const std::string& strFaults = "", const std::function<void()>& atPause = nullptr)
    {
        return Look(AfterWords(), strFaults, atPause);
    }
    std::wstring AfterWords() const { return L"after " + strMove + (fRecord ? Record() : strOldPlaces); }
    std::wstring Record() const { return L" /record " + Quoted(root / "QM1 before.txt"); }
    void MakeRecord()
    {
        fRecord = true;
        fs::remove(root / "QM1 before.txt");
        const RunResult result = Look(L"before " + strMove + Record());
        EXPECT_EQ(result.nStatus, 0u) << result.strOut;
        rest[L"QM1 before.txt"] = ReadAll(root / "QM1 before.txt");
    }

    // Makes what a move leaves that ended after the copy, between the changes of the two files, before the
    // deletion, or whole.
    enum End
    {
        COPIED,
        BETWEEN,
        LEFT,
        MOVED
    };
    void Leave(End eEnd)
    {
        fs::create_directories(newData.parent_path());
        fs::create_directories(newLog.parent_path());
        for (const auto& [from, to] : {std::pair(oldData, newData), std::pair(oldLog, newLog)})
            if (eEnd == MOVED)
                fs::rename(from, to);
            else
                fs::copy(from, to, fs::copy_options::recursive);
        if (eEnd >= BETWEEN)
            Apply({.pszInZnsIni = "\\olddata", .pszInstead = "\\newdata"});
        if (eEnd >= LEFT)
            WriteAll(newData / "qm.ini", "Log:\n   LogPath=" + newLog.string() + "\\\n# kept");
    }

    // Executes the first nMost lines below a heading: commands by cmd.exe, edits by hand; a look only tells
    // with which words to look next. What is to be done only if the queue manager ran, or did not run, from a
    // place is done as ran and fRan say. False if there is nothing to do.
    bool Follow(const std::string& strAdvice, Goal eGoal, int nMost = 99)
    {
        std::istringstream lines(
            strAdvice.substr(std::min(strAdvice.find(HEADINGS[eGoal]), strAdvice.size())));
        bool fAny = false;
        std::string strLine;
        std::getline(lines, strLine);
        while (std::getline(lines, strLine) && strLine.starts_with("    ") && nMost-- > 0)
        {
            strLine = strLine.substr(4, strLine.find('\r') - 4);
            const std::wstring strWide = fs::path(std::u8string(strLine.begin(), strLine.end())).wstring();
            const auto isIn = [&](const std::string& strDir) {
                return strLine.find("\"" + strDir + "\"") != std::string::npos;
            };
            if (strLine.starts_with("rem Only if the queue manager did not run")
                    ? std::ranges::any_of(ran, isIn)
                    : strLine.starts_with("rem Only") && !fRan)
                break;
            if (const size_t nWords = strLine.find("tarvelcheck.exe\" after "); nWords != std::string::npos)
                strNextLook = strWide.substr(nWords + 17);
            else if (strLine.starts_with("edit "))
                Edit(strLine);
            else if (strLine.find("tarvelcheck.exe") == std::string::npos)
                RunProgram(L"C:\\windows\\system32\\cmd.exe", L"/c \"" + strWide + L"\"", root);
            if (strLine.find("tarvel.exe") != std::string::npos)
                ran.clear();
            fAny = fAny || !strLine.starts_with("rem ");
        }
        return fAny;
    }

    // Asks and follows until nothing is left to do; what was said otherwise.
    std::string Recover(Goal eGoal)
    {
        strNextLook = AfterWords();
        std::string strSaid;
        for (int nRound = 0; nRound < 8; ++nRound)
        {
            const RunResult said = Look(strNextLook);
            strSaid += State() + "\n" + std::to_string(said.nStatus) + "\n" + said.strOut;
            if (said.nStatus == (eGoal == FINISH ? 0 : 1) &&
                (eGoal == FINISH || said.strOut.find(HEADINGS[TAKE_BACK]) == std::string::npos))
                return "";
            if (!Follow(said.strOut, eGoal) && !Follow(said.strOut, FINISH))
                break;
        }
        return strSaid + State();
    }

    std::wstring strMove = MoveWords(), strNextLook;
    std::wstring strOldPlaces = L" /od " + Quoted(oldData) + L" /ol " + Quoted(oldLog);
    bool fRecord = false, fRan = false; // since the record was made
    std::set<std::string> ran;          // the directories from which it ran since the last copy

  private:
    static void Edit(const std::string& strLine)
    {
        std::smatch match;
        ASSERT_TRUE(std::regex_match(
            strLine, match, std::regex("edit \"(.*)\": in the stanza .* the line must read (.*)=(.*)")));
        const std::string strText = ReadAll(match[1].str());
        const size_t nStanza = match[2] == "Prefix" ? strText.find("Name=QM1") : 0;
        std::smatch line;
        const auto begin = strText.begin() + static_cast<ptrdiff_t>(nStanza);
        ASSERT_TRUE(std::regex_search(begin, strText.end(), line,
                                      std::regex("\n[ \t]*" + match[2].str() + "[ \t]*=([^\r\n]*)")));
        std::ofstream(fs::path(match[1].str()), std::ios::binary)
            << std::string(strText.begin(), line[1].first) << match[3].str()
            << std::string(line[1].second, strText.end());
    }
};
