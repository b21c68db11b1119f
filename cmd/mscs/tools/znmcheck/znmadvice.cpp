// Sentences and commands. Must not decide anything.
#include "znmadvice.h"

#include <iterator>

#include "afxwin.h"
#include "tovmsrid.h"
#include "tovxcs2.h"
#include "znmwalk.h"

ZNM_SOURCE_ID("cmd/mscs/tools/znmcheck/znmadvice");

namespace
{
const wchar_t* const TREES[] = {L" data tree: ", L" log tree: "};
const wchar_t* const SIDES[] = {L"Old", L"New"};

// By the values of ZN_STATE, ZN_RECORDED, ZN_RELATION and ZN_TROUBLE.
const wchar_t* const STATES[] = {
    L"cannot tell which trees count",
    L"a move of the queue manager is under way",
    L"not moved: both files name the old trees, which count",
    L"in between: zns.ini names the new data tree, its qm.ini the old log tree",
    L"moved: both files name the new trees, the old ones are gone",
    L"moved: both files name the new trees, which count; something is left of the old ones",
    L"the new trees hold all of the old ones and more, but the files do not name them",
    L"the old trees are the newer ones and count, but the files do not name them",
    L"both files name the new trees, but the old log tree is the newer one"};
const wchar_t* const RECORDED[] = {L"", L", as recorded", L", as recorded but for what was added since",
                                   L", not as recorded"};
const wchar_t* const RELATIONS[] = {L"; the same as the old tree", L"; holds all of the old tree and more",
                                    L"; the old tree holds all of it and more",
                                    L"; the old tree holds all of it but for zeros at the end of files",
                                    L"; each of the two has what the other one lacks"};
const wchar_t* const TROUBLES[] = {
    L"",
    L"zns.ini has no queue manager of this name",
    L"no LogPath can be read that names the log tree",
    L"the record cannot be used: ",
    L"a new directory is the present one in another spelling; look with the words of the move",
    L"the files name places that no step of this move leaves; look with the words of the last move",
    L"the old data directory must end in \\qmgrs\\ and the directory name of the queue manager",
    L"the qm.ini of the old data tree names another log directory: ",
    L"a tree that counts cannot be read. ",
    L"something was changed or started while it was looked at; look again"};
static_assert(std::size(STATES) == static_cast<size_t>(ZN_STATE::LOG_BEHIND) + 1 &&
              std::size(RECORDED) == static_cast<size_t>(ZN_RECORDED::OTHER) + 1 &&
              std::size(RELATIONS) == static_cast<size_t>(ZN_RELATION::APART) + 1 &&
              std::size(TROUBLES) == static_cast<size_t>(ZN_TROUBLE::CHANGED) + 1);

template <class Value>
std::wstring Text(const wchar_t* const* ppszTexts, Value value)
{
    return ppszTexts[static_cast<size_t>(value)];
}

std::wstring ProgramPath(const wchar_t* pszName)
{
    std::wstring strPath(32'768, L'\0');
    strPath.resize(GetModuleFileNameW(nullptr, strPath.data(), static_cast<DWORD>(strPath.size())));
    return ZNQuoted(strPath.substr(0, strPath.find_last_of(L'\\') + 1) + pszName);
}

std::wstring MoveWords(const ZNCheckWords& words, const std::wstring& strData, const std::wstring& strLog)
{
    return L" /m " + ZNQuoted(words.strQueueManager) + L" /dd " + ZNQuoted(strData) + L" /ld " +
           ZNQuoted(strLog);
}

std::wstring MoveWords(const ZNCheckWords& words)
{
    return MoveWords(words, words.strDataDest, words.strLogDest);
}

std::wstring LookAfter(const ZNCheckWords& words, const std::wstring& strOldData,
                       const std::wstring& strOldLog)
{
    std::wstring strLine = ProgramPath(L"tarvelcheck.exe") + L" after" + MoveWords(words);
    if (!strOldData.empty() || !strOldLog.empty())
        return strLine + (strOldData.empty() ? L"" : L" /od " + ZNQuoted(strOldData)) +
               (strOldLog.empty() ? L"" : L" /ol " + ZNQuoted(strOldLog));
    return words.strRecord.empty() ? strLine : strLine + L" /record " + ZNQuoted(words.strRecord);
}

// A name that nothing has yet, beside the directory.
std::wstring AsideName(const std::wstring& strDir)
{
    std::wstring strName = strDir + L".aside";
    for (int n = 2; GetFileAttributesW(strName.c_str()) != INVALID_FILE_ATTRIBUTES; ++n)
        strName = strDir + L".aside" + std::to_wstring(n);
    return strName.substr(strName.find_last_of(L'\\') + 1);
}

class Steps
{
  public:
    explicit Steps(const ZNFound& found)
        : m_found(found), m_oldData(Dir(ZN_DATA, ZN_OLD)), m_oldLog(Dir(ZN_LOG, ZN_OLD)),
          m_newLog(Dir(ZN_LOG, ZN_NEW))
    {
    }
    // The lines of a step; cmd.exe takes each of them but an edit.
    std::vector<std::wstring> Lines(const ZNStep& step) const;

  private:
    const std::wstring& Dir(ZN_TREE eTree, ZN_SIDE eSide) const
    {
        return m_found.aPairs[eTree].aTrees[eSide].strDir;
    }
    std::wstring Look() const
    {
        const bool fRecord = !m_found.words.strRecord.empty();
        return LookAfter(m_found.words, fRecord ? L"" : m_oldData, fRecord ? L"" : m_oldLog);
    }
    std::vector<std::wstring> Edit(const std::wstring& strFile, const std::wstring& strStanza,
                                   const std::wstring& strLine) const
    {
        std::vector<std::wstring> lines;
        const DWORD nAttributes = GetFileAttributesW(strFile.c_str());
        if (nAttributes != INVALID_FILE_ATTRIBUTES && (nAttributes & FILE_ATTRIBUTE_READONLY) != 0)
            lines.push_back(L"attrib -r " + ZNQuoted(strFile));
        lines.push_back(L"edit " + ZNQuoted(strFile) + L": in the stanza " + strStanza +
                        L" the line must read " + strLine);
        return lines;
    }
    std::vector<std::wstring> CopyLog() const;

    const ZNFound& m_found;
    const std::wstring &m_oldData, &m_oldLog, &m_newLog;
};

// The directory gets its rights before anything is in it, so that a copy that is cut off has them too.
std::vector<std::wstring> Steps::CopyLog() const
{
    constexpr size_t LONGEST_OF_XCOPY = 254;
    const CZNInventory& old = m_found.aPairs[ZN_LOG].aTrees[ZN_OLD];
    const bool fLong =
        old.LongestPathIn(m_oldLog) > LONGEST_OF_XCOPY || old.LongestPathIn(m_newLog) > LONGEST_OF_XCOPY;
    std::vector<std::wstring> lines;
    if (m_found.facts.aPairs[ZN_LOG].aePresence[ZN_NEW] != ZN_PRESENCE::THERE)
        lines.push_back(L"mkdir " + ZNQuoted(m_newLog));
    lines.push_back(L"icacls " + ZNQuoted(m_newLog) +
                    L" /grant \"*S-1-5-32-544:(OI)(CI)F\" \"*S-1-5-18:(OI)(CI)F\" \"znm:(OI)(CI)F\" /t");
    lines.push_back((fLong ? L"robocopy " : L"xcopy ") + ZNQuoted(m_oldLog) + L" " + ZNQuoted(m_newLog) +
                    (fLong ? L" /e /copy:DAT /dcopy:DAT" : L" /e /h /k /r /i /y"));
    return lines;
}

std::vector<std::wstring> Steps::Lines(const ZNStep& step) const
{
    const ZNCheckWords& words = m_found.words;
    const std::wstring& strDir = Dir(step.eTree, step.eSide);
    const std::wstring strPrefix = ZNWithout(m_oldData, L"\\qmgrs\\" + m_found.survey.strDirectory);
    std::vector<std::wstring> lines;
    switch (step.eStep)
    {
    case ZN_STEP::END:
        return {L"endznm -w " + ZNQuoted(words.strQueueManager)};
    case ZN_STEP::MOVE:
        return {ProgramPath(L"tarvel.exe") + MoveWords(words)};
    case ZN_STEP::MOVE_BACK:
        return {ProgramPath(L"tarvel.exe") +
                MoveWords(words, strPrefix, ZNWithout(m_oldLog, L"\\" + m_found.survey.strDirectory))};
    case ZN_STEP::EDIT_PREFIX:
        lines = Edit(m_found.survey.strZnsIni, L"QueueManager with Name=" + words.strQueueManager,
                     L"Prefix=" + (step.eSide == ZN_OLD ? strPrefix : words.strDataDest));
        break;
    case ZN_STEP::EDIT_LOG_PATH:
        return Edit(Dir(ZN_DATA, ZN_NEW) + L"\\qm.ini", L"Log", L"LogPath=" + m_newLog + L"\\");
    case ZN_STEP::COPY_LOG:
        return CopyLog();
    case ZN_STEP::REMOVE:
        return {L"rmdir /s /q " + ZNQuoted(strDir)};
    case ZN_STEP::ASIDE:
        lines = {L"ren " + ZNQuoted(strDir) + L" " + ZNQuoted(AsideName(strDir))};
        break;
    case ZN_STEP::LOOK:
        return {Look()};
    case ZN_STEP::LOOK_NAMED:
        if (m_oldData.empty() || m_oldLog.empty())
            return {L"rem The old places are not known. Look with the record, or name them:",
                    LookAfter(words, m_oldData.empty() ? L"olddatadirectory" : m_oldData,
                              m_oldLog.empty() ? L"oldlogdirectory" : m_oldLog)};
        return {L"rem When the volume is there again, or the tree can be read:", Look()};
    case ZN_STEP::LOOK_UNRECORDED:
        return {L"rem Only if the queue manager ran since the record was made, which explains what differs:",
                LookAfter(words, m_oldData, m_oldLog)};
    case ZN_STEP::BEFORE:
        return {L"rem See first what stops the move:",
                ProgramPath(L"tarvelcheck.exe") + L" before" + MoveWords(words)};
    case ZN_STEP::WATCH:
        return {ProgramPath(L"tarvelcheck.exe") + L" watch" + MoveWords(words)};
    }
    if (step.fOnlyIf)
        lines.insert(lines.begin(),
                     L"rem Only if the queue manager did not run from " +
                         ZNQuoted(step.eStep == ZN_STEP::ASIDE ? strDir : Dir(ZN_DATA, ZN_NEW)) +
                         L" since the trees were copied last:");
    return lines;
}

void PrintTree(const ZNFound& found, ZN_TREE eTree, ZN_SIDE eSide)
{
    const ZNPair& pair = found.aPairs[eTree];
    const CZNInventory& tree = pair.aTrees[eSide];
    const bool fThere = tree.ePresence == ZN_PRESENCE::THERE;
    std::wstring strLine = std::wstring(SIDES[eSide]) + TREES[eTree] +
                           (tree.strDir.empty() ? L"its place is not known" : tree.strDir);
    if (!tree.strDir.empty() && !tree.fLooked)
        strLine += L": not looked at";
    else if (tree.ePresence == ZN_PRESENCE::GONE)
        strLine += L" is not there";
    else if (fThere)
        strLine +=
            L": " + ZNFormatSize(tree.nFiles, tree.nBytes) + Text(RECORDED, pair.facts.aeRecorded[eSide]);
    else if (tree.fLooked)
        strLine += L" cannot be seen. " +
                   (tree.findings.IsEmpty() ? ZNFormatError(tree.nError) : ZNFormatFirst(tree.findings));
    if (eSide == ZN_NEW && fThere && pair.aTrees[ZN_OLD].ePresence == ZN_PRESENCE::THERE)
        strLine += Text(RELATIONS, pair.facts.eRelation);
    ZNPrintLine(strLine);
    if (!pair.aUnlike[eSide].IsEmpty() && fThere)
        ZNPrintLine(L"    not as recorded. " + ZNFormatFirst(pair.aUnlike[eSide]));
    if (eSide == ZN_NEW && !pair.differences.IsEmpty())
        ZNPrintLine(L"    differs. " + ZNFormatFirst(pair.differences));
    if (eSide == ZN_NEW && !pair.ties.IsEmpty())
        ZNPrintLine(L"    not to be deleted. " + ZNFormatFirst(pair.ties));
    for (const std::wstring& strLink : tree.links)
        ZNPrintLine(L"    " + strLink + L" is a link; what it leads to was looked at");
}

void PrintElsewhere(const ZNFound& found)
{
    ZNPrintLine(L"Left to do on every other node that is to run the queue manager:");
    ZNPrintLine(L"    in its zns.ini, stanza QueueManager with Name=" + found.words.strQueueManager +
                L": Prefix=" + found.words.strDataDest);
    ZNPrintLine(L"    if znm is a local group there, which this machine's access lists do not name:");
    for (const ZNPair& pair : found.aPairs)
        ZNPrintLine(L"        icacls " + ZNQuoted(pair.aTrees[ZN_NEW].strDir) +
                    L" /grant \"znm:(OI)(CI)F\" /t");
}
} // namespace

void ZNPrintAdvice(const ZNFound& found, const ZNVerdict& verdict)
{
    if (found.survey.fKnown)
        ZNPrintLine(L"Configuration: data in " + found.survey.aNow[ZN_DATA] + L", log in " +
                    found.survey.aNow[ZN_LOG]);
    for (const ZN_TREE eTree : {ZN_DATA, ZN_LOG})
        for (const ZN_SIDE eSide : {ZN_OLD, ZN_NEW})
            PrintTree(found, eTree, eSide);
    std::wstring strTrouble = Text(TROUBLES, found.eTrouble) + found.strTrouble;
    if (verdict.eState == ZN_STATE::CANNOT_TELL && strTrouble.empty() &&
        (found.aPairs[ZN_DATA].aTrees[ZN_OLD].strDir.empty() ||
         found.aPairs[ZN_LOG].aTrees[ZN_OLD].strDir.empty()))
        strTrouble = L"the old places are not known";
    if (found.fNoLogPath)
        ZNPrintLine(L"The qm.ini in " + found.survey.aNow[ZN_DATA] + L" is not there, or has no LogPath");
    ZNPrintLine(L"State: " + Text(STATES, verdict.eState) + (strTrouble.empty() ? L"" : L": " + strTrouble));
    ZNPrintLine(std::wstring(L"Safe to start the queue manager: ") + (verdict.eStart == ZN_START::YES ? L"yes"
                                                                      : verdict.eStart == ZN_START::NO
                                                                          ? L"no"
                                                                          : L"it runs"));
    const Steps steps(found);
    bool fRemove = false, fPercent = false;
    for (const auto& [pszHeading, list] : {std::pair(L"To finish the move:", verdict.finish),
                                           std::pair(L"To take the move back:", verdict.takeBack)})
    {
        if (!list.empty())
            ZNPrintLine(pszHeading);
        for (const ZNStep& step : list)
            for (const std::wstring& strLine : steps.Lines(step))
            {
                ZNPrintLine(L"    " + strLine);
                fRemove = fRemove || step.eStep == ZN_STEP::REMOVE;
                fPercent = fPercent || strLine.find(L'%') != std::wstring::npos;
            }
    }
    ZNPrintLine(fRemove ? L"A deletion is valid now; look again if anything was started since."
                        : L"No tree may be deleted by hand now.");
    if (fPercent)
        ZNPrintLine(L"Note: cmd.exe replaces %NAME% in quotation marks too. First give echo and the path: it "
                    L"must come out as it is");
    if (verdict.eState == ZN_STATE::MOVED)
        PrintElsewhere(found);
}

void ZNPrintLookAfter(const ZNCheckWords& words, const std::wstring& strOldData,
                      const std::wstring& strOldLog)
{
    ZNPrintLine(LookAfter(words, words.strRecord.empty() ? strOldData : L"",
                          words.strRecord.empty() ? strOldLog : L""));
}

std::wstring ZNFormatFirst(const CZNFindings& findings)
{
    const size_t nMore = findings.Count() - 1;
    return ZNFormatFinding(findings.First().front()) +
           (nMore == 0 ? L"" : L", and " + ZNFormatCount(nMore) + L" more");
}

std::wstring ZNMessageText(uint32_t nMessageID)
{
    CString strText;
    strText.LoadString(nMessageID);
    strText.Replace(L'\n', L' ');
    return static_cast<const wchar_t*>(strText);
}

std::wstring ZNQuoted(const std::wstring& strPath)
{
    return L"\"" + strPath + L"\"";
}

std::wstring ZNWithout(const std::wstring& strPath, const std::wstring& strEnding)
{
    if (strPath.size() <= strEnding.size())
        return {};
    const size_t nCut = strPath.size() - strEnding.size();
    return ZNIsSameName(strPath.c_str() + nCut, strEnding.c_str()) ? strPath.substr(0, nCut) : std::wstring();
}
