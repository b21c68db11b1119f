// An installation that tarvelcheck.exe looks at, and whose advice is executed as it is printed.
#pragma once

#include <gmock/gmock.h>

#include <map>
#include <regex>
#include <set>
#include <sstream>

#include "messagetexts.h"

inline constexpr char FINISH[] = "To finish the move:", TAKE_BACK[] = "To take the move back:";

// See faults/faults.cpp.
inline std::string Fault(const std::string& strFunction, size_t nCall, const std::string& strRest)
{
    std::ostringstream fault;
    fault << strFunction << ":" << std::hex << nCall << ":" << strRest;
    return fault.str();
}

class Checked : public Installation
{
  public:
    RunResult Look(const std::wstring& strWords, const std::string& strFaults = "",
                   const std::function<void()>& atPause = nullptr)
    {
        return Run(strWords, strFaults, atPause, "tarvelcheck.exe");
    }
    RunResult After(const auto&... args) { return Look(AfterWords(), args...); }
    std::wstring AfterWords() const { return L"after " + strMove + (fRecord ? Record() : strOldPlaces); }
    std::wstring Record() const { return L" /record " + Quoted(root / "QM1 before.txt"); }

    // More verbs: a record; what a move leaves that ended after the copy, or later; a pattern in zns.ini.
    Checked()
    {
        const std::map<std::string, Verb> more = {
            {"record",
             [this](auto...) {
                 fs::remove(root / "QM1 before.txt");
                 fRecord = Look(L"before " + strMove + Record()).nStatus == 0;
             }},
            {"copied", [this](auto...) { Do("copy ND OD;copy NL OL"); }},
            {"between", [this](auto...) { Do("copied;prefix"); }},
            {"left", [this](auto...) { Do("copied;named"); }},
            {"moved", [this](auto...) { Do("move ND OD;move NL OL;named"); }},
            {"prefix", [this](auto...) { Do("zns \\\\olddata \\newdata"); }},
            {"named",
             [this](auto...) { Do("prefix;write ND\\qm.ini Log:\n   LogPath=" + At("NL\\\n# kept")); }},
            {"zns", [this](auto path, auto str) { Replace(work / "zns.ini", path.string(), str); }}};
        verbs.insert(more.begin(), more.end());
    }

    // Executes the first nMost lines below a heading: commands by cmd.exe, edits by hand; a look only tells
    // with which words to look next. What is to be done only if the queue manager ran, or did not run, from a
    // place is done as ran and fRan say. False if there is nothing to do.
    bool Follow(const std::string& strAdvice, const char* pszGoal, int nMost = 99)
    {
        std::istringstream lines(strAdvice.substr(std::min(strAdvice.find(pszGoal), strAdvice.size())));
        const std::regex edit("edit \"(.*)\": in the stanza .* the line must read (.*)=(.*)");
        std::smatch match;
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
            else if (std::regex_match(strLine, match, edit))
                Replace(match[1].str(),
                        (match[2] == "Prefix" ? "(Name=QM1[^]*?\n[ \t]*Prefix" : "(\n[ \t]*LogPath") +
                            std::string("[ \t]*=)[^\r\n]*"),
                        "$1" + match[3].str());
            else
                RunProgram(L"C:\\windows\\system32\\cmd.exe", L"/c \"" + strWide + L"\"", root);
            if (strLine.find("tarvel.exe") != std::string::npos)
                ran.clear();
            fAny = fAny || !strLine.starts_with("rem ");
        }
        return fAny;
    }

    // Asks and follows until nothing is left to do.
    bool Recover(const char* pszGoal)
    {
        strNextLook = AfterWords();
        for (int nRound = 0; nRound < 8; ++nRound)
        {
            const RunResult said = Look(strNextLook);
            if (said.nStatus == (pszGoal == FINISH ? 0 : 1) &&
                (pszGoal == FINISH || said.strOut.find(TAKE_BACK) == std::string::npos))
                return true;
            if (!Follow(said.strOut, pszGoal) && !Follow(said.strOut, FINISH))
                return false;
        }
        return false;
    }

    std::wstring strMove = MoveWords(), strNextLook;
    std::wstring strOldPlaces = L" /od " + Quoted(oldData) + L" /ol " + Quoted(oldLog);
    bool fRecord = false, fRan = false; // since the record was made
    std::set<std::string> ran;          // the directories from which it ran since the last copy

  private:
    // The first of what a pattern stands for.
    static void Replace(const fs::path& file, const std::string& strPattern, const std::string& strNew)
    {
        const std::string strText = std::regex_replace(ReadAll(file), std::regex(strPattern), strNew,
                                                       std::regex_constants::format_first_only);
        std::ofstream(file, std::ios::binary) << strText;
    }
};
