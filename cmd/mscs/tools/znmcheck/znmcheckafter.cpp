// Collects the facts after a move. Must not judge them: a deletion is named by ZNDecide alone.
#include "znmcheckafter.h"

#include <optional>

#include "tovmsrid.h"
#include "tovxcs2.h"
#include "znmadvice.h"
#include "znmcheckbefore.h"
#include "znmpaths.h"
#include "znmreadfile.h"
#include "znmrecord.h"

ZNM_SOURCE_ID("cmd/mscs/tools/znmcheck/znmcheckafter");

namespace
{
class After
{
  public:
    explicit After(const ZNCheckWords& words) : m_words(words), m_found(words) {}
    ZN_STATUS Look();

  private:
    ZN_TROUBLE TakeRecord();
    ZN_TROUBLE FindPlace(ZN_TREE eTree, bool& fNew);
    ZN_TROUBLE FindPlaces();
    ZN_TROUBLE ReadTrees();
    void FindTies(ZN_TREE eTree, ZN_SIDE eSide);
    ZN_TROUBLE FindChanges();

    CZNInventory& Tree(ZN_TREE eTree, ZN_SIDE eSide) { return m_found.aPairs[eTree].aTrees[eSide]; }
    CZNInventory& Counting(ZN_TREE eTree) { return Tree(eTree, ZNCountingSide(m_found.facts.eConf, eTree)); }

    const ZNCheckWords& m_words;
    ZNFound m_found;
    std::optional<ZNRecord> m_record;
};

ZN_TROUBLE After::TakeRecord()
{
    if (m_words.strRecord.empty())
        return ZN_TROUBLE::NONE;
    std::string strText;
    size_t nLine = 0;
    const DWORD nError = ZNReadFile(m_words.strRecord, strText);
    m_record = ZNRecord::FromText(strText, nLine);
    const CZNSurvey& survey = m_found.survey;
    if (nError != ERROR_SUCCESS)
        m_found.strTrouble = ZNFormatError(nError);
    else if (!m_record)
        m_found.strTrouble = nLine == 0 ? L"it is no record of this version, or its checksum does not fit"
                                        : L"line " + std::to_wstring(nLine) + L" is none of a record";
    else if (m_record->strQueueManager != m_words.strQueueManager ||
             !ZNIsSamePlace(m_record->aNew[ZN_DATA].c_str(), survey.aNew[ZN_DATA].c_str()) ||
             !ZNIsSamePlace(m_record->aNew[ZN_LOG].c_str(), survey.aNew[ZN_LOG].c_str()))
        m_found.strTrouble = L"it is of another queue manager or of other destinations";
    return m_found.strTrouble.empty() ? ZN_TROUBLE::NONE : ZN_TROUBLE::RECORD;
}

// Where the old tree is, and whether the files name the new one. A record or the words say more than the
// files.
ZN_TROUBLE After::FindPlace(ZN_TREE eTree, bool& fNew)
{
    const CZNSurvey& survey = m_found.survey;
    const std::wstring& strGiven = m_record           ? m_record->aTrees[eTree].strDir
                                   : eTree == ZN_DATA ? m_words.strOldData
                                                      : m_words.strOldLog;
    std::wstring strNow = survey.aNow[eTree];
    if (strNow.empty() && ZNLogPathIn(survey.aNow[ZN_DATA]).empty()) // half of a tree is named
    {
        m_found.fNoLogPath = true;
        strNow = strGiven;
    }
    if (strNow.empty())
        return ZN_TROUBLE::NO_LOG_PATH;
    fNew = ZNIsSamePlace(strNow.c_str(), survey.aNew[eTree].c_str());
    if (fNew && strNow != survey.aNew[eTree])
        return ZN_TROUBLE::OTHER_SPELLING;
    std::wstring& strOld = Tree(eTree, ZN_OLD).strDir;
    strOld = !strGiven.empty() || fNew ? strGiven : strNow;
    return fNew || ZNIsSamePlace(strNow.c_str(), strOld.c_str()) ? ZN_TROUBLE::NONE
                                                                 : ZN_TROUBLE::OTHER_PLACES;
}

ZN_TROUBLE After::FindPlaces()
{
    bool fNewData = false, fNewLog = false;
    ZN_TROUBLE eTrouble = FindPlace(ZN_DATA, fNewData);
    if (eTrouble == ZN_TROUBLE::NONE)
        eTrouble = FindPlace(ZN_LOG, fNewLog);
    if (eTrouble != ZN_TROUBLE::NONE || (fNewLog && !fNewData))
        return eTrouble != ZN_TROUBLE::NONE ? eTrouble : ZN_TROUBLE::OTHER_PLACES;
    const std::wstring &strOldData = Tree(ZN_DATA, ZN_OLD).strDir,
                       &strDirectory = m_found.survey.strDirectory;
    if (!strOldData.empty() && ZNWithout(strOldData, L"\\qmgrs\\" + strDirectory).empty())
        return ZN_TROUBLE::NO_PREFIX;
    m_found.facts.eConf = fNewLog ? ZN_CONF::NEW : fNewData ? ZN_CONF::BETWEEN : ZN_CONF::OLD;
    m_found.facts.fWayBack =
        !strOldData.empty() && !ZNWithout(Tree(ZN_LOG, ZN_OLD).strDir, L"\\" + strDirectory).empty();
    return ZN_TROUBLE::NONE;
}

ZN_TROUBLE After::ReadTrees()
{
    CZNReading reading;
    for (ZNPair& pair : m_found.aPairs)
        for (CZNInventory& tree : pair.aTrees)
        {
            if (!tree.strDir.empty())
                tree.List(std::wstring(tree.strDir));
            reading.Expect(tree.nFiles, tree.nBytes);
        }
    for (const ZN_TREE eTree : {ZN_DATA, ZN_LOG})
        m_found.aPairs[eTree].Compare(eTree, m_record ? &m_record->aTrees[eTree] : nullptr, reading);
    for (const ZN_TREE eTree : {ZN_DATA, ZN_LOG})
    {
        FindTies(eTree, ZN_OLD);
        FindTies(eTree, ZN_NEW);
        m_found.facts.aPairs[eTree] = m_found.aPairs[eTree].facts;
        const CZNInventory& tree = Counting(eTree);
        if (tree.ePresence == ZN_PRESENCE::UNSEEN)
        {
            m_found.strTrouble =
                tree.findings.IsEmpty() ? ZNFormatError(tree.nError) : ZNFormatFirst(tree.findings);
            return ZN_TROUBLE::NOT_READ;
        }
    }
    const CZNInventory &oldData = Tree(ZN_DATA, ZN_OLD), &oldLog = Tree(ZN_LOG, ZN_OLD);
    const bool fQmIni = oldData.entries.contains(L"qm.ini") && !oldLog.strDir.empty();
    const std::wstring strLogPath = fQmIni ? ZNLogPathIn(oldData.strDir) : L"";
    if (strLogPath.empty() || ZNIsSamePlace(strLogPath.c_str(), oldLog.strDir.c_str()))
        return ZN_TROUBLE::NONE;
    m_found.strTrouble = strLogPath;
    return ZN_TROUBLE::OLD_QM_INI;
}

// What a deletion would take along. The log may lie in the data of the same side.
void After::FindTies(ZN_TREE eTree, ZN_SIDE eSide)
{
    const auto configuration =
        CZNIdentity::Of(static_cast<const wchar_t*>(m_found.survey.znsIni.Directory()));
    const std::wstring strRecord = ResolvedPath(m_words.strRecord);
    const auto record = CZNIdentity::Of(strRecord.substr(0, strRecord.find_last_of(L'\\') + 1));
    const ZN_SIDE eOther = eSide == ZN_OLD ? ZN_NEW : ZN_OLD;
    CZNFindings& ties = m_found.aPairs[eTree].ties;
    for (const auto& [nKey, directory] : Tree(eTree, eSide).directories)
    {
        const CZNIdentity& identity = directory.first;
        if (!configuration || configuration->IsSame(identity))
            ties.Add(ZN_FINDING::CONFIGURATION, directory.second);
        if (record && record->IsSame(identity))
            ties.Add(ZN_FINDING::RECORD, directory.second);
        if (m_found.survey.others.Find(identity) != nullptr)
            ties.Add(ZN_FINDING::OTHER_QUEUE_MANAGER, directory.second);
        if (Tree(ZN_DATA, eOther).directories.Find(identity) != nullptr ||
            Tree(ZN_LOG, eOther).directories.Find(identity) != nullptr)
            ties.Add(ZN_FINDING::SOURCE_OVERWRITTEN, directory.second);
    }
    if (!ties.IsEmpty())
        m_found.aPairs[eTree].facts.eTie = ZN_TIE::HELD;
}

// Asks again for what could have been changed while the trees were read.
ZN_TROUBLE After::FindChanges()
{
    bool fSame = CZNSurvey(m_words).IsSameAs(m_found.survey);
    for (const ZNPair& pair : m_found.aPairs)
        for (const CZNInventory& tree : pair.aTrees)
        {
            CZNInventory again;
            if (!tree.strDir.empty() && fSame)
                again.List(tree.strDir);
            fSame = fSame && (tree.strDir.empty() || !tree.findings.IsEmpty() || again.IsSameAs(tree));
        }
    return fSame ? ZN_TROUBLE::NONE : ZN_TROUBLE::CHANGED;
}

ZN_STATUS After::Look()
{
    const CZNSurvey& survey = m_found.survey;
    ZNFacts& facts = m_found.facts;
    ZN_TROUBLE& eTrouble = m_found.eTrouble;
    for (const ZN_TREE eTree : {ZN_DATA, ZN_LOG})
    {
        const std::wstring& strGiven = eTree == ZN_DATA ? m_words.strOldData : m_words.strOldLog;
        const bool fNow = strGiven.empty() && survey.aNow[eTree] != survey.aNew[eTree];
        Tree(eTree, ZN_OLD).strDir = fNow ? survey.aNow[eTree] : strGiven;
        Tree(eTree, ZN_NEW).strDir = survey.aNew[eTree];
    }
    facts.fRuns = survey.fRunning;
    if (survey.fMoving)
        facts.eLook = ZN_LOOK::UNDER_WAY;
    else if (!survey.fKnown)
        eTrouble = ZN_TROUBLE::UNKNOWN_NAME;
    else
        for (const auto pfnStep : {&After::TakeRecord, &After::FindPlaces, &After::ReadTrees})
            if (eTrouble == ZN_TROUBLE::NONE)
                eTrouble = (this->*pfnStep)();
    if (eTrouble == ZN_TROUBLE::NONE && facts.eLook == ZN_LOOK::OK && facts.eConf == ZN_CONF::OLD)
    {
        CZNCheckReport report(true);
        ZNCheckBefore(m_words, report);
        facts.fAccepts = report.Stops() == 0;
    }
    if (eTrouble == ZN_TROUBLE::NONE && facts.eLook == ZN_LOOK::OK && !facts.fRuns)
        eTrouble = FindChanges();
    if (eTrouble != ZN_TROUBLE::NONE)
        facts.eLook = ZN_LOOK::UNUSABLE;
    const ZNVerdict verdict = ZNDecide(facts);
    ZNPrintAdvice(m_found, verdict);
    return verdict.eStatus;
}
} // namespace

ZN_STATUS ZNCheckAfter(const ZNCheckWords& words)
{
    return After(words).Look();
}
