// Finds out where a move stands, and what to do. Names no deletion unless every byte of what would go is
// proven to be in the tree that stays.
#include "znmcheckafter.h"

#include <algorithm>
#include <optional>
#include <vector>

#include "tovmsrid.h"
#include "tovxcs2.h"
#include "znmconsole.h"
#include "znmpaths.h"
#include "znmreadfile.h"
#include "znmrecord.h"

ZNM_SOURCE_ID("cmd/mscs/tools/znmcheck/znmcheckafter");

namespace
{
using Lines = std::vector<std::wstring>;

constexpr wchar_t WRITTEN_SINCE[] = L"written since the record was made";

std::wstring ProgramPath(const wchar_t* pszName)
{
    std::wstring strPath(32'768, L'\0');
    strPath.resize(GetModuleFileNameW(nullptr, strPath.data(), static_cast<DWORD>(strPath.size())));
    return strPath.substr(0, strPath.find_last_of(L'\\') + 1) + pszName;
}

std::wstring RemoveTree(const std::wstring& strDir)
{
    return L"rmdir /s /q " + ZNQuoted(strDir);
}

// The path without its ending, in whatever letter case; empty if it has another one.
std::wstring Without(const std::wstring& strPath, const std::wstring& strEnding)
{
    if (strPath.size() <= strEnding.size())
        return {};
    const size_t nCut = strPath.size() - strEnding.size();
    const bool fEnds =
        CompareStringOrdinal(strPath.c_str() + nCut, -1, strEnding.c_str(), -1, TRUE) == CSTR_EQUAL;
    return fEnds ? strPath.substr(0, nCut) : std::wstring();
}

// One kind of tree of the queue manager: where it was, where it goes, and where it counts.
struct Tree
{
    CZNInventory& Counting() { return fNew ? now : old; }

    const wchar_t* pszKind;
    std::wstring strOld; // empty: unknown
    std::wstring strNew;
    bool fNew = false; // the configuration names the new place
    CZNInventory old{}, now{};
    ZNComparison toNew{};    // from the old to the new tree, where both are there
    ZNComparison expected{}; // from the record to the tree that counts
};

class After
{
  public:
    explicit After(const ZNCheckWords& words) : m_words(words), m_survey(words) {}
    ZN_STATE Look();

  private:
    bool TakeRecord();
    bool FindPlaces();
    void ReadTrees();
    void FindFaults(Tree& tree);
    void AddFaults(const wchar_t* pszWhat, const std::wstring& strDir, const Lines& paths);

    ZN_STATE NotMoved();
    ZN_STATE BetweenTheFiles();
    ZN_STATE Moved();
    ZN_STATE MovedWithFaults();
    ZN_STATE MovedCompletely();
    bool IsOldWhole(bool fByRecord) const;
    bool CanGo(const CZNInventory& tree) const;
    bool OldNamesOldLog() const;
    void AddRemovals(Lines& steps, bool fNew) const;

    Lines PrefixBack() const;
    Lines LogPathOn() const;
    std::wstring Move(const std::wstring& strData, const std::wstring& strLog) const;
    Lines MoveBack() const;
    std::wstring Again() const;
    void PrintElsewhere() const;

    ZN_STATE CannotTell(const std::wstring& strWhy);
    ZN_STATE Conclude(ZN_STATE eState, const std::wstring& strState, const std::wstring& strStart);
    void PrintTree(const wchar_t* pszWhich, const Tree& tree, bool fNew) const;
    void PrintSteps(const wchar_t* pszHeading, const Lines& steps) const;

    const ZNCheckWords& m_words;
    CZNSurvey m_survey;
    std::optional<CZNRecord> m_record;
    Tree m_data{L"data", {}, {}}, m_log{L"log", {}, {}};
    Lines m_faults, m_notes, m_finish, m_back;
    bool m_fOverlap = false;
};

// --- What there is ------------------------------------------------------------------------------------

bool After::TakeRecord()
{
    if (m_words.strRecord.empty())
        return true;
    DWORD nError = ERROR_SUCCESS;
    std::string strError;
    std::string strRecord;
    nError = ZNReadFile(m_words.strRecord, strRecord);
    m_record = CZNRecord::FromText(strRecord, strError);
    std::wstring strWhy(strError.begin(), strError.end());
    if (nError != ERROR_SUCCESS)
        strWhy = ZNFormatError(nError);
    else if (m_record && (m_record->strQueueManager != static_cast<const wchar_t*>(m_words.strQueueManager) ||
                          !CZNSurvey::IsSamePlace(m_record->strNewData, m_data.strNew) ||
                          !CZNSurvey::IsSamePlace(m_record->strNewLog, m_log.strNew)))
        strWhy = L"it is of another queue manager or of other destinations";
    if (!strWhy.empty())
        CannotTell(L"The record " + m_words.strRecord + L" cannot be used: " + strWhy);
    return strWhy.empty();
}

// Where all four trees are. False if the configuration names places that no step of a move leaves.
bool After::FindPlaces()
{
    const std::wstring strData = static_cast<const wchar_t*>(m_survey.strDataDir);
    const std::wstring strLog = static_cast<const wchar_t*>(m_survey.strLogDir);
    ZNPrintLine(L"Configuration: data in " + strData + L", log in " + strLog);
    m_data.fNew = CZNSurvey::IsSamePlace(strData, m_data.strNew);
    m_log.fNew = CZNSurvey::IsSamePlace(strLog, m_log.strNew);
    if ((m_data.fNew && strData != m_data.strNew) || (m_log.fNew && strLog != m_log.strNew))
    {
        CannotTell(L"A new directory is the present one in another spelling. The command refuses that; if it "
                   L"was given "
                   L"otherwise, look again with the words of the move.");
        return false;
    }
    m_data.strOld = m_record ? m_record->strOldData : !m_data.fNew ? strData : m_words.strOldData;
    m_log.strOld = m_record ? m_record->strOldLog : !m_log.fNew ? strLog : m_words.strOldLog;
    if ((!m_data.fNew && !CZNSurvey::IsSamePlace(strData, m_data.strOld)) ||
        (!m_log.fNew && !CZNSurvey::IsSamePlace(strLog, m_log.strOld)))
        CannotTell(L"The configuration names places that are neither the old ones nor the new ones.");
    else if (!m_data.fNew && m_log.fNew)
        CannotTell(
            L"LogPath names the new log directory and Prefix the old place, which no step of a move leaves.");
    else
        return true;
    return false;
}

void After::ReadTrees()
{
    CZNProgress progress;
    std::vector<CZNInventory*> trees;
    for (Tree* const p : {&m_data, &m_log})
    {
        if (!p->strOld.empty())
            p->old.List(p->strOld, p == &m_data);
        p->now.List(p->strNew, p == &m_data);
        trees.insert(trees.end(), {&p->old, &p->now});
    }
    for (const CZNInventory* const p : trees)
        progress.Expect(p->nFiles, p->nBytes);
    for (CZNInventory* const p : trees)
        p->Read(progress, false);
    for (Tree* const p : {&m_data, &m_log})
    {
        if (p->old.fThere && p->now.fThere)
            p->toNew = ZNComparison(p->old, p->now);
        if (m_record)
            p->expected = ZNComparison(p == &m_data ? m_record->data : m_record->log, p->Counting());
    }
    for (const CZNInventory* const p : trees)
        for (const std::wstring& strLink : p->links)
            m_notes.push_back(strLink + L" is a link; what it leads to was looked at");
    // The log may lie in the data. Any other directory that two trees share would be deleted with one of
    // them.
    const auto share = [](const CZNInventory& left, const CZNInventory& right) {
        return std::ranges::any_of(left.directories, [&](const auto& id) {
            return right.directories.Find(id.second.first) != nullptr;
        });
    };
    for (const CZNInventory* const pNew : {&m_data.now, &m_log.now})
        m_fOverlap = m_fOverlap || share(m_data.old, *pNew) || share(m_log.old, *pNew);
}

void After::AddFaults(const wchar_t* pszWhat, const std::wstring& strDir, const Lines& paths)
{
    for (const std::wstring& strPath : paths)
        m_faults.push_back(std::wstring(pszWhat).append(L": ").append(strDir).append(L"\\").append(strPath));
}

// What the tree that counts lacks. A running queue manager writes: what it has written is none.
void After::FindFaults(Tree& tree)
{
    const CZNInventory& counting = tree.Counting();
    if (!counting.fThere)
        return m_faults.push_back(L"missing: " + counting.strDir);
    for (const ZNFinding& finding : counting.findings)
    {
        const std::string strText = ZNFindingText(finding.eFinding);
        const std::wstring strLine = std::wstring(strText.begin(), strText.end()) + L": " + finding.strPath +
                                     L", " + ZNFormatError(finding.nError);
        const bool fHeld = m_survey.fRunning && finding.eFinding == ZN_FINDING::NOT_READ;
        (fHeld ? m_notes : m_faults).push_back(strLine);
    }
    if (m_record)
    {
        AddFaults(L"missing", counting.strDir, tree.expected.onlyLeft);
        AddFaults(L"older than in the record", counting.strDir, tree.expected.leftNewer);
        // A file that is open for writing may keep its time although its content is another.
        const bool fWritten = m_survey.fRunning || m_record->fRunning;
        const size_t nWritten = tree.expected.damaged.size() + tree.expected.rightNewer.size();
        if (!fWritten)
        {
            AddFaults(L"another content than in the record, with the same time", counting.strDir,
                      tree.expected.damaged);
            AddFaults(WRITTEN_SINCE, counting.strDir, tree.expected.rightNewer);
        }
        else if (nWritten > 0)
            m_notes.push_back(ZNFormatCount(nWritten) + L" of the files in " + counting.strDir +
                              L" were written since the record was made, and could not be compared with it");
        if (!tree.expected.onlyRight.empty())
            m_notes.push_back(ZNFormatCount(tree.expected.onlyRight.size()) + L" entries in " +
                              counting.strDir + L" are not in the record, such as " +
                              tree.expected.onlyRight.front());
    }
    else if (tree.fNew)
        AddFaults(L"another content than in the old tree, with the same time", counting.strDir,
                  tree.toNew.damaged);
}

// --- What can be done ---------------------------------------------------------------------------------

// Both old trees hold everything that is to be in them: what the record says, or what is in the new ones.
bool After::IsOldWhole(bool fByRecord) const
{
    for (const Tree* const p : {&m_data, &m_log})
    {
        if (!p->old.fThere || !p->old.findings.empty())
            return false;
        if (fByRecord &&
            !(m_record && ZNComparison(p == &m_data ? m_record->data : m_record->log, p->old).IsSame()))
            return false;
        if (!fByRecord && !(p->toNew.onlyRight.empty() && p->toNew.rightNewer.empty() &&
                            p->toNew.damaged.empty() && p->toNew.notCompared.empty()))
            return false;
    }
    return OldNamesOldLog();
}

bool After::OldNamesOldLog() const
{
    std::string strQmIni;
    ZNReadFile(m_data.strOld + L"\\qm.ini", strQmIni);
    const size_t nName = strQmIni.find("LogPath="), nValue = nName + 8;
    if (nName == std::string::npos)
        return false;
    const std::string strValue = strQmIni.substr(nValue, strQmIni.find_first_of("\r\n", nValue) - nValue);
    return CZNSurvey::IsSamePlace(std::wstring(WithoutTrailingBackslash(CString(strValue.c_str()))),
                                  m_log.strOld);
}

// Nothing of others would be deleted with the tree.
bool After::CanGo(const CZNInventory& tree) const
{
    const auto configuration = CZNIdentity::Of(std::wstring(m_survey.znsIni.Directory()));
    return !m_fOverlap && tree.findings.empty() && tree.links.empty() && configuration &&
           tree.directories.Find(*configuration) == nullptr && m_survey.FindOther(tree.directories).empty();
}

// The log first: it may lie in the data.
void After::AddRemovals(Lines& steps, bool fNew) const
{
    for (const Tree* const p : {&m_log, &m_data})
        if (const CZNInventory& tree = fNew ? p->now : p->old; tree.fThere)
            steps.push_back(RemoveTree(tree.strDir));
}

Lines After::PrefixBack() const
{
    const std::wstring strPrefix = Without(m_data.strOld, L"\\qmgrs\\" + m_survey.strDirectory);
    if (strPrefix.empty())
        return {};
    return {L"edit " + ZNQuoted(m_survey.strZnsIni) + L": in the stanza QueueManager with Name=" +
            static_cast<const wchar_t*>(m_words.strQueueManager) + L" the line must read Prefix=" +
            strPrefix};
}

Lines After::LogPathOn() const
{
    const DWORD nAttributes = GetFileAttributesW(m_survey.strQmIni.c_str());
    Lines steps;
    if (nAttributes != INVALID_FILE_ATTRIBUTES && (nAttributes & FILE_ATTRIBUTE_READONLY) != 0)
        steps.push_back(L"attrib -r " + ZNQuoted(m_survey.strQmIni));
    steps.push_back(L"edit " + ZNQuoted(m_survey.strQmIni) +
                    L": in the stanza Log the line must read LogPath=" + m_log.strNew + L"\\");
    return steps;
}

std::wstring After::Move(const std::wstring& strData, const std::wstring& strLog) const
{
    return ZNQuoted(ProgramPath(L"tarvel.exe")) + L" /m " + ZNQuoted(std::wstring(m_words.strQueueManager)) +
           L" /dd " + ZNQuoted(strData) + L" /ld " + ZNQuoted(strLog);
}

// The next look, which knows the old places although no file may name them any more.
std::wstring After::Again() const
{
    std::wstring strWords = L"tarvelcheck after /m " + ZNQuoted(std::wstring(m_words.strQueueManager)) +
                            L" /dd " + ZNQuoted(std::wstring(m_words.strDataDest)) + L" /ld " +
                            ZNQuoted(std::wstring(m_words.strLogDest));
    if (m_record)
        return strWords + L" /record " + ZNQuoted(m_words.strRecord);
    strWords += m_data.strOld.empty() ? L"" : L" /od " + ZNQuoted(m_data.strOld);
    return strWords + (m_log.strOld.empty() ? L"" : L" /ol " + ZNQuoted(m_log.strOld));
}

// Empty where the old places are unknown or not of the form that the command makes.
Lines After::MoveBack() const
{
    const std::wstring strData = Without(m_data.strOld, L"\\qmgrs\\" + m_survey.strDirectory);
    const std::wstring strLog = Without(m_log.strOld, L"\\" + m_survey.strDirectory);
    return strData.empty() || strLog.empty() ? Lines() : Lines{Move(strData, strLog)};
}

// --- The states ---------------------------------------------------------------------------------------

ZN_STATE After::NotMoved()
{
    // A copy that was cut off lacks files, and the one that it was at has the time of that moment.
    bool fWrittenThere = false;
    size_t nForeign = 0;
    for (const Tree* const p : {&m_data, &m_log})
    {
        const size_t nNewer = p->toNew.rightNewer.size();
        fWrittenThere = fWrittenThere || nNewer > 1 || (nNewer == 1 && p->toNew.onlyLeft.empty());
        nForeign += p->toNew.onlyRight.size();
    }
    if (!m_faults.empty())
        return Conclude(ZN_CANNOT_TELL,
                        L"not moved: both files name the old trees, but these are not as they should be",
                        L"no");
    if (fWrittenThere)
        return Conclude(
            ZN_CANNOT_TELL,
            L"both files name the old trees, but the new ones hold files that were written later. If the "
            L"queue manager never ran there, these are no more than copies: give the command again",
            L"only if it never ran in the new place");
    if (!CanBeDestination(m_data.strNew.c_str()) || !CanBeDestination(m_log.strNew.c_str()))
    {
        m_notes.emplace_back(
            L"The new directories are none that the command takes; tarvelcheck before says why");
        return Conclude(ZN_NOT_MOVED, L"not moved: both files name the old trees, which count", L"yes");
    }
    m_finish = {Move(static_cast<const wchar_t*>(m_words.strDataDest),
                     static_cast<const wchar_t*>(m_words.strLogDest))};
    m_notes.emplace_back(L"tarvelcheck before says what may have ended the move, and would end it again");
    if (nForeign > 0)
        m_notes.push_back(
            L"The new trees hold " + ZNFormatCount(nForeign) +
            L" entries that the old ones do not: they are not named for deletion, and stay in a move");
    else if (!m_survey.fRunning && CanGo(m_data.now) && CanGo(m_log.now))
        AddRemovals(m_back, true);
    return Conclude(ZN_NOT_MOVED, L"not moved: both files name the old trees, which count", L"yes");
}

ZN_STATE After::BetweenTheFiles()
{
    const bool fDataSame = m_data.old.fThere && m_data.toNew.IsSame();
    const bool fLogSame = m_log.now.fThere && m_log.toNew.IsSame();
    const std::wstring strState =
        L"in between: zns.ini names the new data tree, its qm.ini the old log tree; these two count";
    AddFaults(L"missing in the new tree", m_data.old.strDir, m_data.toNew.onlyLeft);
    AddFaults(L"newer in the old tree", m_data.old.strDir, m_data.toNew.leftNewer);
    if (m_fOverlap)
        m_faults.emplace_back(L"a new and an old tree share a directory");
    if (!m_faults.empty() && !m_fOverlap && IsOldWhole(true))
        m_back = PrefixBack();
    if (!m_faults.empty())
        return Conclude(ZN_CANNOT_TELL, strState + L", but they are not as they should be", L"no");
    if (m_survey.fRunning)
        m_notes.emplace_back(
            L"End the queue manager and look again: the trees cannot be compared while it runs");
    else if (fDataSame && fLogSame && CanGo(m_data.now) && CanGo(m_log.now) && !PrefixBack().empty())
    {
        m_finish = m_back = PrefixBack();
        m_finish.push_back(Move(static_cast<const wchar_t*>(m_words.strDataDest),
                                static_cast<const wchar_t*>(m_words.strLogDest)));
        AddRemovals(m_back, true);
    }
    else if (fLogSame)
        m_finish = LogPathOn();
    else if (m_log.toNew.onlyRight.empty() && m_log.toNew.rightNewer.empty() &&
             m_log.toNew.notCompared.empty() && CanGo(m_log.now))
    {
        // The queue manager ran in between. What went on in the old log must come along.
        constexpr size_t LONGEST_OF_XCOPY = 254;
        for (const std::wstring& strDir : {m_log.strOld, m_log.strNew})
            if (m_log.old.LongestPathIn(strDir) > LONGEST_OF_XCOPY)
                return Conclude(
                    ZN_CANNOT_TELL,
                    strState +
                        L"; the old log tree must be copied again, and has paths that xcopy cannot copy",
                    L"yes, but delete nothing");
        if (m_log.now.fThere)
            m_finish = {RemoveTree(m_log.strNew)};
        m_finish.push_back(L"xcopy " + ZNQuoted(m_log.strOld) + L" " + ZNQuoted(m_log.strNew) +
                           L" /e /h /k /i /y");
        m_finish.push_back(
            L"icacls " + ZNQuoted(m_log.strNew) +
            L" /grant \"*S-1-5-32-544:(OI)(CI)F\" \"*S-1-5-18:(OI)(CI)F\" \"znm:(OI)(CI)F\" /t");
        for (const std::wstring& strStep : LogPathOn())
            m_finish.push_back(strStep);
        m_notes.emplace_back(
            L"It was started in between. It can only be taken back after the move was finished");
    }
    if (!m_finish.empty() && m_finish.back().starts_with(L"edit"))
        m_notes.push_back(L"After these steps look again: it names what may be deleted: " + Again());
    return Conclude(ZN_IN_BETWEEN, strState,
                    m_survey.fRunning ? L"it runs" : L"better finish or take back first");
}

ZN_STATE After::MovedWithFaults()
{
    if (m_fOverlap)
        return Conclude(ZN_CANNOT_TELL,
                        L"both files name the new trees, but a new and an old tree share a directory",
                        L"yes, but delete nothing");
    if (!m_survey.fRunning && IsOldWhole(true))
        m_back = PrefixBack();
    return Conclude(ZN_CANNOT_TELL, L"both files name the new trees, but these are not as they should be",
                    L"no");
}

ZN_STATE After::MovedCompletely()
{
    m_back = MoveBack();
    const bool fUnknown = m_data.strOld.empty() || m_log.strOld.empty();
    if (fUnknown)
        m_notes.emplace_back(
            L"The old places are unknown, and so whether anything is left there. Name them with /od "
            L"and /ol, or give the record");
    if (!m_record)
        m_notes.emplace_back(L"Without a record no content could be compared");
    const ZN_STATE eState =
        Conclude(ZN_MOVED,
                 fUnknown ? L"moved: both files name the new trees"
                          : L"moved: both files name the new trees, the old ones are gone",
                 L"yes");
    PrintElsewhere();
    return eState;
}

ZN_STATE After::Moved()
{
    bool fLeft = false, fOldChanged = false, fCanGo = true;
    for (const Tree* const p : {&m_data, &m_log})
    {
        fLeft = fLeft || p->old.fThere;
        fOldChanged = fOldChanged || !p->toNew.onlyLeft.empty() || !p->toNew.leftNewer.empty();
        fCanGo = fCanGo && CanGo(p->old) && p->toNew.IsRightWhole() && p->toNew.notCompared.empty();
    }
    if (!m_faults.empty() || m_fOverlap)
        return MovedWithFaults();
    if (!fLeft)
        return MovedCompletely();
    if (fOldChanged)
    {
        const std::wstring strState =
            L"both files name the new trees, but the old ones were changed after they were copied";
        if (m_survey.fRunning || !IsOldWhole(false) || PrefixBack().empty())
            return Conclude(ZN_CANNOT_TELL, strState + L": it cannot be told which ones are right", L"no");
        m_back = m_finish = PrefixBack();
        m_finish.push_back(Move(static_cast<const wchar_t*>(m_words.strDataDest),
                                static_cast<const wchar_t*>(m_words.strLogDest)));
        return Conclude(ZN_IN_BETWEEN, strState + L": the old trees are the newer ones and count",
                        L"no, it would start from the older trees");
    }
    if (!fCanGo)
        return Conclude(
            ZN_CANNOT_TELL,
            L"both files name the new trees; what is left of the old ones could not be compared with them",
            L"yes, but delete nothing");
    for (const Tree* const p : {&m_data, &m_log})
        if (!p->toNew.rightNewer.empty())
            m_notes.push_back(ZNFormatCount(p->toNew.rightNewer.size()) + L" files in " + p->strNew +
                              L" were written after they were copied, such as " +
                              p->toNew.rightNewer.front());
    AddRemovals(m_finish, false);
    m_back = MoveBack();
    if (!m_back.empty())
        m_back.insert(m_back.begin(), m_finish.begin(), m_finish.end());
    return Conclude(ZN_IN_BETWEEN,
                    L"moved: both files name the new trees, which count; something is left of the old ones",
                    L"yes");
}

// --- What is said -------------------------------------------------------------------------------------

void After::PrintTree(const wchar_t* pszWhich, const Tree& tree, bool fNew) const
{
    const CZNInventory& inventory = fNew ? tree.now : tree.old;
    const std::wstring strDir = fNew ? tree.strNew : tree.strOld;
    std::wstring strLine = std::wstring(pszWhich) + L" " + tree.pszKind + L" tree: ";
    if (strDir.empty())
        strLine += L"its place is unknown";
    else if (!inventory.fThere)
        strLine += strDir + L" is not there";
    else
        strLine += strDir + L": " + ZNFormatSize(inventory.nFiles, inventory.nBytes);
    if (inventory.fThere && m_record && fNew == tree.fNew && tree.expected.IsSame())
        strLine += tree.pszKind == m_data.pszKind
                       ? L", every byte as in the record, the line LogPath of qm.ini aside"
                       : L", every byte as in the record";
    if (fNew && tree.old.fThere && tree.now.fThere)
        strLine += tree.toNew.IsSame() ? L", the same as the old tree" : L", not the same as the old tree";
    ZNPrintLine(strLine);
}

void After::PrintSteps(const wchar_t* pszHeading, const Lines& steps) const
{
    if (steps.empty())
        return;
    ZNPrintLine(pszHeading);
    for (const std::wstring& strStep : steps)
        ZNPrintLine(L"    " + strStep);
}

ZN_STATE After::CannotTell(const std::wstring& strWhy)
{
    return Conclude(ZN_CANNOT_TELL, strWhy, L"no");
}

ZN_STATE After::Conclude(ZN_STATE eState, const std::wstring& strState, const std::wstring& strStart)
{
    constexpr size_t FIRST_ONES = 10;
    for (const Tree* const p : {&m_data, &m_log})
    {
        PrintTree(L"Old", *p, false);
        PrintTree(L"New", *p, true);
    }
    ZNPrintLine(L"State: " + strState);
    for (size_t i = 0; i < std::min(m_faults.size(), FIRST_ONES); ++i)
        ZNPrintLine(L"    " + m_faults[i]);
    if (m_faults.size() > FIRST_ONES)
        ZNPrintLine(L"    and " + ZNFormatCount(m_faults.size() - FIRST_ONES) + L" more");
    for (const std::wstring& strNote : m_notes)
        ZNPrintLine(L"Note: " + strNote);
    const bool fOnlyWritten =
        !m_faults.empty() && std::ranges::all_of(m_faults, [](const std::wstring& strFault) {
            return strFault.starts_with(WRITTEN_SINCE);
        });
    ZNPrintLine(L"Safe to start the queue manager: " +
                (fOnlyWritten
                     ? L"only if it ran since the record was made, which would explain what was written"
                     : strStart));
    PrintSteps(L"To finish the move:", m_finish);
    PrintSteps(L"To take the move back:", m_back);
    const auto has = [&](const wchar_t* psz) {
        return std::ranges::any_of(std::initializer_list<const Lines*>{&m_finish, &m_back},
                                   [&](const Lines* pSteps) {
                                       return std::ranges::any_of(*pSteps, [&](const std::wstring& str) {
                                           return str.find(psz) != std::wstring::npos;
                                       });
                                   });
    };
    if (!has(L"rmdir"))
        ZNPrintLine(L"No tree may be deleted by hand now.");
    if (has(L"%"))
        ZNPrintLine(L"Note: cmd.exe replaces %NAME% in quotation marks too. First give echo and the path: it "
                    L"must come out as it is");
    return eState;
}

void After::PrintElsewhere() const
{
    ZNPrintLine(L"Left to do on every other node that is to run the queue manager:");
    ZNPrintLine(L"    in its zns.ini, stanza QueueManager with Name=" +
                std::wstring(m_words.strQueueManager) + L": Prefix=" +
                static_cast<const wchar_t*>(m_words.strDataDest));
    ZNPrintLine(L"    if znm is a local group there, which this machine's access lists do not name:");
    for (const Tree* const p : {&m_data, &m_log})
        ZNPrintLine(L"        icacls " + ZNQuoted(p->strNew) + L" /grant \"znm:(OI)(CI)F\" /t");
    for (const Tree* const p : {&m_data, &m_log})
    {
        std::wstring strParent = p->strOld;
        for (int i = 0; i < 2 && IsTreePath(strParent.c_str()); ++i)
        {
            strParent.resize(strParent.find_last_of(L'\\'));
            CZNInventory parent;
            if (!IsTreePath(strParent.c_str()) ||
                (parent.List(strParent, false), !parent.fThere || !parent.entries.empty()))
                break;
            ZNPrintLine(L"The directory is empty and may go: rmdir " + ZNQuoted(strParent));
        }
    }
}

ZN_STATE After::Look()
{
    m_data.strNew = static_cast<const wchar_t*>(m_survey.strNewDataDir);
    m_log.strNew = static_cast<const wchar_t*>(m_survey.strNewLogDir);
    if (!m_survey.fKnown)
        return CannotTell(L"zns.ini has no queue manager of this name");
    if (m_survey.fMoving)
        return CannotTell(L"a move of the queue manager is under way: wait for its end");
    if (m_survey.strLogDir.IsEmpty())
        return CannotTell(m_survey.strQmIni + L" cannot be read, or has no LogPath");
    if (!TakeRecord() || !FindPlaces())
        return ZN_CANNOT_TELL;
    ReadTrees();
    for (Tree* const p : {&m_data, &m_log})
        FindFaults(*p);
    return !m_data.fNew ? NotMoved() : m_log.fNew ? Moved() : BetweenTheFiles();
}
} // namespace

ZN_STATE ZNCheckAfter(const ZNCheckWords& words)
{
    return After(words).Look();
}
