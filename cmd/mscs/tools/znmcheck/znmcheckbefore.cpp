// Looks at everything that can stop or hurt a move, in the order in which the command comes to it.
#include "znmcheckbefore.h"

#include <io.h>

#include <algorithm>
#include <iterator>

#include "messages.h"
#include "owner.h"
#include "tovmsrid.h"
#include "tovxcs2.h"
#include "znmadvice.h"
#include "znmmovedtrees.h"
#include "znmpaths.h"
#include "znmreadfile.h"
#include "znmrecord.h"
#include "znmwalk.h"

ZNM_SOURCE_ID("cmd/mscs/tools/znmcheck/znmcheckbefore");

namespace
{
// In the order in which the command comes to them.
constexpr uint32_t REFUSALS[] = {IDS_COMMON_SERVICES_FAILED, IDS_QM_NOT_FOUND, IDS_QM_MULTI_INSTANCE,
                                 IDS_QM_STILL_ACTIVE,        IDS_USAGE,        IDS_SAME_DESTINATION,
                                 IDS_CREATE_FAILED,          IDS_COPY_FAILED,  IDS_UPDATE_FAILED};

const wchar_t* const OLD_SUBJECTS[] = {L"old data directory", L"old log directory"};
const wchar_t* const NEW_SUBJECTS[] = {L"new data directory", L"new log directory"};

bool IsElevated()
{
    KernelHandle token;
    if (!OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, token.Out()))
        return false;
    TOKEN_ELEVATION elevation = {};
    DWORD nSize = sizeof elevation;
    return GetTokenInformation(token.Get(), TokenElevation, &elevation, nSize, &nSize) &&
           elevation.TokenIsElevated != 0;
}

bool HasZnmAccount()
{
    unsigned char abSid[SECURITY_MAX_SID_SIZE];
    wchar_t szDomain[MAX_PATH];
    DWORD nSid = sizeof abSid, nDomain = MAX_PATH;
    SID_NAME_USE eUse;
    return LookupAccountNameW(nullptr, L"znm", abSid, &nSid, szDomain, &nDomain, &eUse) != FALSE;
}

// The directory itself, or the nearest one above it that is there; empty if there is none.
std::wstring NearestExisting(std::wstring strDir)
{
    while (strDir.size() > 2 && GetFileAttributesW(strDir.c_str()) == INVALID_FILE_ATTRIBUTES)
    {
        const size_t nCut = strDir.find_last_of(L'\\', strDir.size() - 2);
        if (nCut == std::wstring::npos || nCut == 0)
            return {};
        const bool fRoot = strDir[nCut - 1] == L':'; // "E:" would be its current directory
        strDir.resize(fRoot ? nCut + 1 : nCut);
    }
    return strDir.size() > 2 ? strDir : L"";
}

// The entries of a directory's access list that new directories in it get.
std::wstring InheritableEntries(const std::wstring& strDir)
{
    const std::wstring strText = ZNSecurityText(strDir, DACL_SECURITY_INFORMATION);
    std::wstring strEntries = strText.empty() ? L"(not readable)" : L"";
    for (size_t nBegin = 0, nEnd; (nBegin = strText.find(L'(', nBegin)) != std::wstring::npos; nBegin = nEnd)
    {
        nEnd = std::min(strText.find(L')', nBegin), strText.size() - 1) + 1;
        const std::wstring strEntry = strText.substr(nBegin, nEnd - nBegin);
        const size_t nFlags = std::min(strEntry.find(L';'), strEntry.size() - 1) + 1;
        const std::wstring strFlags = strEntry.substr(nFlags, strEntry.find(L';', nFlags) - nFlags);
        if (strFlags.find(L"OI") != std::wstring::npos || strFlags.find(L"CI") != std::wstring::npos)
            strEntries += strEntry;
    }
    return strEntries.empty() ? L"nothing" : strEntries;
}

bool HasNamedStreams(const std::wstring& strPath)
{
    WIN32_FIND_STREAM_DATA stream = {};
    const FindHandle find(FindFirstStreamW(strPath.c_str(), FindStreamInfoStandard, &stream, 0));
    bool fMore = static_cast<bool>(find);
    while (fMore && std::wcscmp(stream.cStreamName, L"::$DATA") == 0)
        fMore = FindNextStreamW(find.Get(), &stream) != FALSE;
    return fMore;
}

class Look
{
  public:
    Look(const ZNCheckWords& words, CZNCheckReport& report)
        : m_words(words), m_report(report), m_survey(words)
    {
    }
    void Take();

  private:
    void CheckUser();
    bool CheckQueueManager();
    bool CheckOldPlaces();
    void CheckPlace(bool fOk, const std::wstring& strWrong, uint32_t nRefusal);
    void CheckAbove(ZN_TREE eTree);
    void CheckSamePlaces();
    void CheckDestination(ZN_TREE eTree);
    void CheckContent(ZN_TREE eTree);
    void CheckOldTree(ZN_TREE eTree);
    void CheckFindings(const wchar_t* pszSubject, const CZNFindings& findings, const std::wstring& strDo,
                       uint32_t nRefusal);
    void CheckAsTheCommandDoes();
    void CheckSpace();
    void CheckWhatVolumesKeep(ZN_TREE eTree);
    void WriteRecord();

    const ZNCheckWords& m_words;
    CZNCheckReport& m_report;
    CZNSurvey m_survey;
    ZNPair m_aPairs[ZN_TREES];
    std::wstring m_astrExisting[ZN_TREES]; // of the destinations
};

void Look::CheckUser()
{
    m_report.OkOrNote(
        L"elevation", IsElevated(), L"the program runs elevated",
        L"the program does not run elevated, which is enough for a member of the group znm only; "
        L"otherwise use \"Run as administrator\"");
    m_report.Check(L"group znm", HasZnmAccount(), L"this machine knows it",
                   L"this machine has no group of that name, so the copies would get no rights",
                   L"create it: net localgroup znm /add", IDS_COPY_FAILED);
}

bool Look::CheckQueueManager()
{
    const std::wstring& strName = m_words.strQueueManager;
    if (!m_report.Check(L"queue manager", m_survey.fKnown,
                        strName + L" is known; its directory name is " + m_survey.strDirectory,
                        L"zns.ini has none named " + strName + L", or its installation is unknown",
                        L"check the name, with its letter case, in " + ZNQuoted(m_survey.strZnsIni),
                        IDS_QM_NOT_FOUND))
        return false;
    m_report.Check(L"instances", !m_survey.fMultiInstance, L"it is no multi-instance queue manager",
                   L"it is a multi-instance queue manager", L"it cannot be moved by this command",
                   IDS_QM_MULTI_INSTANCE);
    m_report.Check(L"other moves", !m_survey.fMoving, L"none is under way", L"a move of it is under way",
                   L"wait for its end; tarvelcheck watch shows it", IDS_QM_STILL_ACTIVE);
    if (m_survey.fMoving) // nothing that it deletes may be held open
        return false;
    m_report.OkOrNote(L"running", !m_survey.fRunning, L"it does not run",
                      L"it runs: tarvel will end it, wait for its applications, and not start it again");
    return true;
}

bool Look::CheckOldPlaces()
{
    for (const std::wstring& strPath : {m_survey.strZnsIni, m_survey.strQmIni})
        if (const DWORD nAttributes = GetFileAttributesW(strPath.c_str()); !strPath.empty())
            m_report.Check(
                L"configuration file",
                nAttributes == INVALID_FILE_ATTRIBUTES || (nAttributes & FILE_ATTRIBUTE_READONLY) == 0,
                strPath, strPath + L" is read-only", L"attrib -r " + ZNQuoted(strPath), IDS_UPDATE_FAILED);
    const std::wstring &strData = m_survey.aNow[ZN_DATA], &strLog = m_survey.aNow[ZN_LOG];
    const bool fData = IsTreePath(strData.c_str());
    if (!fData)
        m_report.Stop(OLD_SUBJECTS[ZN_DATA], strData + L" is not an absolute path below a root",
                      L"correct Prefix in " + ZNQuoted(m_survey.strZnsIni), IDS_QM_NOT_FOUND);
    if (!m_survey.fLogPath)
        m_report.Stop(OLD_SUBJECTS[ZN_LOG],
                      L"LogPath is missing in " + m_survey.strQmIni +
                          L", or names no absolute path below a root: \"" + strLog + L"\"",
                      L"correct LogPath in the stanza Log", IDS_USAGE);
    return fData && m_survey.fLogPath;
}

void Look::CheckPlace(bool fOk, const std::wstring& strWrong, uint32_t nRefusal)
{
    if (!fOk)
        m_report.Stop(L"different places", strWrong, L"choose another destination", nRefusal);
}

// Up from the destination: what is there must be no place of an old tree or of others.
void Look::CheckAbove(ZN_TREE eTree)
{
    const std::wstring& strNew = m_survey.aNew[eTree];
    for (std::wstring strUp = m_astrExisting[eTree]; strUp.find(L'\\') != std::wstring::npos;
         strUp.resize(strUp.find_last_of(L'\\')))
    {
        const auto above = CZNIdentity::Of(strUp + L"\\");
        if (!above)
            continue;
        const bool fOld = m_aPairs[ZN_DATA].aTrees[ZN_OLD].directories.Find(*above) != nullptr ||
                          m_aPairs[ZN_LOG].aTrees[ZN_OLD].directories.Find(*above) != nullptr;
        CheckPlace(strUp == strNew || !fOld, strNew + L" lies in an old tree", IDS_COPY_FAILED);
        if (const std::wstring* const pstrOther = m_survey.others.Find(*above))
            CheckPlace(false, strNew + L" is, or lies in, a directory of the queue manager " + *pstrOther,
                       IDS_COPY_FAILED);
    }
}

void Look::CheckSamePlaces()
{
    const int nStops = m_report.Stops();
    for (const ZN_TREE eTree : {ZN_DATA, ZN_LOG})
    {
        const std::wstring &strNew = m_survey.aNew[eTree],
                           &strOther = m_survey.aNew[eTree == ZN_DATA ? ZN_LOG : ZN_DATA];
        for (const std::wstring& strOld : m_survey.aNow)
            CheckPlace(!ZNIsSamePlace(strNew.c_str(), strOld.c_str()),
                       std::wstring(strNew).append(L" is the old directory ").append(strOld),
                       strNew == m_survey.aNow[eTree] ? IDS_SAME_DESTINATION : IDS_COPY_FAILED);
        CheckAbove(eTree);
        const bool fIn =
            ZNIsSameName(strOther.substr(0, strNew.size() + 1).c_str(), (strNew + L"\\").c_str());
        CheckPlace(!fIn || m_aPairs[eTree].aTrees[ZN_OLD].Find(strOther.substr(strNew.size() + 1)) == nullptr,
                   L"both trees would be copied into " + strOther, IDS_COPY_FAILED);
    }
    const auto missing = [&](ZN_TREE e) { return m_survey.aNew[e].substr(m_astrExisting[e].size()); };
    const bool fSameText = ZNIsSameName(m_survey.aNew[ZN_DATA].c_str(), m_survey.aNew[ZN_LOG].c_str());
    const bool fSame =
        fSameText || (ZNIsSamePlace(m_astrExisting[ZN_DATA].c_str(), m_astrExisting[ZN_LOG].c_str()) &&
                      ZNIsSameName(missing(ZN_DATA).c_str(), missing(ZN_LOG).c_str()));
    CheckPlace(!fSame, L"both destinations are one directory",
               fSameText ? IDS_SAME_DESTINATION : IDS_COPY_FAILED);
    if (m_report.Stops() == nStops)
        m_report.Ok(L"different places", L"the new directories are neither the old ones nor each other");
}

void Look::CheckDestination(ZN_TREE eTree)
{
    constexpr int ACCESS_READ_WRITE = 6;
    const wchar_t* const pszSubject = NEW_SUBJECTS[eTree];
    const std::wstring &strDir = m_survey.aNew[eTree], &strExisting = m_astrExisting[eTree];
    if (!CanBeDestination(strDir.c_str()))
        return m_report.Stop(
            pszSubject,
            strDir +
                L" is not absolute, too long, has a reserved name or a character that this code page lacks",
            L"choose another destination", IDS_CREATE_FAILED);
    if (strExisting.empty())
        return m_report.Stop(pszSubject, L"the volume of " + strDir + L" is not there",
                             L"bring the disk online on this node", IDS_CREATE_FAILED);
    if ((GetFileAttributesW(strExisting.c_str()) & FILE_ATTRIBUTE_DIRECTORY) == 0 ||
        _waccess(strExisting.c_str(), ACCESS_READ_WRITE) != 0)
        return m_report.Stop(pszSubject, strExisting + L" is a file or cannot be written to",
                             L"remove it, or choose another destination", IDS_CREATE_FAILED);
    uint32_t nRootLength = 0;
    if (xcsVolumeSupportsSecurity(CW2A(strExisting.c_str()), &nRootLength) == XCS_RC_NO_VOLUME_SECURITY)
        return m_report.Stop(pszSubject, L"the volume of " + strDir + L" keeps no access lists",
                             L"choose a volume with NTFS or ReFS");
    const bool fExists = strExisting == strDir;
    m_report.Ok(pszSubject, strDir + (fExists ? L" exists" : L" will be created in " + strExisting));

    const std::wstring strEntries = InheritableEntries(strExisting);
    const bool fWide =
        std::ranges::any_of(std::initializer_list<const wchar_t*>{L";WD)", L";AU)", L";BU)", L";IU)"},
                            [&](const wchar_t* psz) { return strEntries.find(psz) != std::wstring::npos; });
    const std::wstring strFound = strExisting + L" hands down " + strEntries;
    m_report.OkOrNote(L"handed-down rights", !fWide, strFound,
                      strFound + L": every user gets in; remove that if it is not meant");
    if (fExists && !ZNIsSamePlace(strDir.c_str(), m_survey.aNow[eTree].c_str()))
        CheckContent(eTree);
    CheckWhatVolumesKeep(eTree);
}

// What lies in a destination stays or is overwritten; nobody asks. Only a copy loses nothing by that.
void Look::CheckContent(ZN_TREE eTree)
{
    constexpr wchar_t SUBJECT[] = L"its content";
    ZNPair& pair = m_aPairs[eTree];
    CZNInventory& there = pair.aTrees[ZN_NEW];
    there.List(m_survey.aNew[eTree]);
    CZNReading reading;
    reading.Expect(2 * there.nFiles, 2 * there.nBytes);
    pair.Compare(eTree, nullptr, reading);
    const std::wstring strHolds = there.strDir + L" holds " + ZNFormatSize(there.nFiles, there.nBytes);
    const ZN_RELATION e = pair.facts.eRelation;
    const bool fCopy = e == ZN_RELATION::SAME || e == ZN_RELATION::NEW_IN_OLD || e == ZN_RELATION::CUT;
    if (there.entries.empty() && there.findings.IsEmpty())
        m_report.Ok(SUBJECT, there.strDir + L" is empty");
    else if (fCopy && there.findings.IsEmpty())
        m_report.Note(SUBJECT,
                      strHolds + L", a copy of the old tree or a part of one: it will be overwritten");
    else
        m_report.Stop(SUBJECT,
                      strHolds + L" that the old tree does not have" +
                          (pair.differences.IsEmpty() ? L"" : L". " + ZNFormatFirst(pair.differences)),
                      L"look what it is; move it away, or choose another destination", IDS_COPY_FAILED);
}

// Some file systems do not keep all that a file can have; nobody tells when it is lost.
void Look::CheckWhatVolumesKeep(ZN_TREE eTree)
{
    const CZNInventory& tree = m_aPairs[eTree].aTrees[ZN_OLD];
    wchar_t szVolume[MAX_PATH] = {};
    DWORD nFlags = 0;
    if (!GetVolumePathNameW(m_astrExisting[eTree].c_str(), szVolume, MAX_PATH) ||
        !GetVolumeInformationW(szVolume, nullptr, 0, nullptr, nullptr, &nFlags, nullptr, 0))
        return m_report.Note(L"streams, encryption", m_survey.aNew[eTree] + L": its volume cannot be asked");
    size_t nStreams = 0, nEncrypted = 0;
    for (const auto& [strBelow, entry] : tree.entries)
    {
        const bool fStreams = (nFlags & FILE_NAMED_STREAMS) != 0,
                   fEncrypts = (nFlags & FILE_SUPPORTS_ENCRYPTION) != 0;
        nStreams += !fStreams && HasNamedStreams(tree.strDir + L"\\" + strBelow) ? 1U : 0U;
        nEncrypted += !fEncrypts && (entry.nAttributes & FILE_ATTRIBUTE_ENCRYPTED) != 0 ? 1U : 0U;
    }
    for (const auto& [nCount, pszWhat] : {std::pair(nStreams, L" have named streams, which "),
                                          std::pair(nEncrypted, L" are encrypted, which ")})
        if (nCount > 0)
            m_report.Note(L"streams, encryption", ZNFormatCount(nCount) + L" entries in " + tree.strDir +
                                                      pszWhat + szVolume + L" does not keep");
}

void Look::CheckFindings(const wchar_t* pszSubject, const CZNFindings& findings, const std::wstring& strDo,
                         uint32_t nRefusal)
{
    for (const ZNFinding& finding : findings.First())
        m_report.Stop(pszSubject, ZNFormatFinding(finding), strDo, nRefusal);
    if (findings.Count() > findings.First().size())
        m_report.Note(pszSubject,
                      L"and " + ZNFormatCount(findings.Count() - findings.First().size()) + L" more");
}

void Look::CheckOldTree(ZN_TREE eTree)
{
    CZNInventory& tree = m_aPairs[eTree].aTrees[ZN_OLD];
    m_report.Ok(OLD_SUBJECTS[eTree], tree.strDir + L": " + ZNFormatSize(tree.nFiles, tree.nBytes) +
                                         L", to be read and written; longest new path " +
                                         std::to_wstring(tree.LongestPathIn(m_survey.aNew[eTree])) + L" of " +
                                         std::to_wstring(ZN_MAX_FILE_PATH) + L" characters");
    for (const std::wstring& strLink : tree.links)
        if ((GetFileAttributesW(strLink.c_str()) & FILE_ATTRIBUTE_DIRECTORY) != 0)
            m_report.Stop(
                L"links",
                strLink +
                    L" is a link to a directory: the move copies what it leads to, and then deletes it there",
                L"remove the link, or replace it by what it leads to");
        else
            m_report.Note(L"links", strLink + L" is a link: its copy will be a file of its own");
    CheckFindings(L"files", tree.findings, L"give access, or find out which program holds it and end that",
                  0);
    for (const auto& [nKey, other] : m_survey.others)
        if (tree.directories.Find(other.first) != nullptr)
            m_report.Stop(L"foreign content",
                          L"a directory of the queue manager " + other.second + L" lies in " + tree.strDir +
                              L": it would be copied and then deleted",
                          L"move that queue manager first");
}

void Look::CheckAsTheCommandDoes()
{
    constexpr size_t FIRST_ONES = 10;
    CZNMovedTrees trees({m_words.strQueueManager.c_str(), m_survey.aNow[ZN_DATA].c_str(),
                         m_survey.aNew[ZN_DATA].c_str(), m_survey.aNow[ZN_LOG].c_str(),
                         m_survey.aNew[ZN_LOG].c_str(), CString(m_survey.znsIni.szName),
                         m_survey.znsIni.Directory()});
    CZNFindings findings(FIRST_ONES);
    if (trees.Look(findings))
        m_report.Ok(L"the command's own look", L"finds nothing against copying and deleting both trees");
    CheckFindings(L"the command's own look", findings, L"correct that, or choose another destination",
                  IDS_COPY_FAILED);
}

void Look::CheckSpace()
{
    constexpr uint64_t CLUSTER = 4096;
    std::wstring astrVolumes[ZN_TREES];
    uint64_t anNeeded[ZN_TREES] = {};
    for (const ZN_TREE eTree : {ZN_DATA, ZN_LOG})
    {
        const auto onDisk = [&](ZN_SIDE eSide) {
            uint64_t nSum = 0;
            for (const auto& entry : m_aPairs[eTree].aTrees[eSide].entries)
                nSum += (entry.second.nSize + CLUSTER) / CLUSTER * CLUSTER;
            return nSum;
        };
        anNeeded[eTree] = onDisk(ZN_OLD) - std::min(onDisk(ZN_OLD), onDisk(ZN_NEW)); // a copy is overwritten
        wchar_t szVolume[MAX_PATH] = {};
        if (GetVolumePathNameW(m_astrExisting[eTree].c_str(), szVolume, MAX_PATH))
            astrVolumes[eTree] = szVolume;
    }
    const bool fOne = astrVolumes[ZN_DATA] == astrVolumes[ZN_LOG];
    for (const ZN_TREE eTree : {ZN_DATA, ZN_LOG})
    {
        ULARGE_INTEGER nFree = {};
        if (astrVolumes[eTree].empty() || (fOne && eTree == ZN_LOG) ||
            !GetDiskFreeSpaceExW(m_astrExisting[eTree].c_str(), &nFree, nullptr, nullptr))
            continue;
        const uint64_t nNeeded = fOne ? anNeeded[ZN_DATA] + anNeeded[ZN_LOG] : anNeeded[eTree];
        const std::wstring strFound = astrVolumes[eTree] + L" has " + ZNFormatCount(nFree.QuadPart) +
                                      L" bytes free; " + (fOne ? L"both trees need " : L"the tree needs ") +
                                      ZNFormatCount(nNeeded);
        m_report.Check(L"free space", nNeeded <= nFree.QuadPart, strFound, strFound,
                       L"make room, or choose another volume", IDS_COPY_FAILED);
    }
}

void Look::WriteRecord()
{
    constexpr wchar_t SUBJECT[] = L"record";
    const std::wstring strPath = ResolvedPath(m_words.strRecord);
    const auto parent = CZNIdentity::Of(strPath.substr(0, strPath.find_last_of(L'\\') + 1));
    ZNRecord record{m_words.strQueueManager, {m_survey.aNew[ZN_DATA], m_survey.aNew[ZN_LOG]}, {}};
    uint64_t nFiles = 0, nBytes = 0;
    for (const ZN_TREE eTree : {ZN_DATA, ZN_LOG})
    {
        for (const CZNInventory& tree : m_aPairs[eTree].aTrees)
            if (parent && tree.directories.Find(*parent) != nullptr)
                return m_report.Stop(SUBJECT, strPath + L" would lie in a tree that moves",
                                     L"name a file elsewhere");
        record.aTrees[eTree] = m_aPairs[eTree].aTrees[ZN_OLD];
        record.aTrees[eTree].findings = CZNFindings();
        nFiles += record.aTrees[eTree].nFiles;
        nBytes += record.aTrees[eTree].nBytes;
    }
    FileHandle file(
        CreateFileW(strPath.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr));
    DWORD nError = GetLastError();
    const auto giveUp = [&](const std::wstring& strFound, const wchar_t* pszWhatToDo) {
        file.Close();
        DeleteFileW(strPath.c_str()); // or the next look could not make it
        m_report.Stop(SUBJECT, strPath + strFound, pszWhatToDo);
    };
    if (!file)
        return m_report.Stop(SUBJECT, strPath + L" cannot be made anew: " + ZNFormatError(nError),
                             L"name a file that does not exist yet, in a directory that does");
    CZNReading reading;
    reading.Expect(nFiles, nBytes);
    for (const ZN_TREE eTree : {ZN_DATA, ZN_LOG})
    {
        record.aTrees[eTree].Read(eTree, reading);
        if (const CZNFindings& findings = record.aTrees[eTree].findings; !findings.IsEmpty())
            return giveUp(L" was not written. " + ZNFormatFinding(findings.First().front()),
                          L"give access, or end the program that holds the file");
    }
    const std::string strText =
        record.ToText(ZNOutputHead() + (m_survey.fRunning ? L"\r\nThe queue manager ran." : L""));
    DWORD nWritten = 0;
    const BOOL fWritten =
        WriteFile(file.Get(), strText.data(), static_cast<DWORD>(strText.size()), &nWritten, nullptr) &&
        FlushFileBuffers(file.Get());
    nError = GetLastError();
    if (!fWritten || nWritten != strText.size())
        return giveUp(L" could not be written whole: " + ZNFormatError(nError), L"make room");
    // As docs/performance.md has it: each byte is read once, at the rate that was measured, and each file
    // costs its calls.
    constexpr double SECONDS_A_FILE = 0.001;
    m_report.Ok(L"least time",
                ZNFormatSeconds(reading.Seconds() + SECONDS_A_FILE * static_cast<double>(nFiles)) +
                    L" for the move itself: " + ZNFormatSize(nFiles, nBytes) + L" were read in " +
                    ZNFormatSeconds(reading.Seconds()));
    m_report.OkOrNote(SUBJECT, !m_survey.fRunning, strPath + L" was written",
                      strPath + L" was written while the queue manager runs: what it writes over from now on "
                                L"differs from it");
}

void Look::Take()
{
    CheckUser();
    if (!CheckQueueManager() || !CheckOldPlaces())
        return;
    for (const ZN_TREE eTree : {ZN_DATA, ZN_LOG})
    {
        CZNInventory& tree = m_aPairs[eTree].aTrees[ZN_OLD];
        tree.List(m_survey.aNow[eTree]);
        tree.Probe(!m_survey.fRunning);
        m_astrExisting[eTree] = NearestExisting(m_survey.aNew[eTree]);
    }
    CheckSamePlaces();
    CheckDestination(ZN_DATA);
    CheckDestination(ZN_LOG);
    CheckOldTree(ZN_DATA);
    CheckOldTree(ZN_LOG);
    if (m_survey.fRunning)
        m_report.Note(L"held files", L"not looked for while the queue manager runs and holds its own");
    CheckAsTheCommandDoes();
    CheckSpace();
    if (m_words.strVerb != L"before" || m_words.strRecord.empty())
        return;
    if (m_report.Stops() == 0)
        WriteRecord();
    else
        m_report.Note(L"record", L"not written: a look makes it that finds nothing to stop the move");
}
} // namespace

void CZNCheckReport::Print(const wchar_t* pszVerdict, const wchar_t* pszSubject,
                           const std::wstring& strFound) const
{
    if (!m_fQuiet)
        ZNPrintLine(std::wstring(pszVerdict) + L" " + pszSubject + L": " + strFound);
}

void CZNCheckReport::OkOrNote(const wchar_t* pszSubject, bool fOk, const std::wstring& strOk,
                              const std::wstring& strNote)
{
    m_nNotes += fOk ? 0 : 1;
    Print(fOk ? L"ok   " : L"note ", pszSubject, fOk ? strOk : strNote);
}

void CZNCheckReport::Stop(const wchar_t* pszSubject, const std::wstring& strFound,
                          const std::wstring& strWhatToDo, uint32_t nRefusal)
{
    ++m_nStops;
    const auto rank = [](uint32_t nMessageID) { return std::ranges::find(REFUSALS, nMessageID) - REFUSALS; };
    if (rank(nRefusal) < rank(m_nRefusal))
        m_nRefusal = nRefusal;
    Print(L"STOP ", pszSubject, strFound + L". To do: " + strWhatToDo + L".");
}

bool CZNCheckReport::Check(const wchar_t* pszSubject, bool fOk, const std::wstring& strOk,
                           const std::wstring& strFound, const std::wstring& strWhatToDo, uint32_t nRefusal)
{
    if (fOk)
        Ok(pszSubject, strOk);
    else
        Stop(pszSubject, strFound, strWhatToDo, nRefusal);
    return fOk;
}

int CZNCheckReport::Close() const
{
    if (m_nRefusal != 0)
        ZNPrintLine(L"tarvel itself would end with: " + ZNMessageText(m_nRefusal));
    ZNPrintLine(m_nStops == 0 ? L"Nothing stops the move. Notes: " + std::to_wstring(m_nNotes)
                              : L"Do not move yet. Stops: " + std::to_wstring(m_nStops) + L", notes: " +
                                    std::to_wstring(m_nNotes));
    return m_nStops == 0 ? ZN_STATUS_OK : ZN_STATUS_NOT_MOVED;
}

void ZNCheckBefore(const ZNCheckWords& words, CZNCheckReport& report)
{
    Look(words, report).Take();
}
