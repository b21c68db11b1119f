// Looks at everything that can stop or hurt a move, in the order in which the command comes to it.
#include "znmcheckbefore.h"

#include <io.h>

#include <algorithm>

#include "messages.h"
#include "owner.h"
#include "tovmsrid.h"
#include "tovxcs2.h"
#include "znmconsole.h"
#include "znmpaths.h"
#include "znmrecord.h"
#include "znmmovedtrees.h"
#include "znmreadfile.h"

ZNM_SOURCE_ID("cmd/mscs/tools/znmcheck/znmcheckbefore");

namespace
{
constexpr size_t FIRST_ONES = 10; // findings of one kind that are printed
constexpr int ACCESS_READ_WRITE = 6;

// In the order in which the command comes to them.
constexpr uint32_t REFUSALS[] = {IDS_COMMON_SERVICES_FAILED, IDS_QM_NOT_FOUND, IDS_QM_MULTI_INSTANCE,
                                 IDS_QM_STILL_ACTIVE,        IDS_USAGE,        IDS_SAME_DESTINATION,
                                 IDS_CREATE_FAILED,          IDS_COPY_FAILED,  IDS_UPDATE_FAILED};

// A directory that may not exist yet.
struct Destination
{
    Destination(const wchar_t* psz, const CString& str) : pszSubject(psz), strDir(str)
    {
        std::wstring strUp = strDir;
        while (strUp.size() > 2 && GetFileAttributesW(strUp.c_str()) == INVALID_FILE_ATTRIBUTES)
        {
            const size_t nCut = strUp.find_last_of(L'\\', strUp.size() - 2);
            if (nCut == std::wstring::npos)
            {
                strUp.clear();
                break;
            }
            const bool fRoot = nCut > 0 && strUp[nCut - 1] == L':'; // "E:" would be its current directory
            strUp.resize(fRoot ? nCut + 1 : nCut);
        }
        strExisting = strUp.size() > 2 ? strUp : L"";
    }
    bool Exists() const { return strExisting == strDir; }
    std::wstring Missing() const { return strDir.substr(strExisting.size()); }

    const wchar_t* pszSubject;
    std::wstring strDir;
    std::wstring strExisting; // itself, or the nearest directory above it that exists; empty: none
    std::wstring strVolume;
    uint64_t nNeeded = 0;
};

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
    return strEntries;
}

class Look
{
  public:
    Look(const ZNCheckWords& words, CZNCheckReport& report)
        : m_words(words), m_report(report), m_survey(words),
          m_data(L"new data directory", m_survey.strNewDataDir),
          m_log(L"new log directory", m_survey.strNewLogDir)
    {
    }
    void Take();

  private:
    void CheckUser();
    bool CheckQueueManager();
    void CheckConfigurationFile(const std::wstring& strPath);
    bool CheckOldPlaces();
    void CheckSamePlaces();
    void CheckDestination(const Destination& destination, const CZNInventory& old);
    void CheckContent(const Destination& destination, const CZNInventory& old);
    void CheckOldTree(const wchar_t* pszSubject, CZNInventory& tree, const Destination& destination);
    void CheckFindings(const wchar_t* pszSubject, const std::vector<ZNFinding>& findings,
                       const std::wstring& strDo, uint32_t nRefusal);
    void CheckAsTheCommandDoes();
    void CheckSpace();
    void WriteRecord();

    const ZNCheckWords& m_words;
    CZNCheckReport& m_report;
    CZNSurvey m_survey;
    Destination m_data, m_log;
    CZNInventory m_oldData, m_oldLog;
};

void Look::CheckUser()
{
    if (IsElevated())
        m_report.Ok(L"elevation", L"the program runs elevated");
    else
        m_report.Note(L"elevation", L"the program does not run elevated, which is enough for a member of the "
                                    L"group znm only; otherwise use \"Run as administrator\"");
    if (HasZnmAccount())
        m_report.Ok(L"group znm", L"this machine knows it");
    else
        m_report.Stop(L"group znm",
                      L"this machine has no group of that name, so the copies would get no rights",
                      L"create it: net localgroup znm /add", IDS_COPY_FAILED);
}

bool Look::CheckQueueManager()
{
    const std::wstring strName = static_cast<const wchar_t*>(m_words.strQueueManager);
    if (!m_survey.fKnown)
    {
        m_report.Stop(
            L"queue manager", L"zns.ini has none named " + strName + L", or its installation is unknown",
            L"check the name, with its letter case, in " + ZNQuoted(m_survey.strZnsIni), IDS_QM_NOT_FOUND);
        return false;
    }
    m_report.Ok(L"queue manager", strName + L" is known; its directory name is " + m_survey.strDirectory);
    if (m_survey.fMultiInstance)
        m_report.Stop(L"instances", L"it is a multi-instance queue manager",
                      L"it cannot be moved by this command", IDS_QM_MULTI_INSTANCE);
    else
        m_report.Ok(L"instances", L"it is no multi-instance queue manager");
    if (m_survey.fMoving)
        m_report.Stop(L"other moves", L"a move of it is under way", L"wait for its end", IDS_QM_STILL_ACTIVE);
    else
        m_report.Ok(L"other moves", L"none is under way");
    if (m_survey.fRunning)
        m_report.Note(L"running",
                      L"it runs: tarvel will end it, wait for its applications, and not start it again");
    else
        m_report.Ok(L"running", L"it does not run");
    return true;
}

void Look::CheckConfigurationFile(const std::wstring& strPath)
{
    const DWORD nAttributes = GetFileAttributesW(strPath.c_str());
    if (nAttributes != INVALID_FILE_ATTRIBUTES && (nAttributes & FILE_ATTRIBUTE_READONLY) != 0)
        m_report.Stop(L"configuration file", strPath + L" is read-only", L"attrib -r " + ZNQuoted(strPath),
                      IDS_UPDATE_FAILED);
    else
        m_report.Ok(L"configuration file", strPath);
}

bool Look::CheckOldPlaces()
{
    if (m_survey.fZnsIni)
        CheckConfigurationFile(m_survey.strZnsIni);
    if (m_survey.fQmIni)
        CheckConfigurationFile(m_survey.strQmIni);
    const bool fData = IsTreePath(m_survey.strDataDir);
    if (!fData)
        m_report.Stop(L"old data directory",
                      std::wstring(m_survey.strDataDir) + L" is not an absolute path below a root",
                      L"correct Prefix in " + ZNQuoted(m_survey.strZnsIni), IDS_QM_NOT_FOUND);
    if (!m_survey.fLogPath)
        m_report.Stop(L"old log directory",
                      L"LogPath is missing in " + m_survey.strQmIni +
                          L", or names no absolute path below a root: \"" +
                          static_cast<const wchar_t*>(m_survey.strLogDir) + L"\"",
                      L"correct LogPath in the stanza Log", IDS_USAGE);
    return fData && m_survey.fLogPath;
}

void Look::CheckSamePlaces()
{
    const std::wstring strOldData = m_oldData.strDir, strOldLog = m_oldLog.strDir;
    bool fFound = false;
    const auto stop = [&](const std::wstring& strWhat, bool fRefused) {
        fFound = true;
        m_report.Stop(L"different places", strWhat, L"choose another destination",
                      fRefused ? IDS_SAME_DESTINATION : IDS_COPY_FAILED);
    };
    for (const Destination* p : {&m_data, &m_log})
    {
        for (const std::wstring& strOld : {strOldData, strOldLog})
            if (CZNSurvey::IsSamePlace(p->strDir, strOld))
                stop(p->strDir + L" is the old directory " + strOld,
                     p->strDir == (p == &m_data ? strOldData : strOldLog));
        const auto above = CZNIdentity::Of(p->strExisting);
        if (!p->Exists() && above &&
            (m_oldData.directories.Find(*above) != nullptr || m_oldLog.directories.Find(*above) != nullptr))
            stop(p->strDir + L" lies in an old tree", false);
    }
    const bool fSameText =
        CompareStringOrdinal(m_data.strDir.c_str(), -1, m_log.strDir.c_str(), -1, TRUE) == CSTR_EQUAL;
    if (fSameText ||
        (CZNSurvey::IsSamePlace(m_data.strExisting, m_log.strExisting) &&
         CompareStringOrdinal(m_data.Missing().c_str(), -1, m_log.Missing().c_str(), -1, TRUE) == CSTR_EQUAL))
        stop(L"both destinations are one directory", fSameText);
    if (!fFound)
        m_report.Ok(L"different places", L"the new directories are neither the old ones nor each other");
}

void Look::CheckDestination(const Destination& destination, const CZNInventory& old)
{
    const wchar_t* const pszSubject = destination.pszSubject;
    if (!CanBeDestination(destination.strDir.c_str()))
        return m_report.Stop(
            pszSubject,
            destination.strDir +
                L" is not absolute, too long, has a reserved name or a character that this code page lacks",
            L"choose another destination", IDS_CREATE_FAILED);
    if (destination.strExisting.empty())
        return m_report.Stop(pszSubject, L"the volume of " + destination.strDir + L" is not there",
                             L"bring the disk online on this node", IDS_CREATE_FAILED);
    const DWORD nAttributes = GetFileAttributesW(destination.strExisting.c_str());
    if ((nAttributes & FILE_ATTRIBUTE_DIRECTORY) == 0 ||
        _waccess(destination.strExisting.c_str(), ACCESS_READ_WRITE) != 0)
        return m_report.Stop(pszSubject, destination.strExisting + L" is a file or cannot be written to",
                             L"remove it, or choose another destination", IDS_CREATE_FAILED);
    uint32_t nRootLength = 0;
    const CW2A narrow(destination.strExisting.c_str());
    if (xcsVolumeSupportsSecurity(narrow, &nRootLength) == XCS_RC_NO_VOLUME_SECURITY)
        return m_report.Stop(pszSubject, L"the volume of " + destination.strDir + L" keeps no access lists",
                             L"choose a volume with NTFS or ReFS");
    m_report.Ok(pszSubject,
                destination.strDir +
                    (destination.Exists() ? L" exists" : L" will be created in " + destination.strExisting));

    const std::wstring strEntries = InheritableEntries(destination.strExisting);
    const bool fWide =
        std::ranges::any_of(std::initializer_list<const wchar_t*>{L";WD)", L";AU)", L";BU)", L";IU)"},
                            [&](const wchar_t* psz) { return strEntries.find(psz) != std::wstring::npos; });
    const std::wstring strFound =
        destination.strExisting + L" hands down " + (strEntries.empty() ? L"nothing" : strEntries);
    if (fWide)
        m_report.Note(L"handed-down rights",
                      strFound + L": every user gets in; remove that if it is not meant");
    else
        m_report.Ok(L"handed-down rights", strFound);
    if (destination.Exists() && !CZNSurvey::IsSamePlace(destination.strDir, old.strDir))
        CheckContent(destination, old);
}

// What lies in a destination stays or is overwritten; nobody asks.
void Look::CheckContent(const Destination& destination, const CZNInventory& old)
{
    CZNInventory there;
    there.List(destination.strDir, false);
    const auto foreign = std::ranges::find_if(
        there.entries, [&](const auto& entry) { return !old.entries.contains(entry.first); });
    if (there.entries.empty() && there.findings.empty())
        m_report.Ok(L"its content", destination.strDir + L" is empty");
    else if (foreign == there.entries.end() && there.findings.empty())
        m_report.Note(L"its content",
                      destination.strDir + L" holds " + ZNFormatSize(there.nFiles, there.nBytes) +
                          L", all of names that the old tree has too: they will be overwritten");
    else
        m_report.Stop(L"its content",
                      destination.strDir + L" holds what the old tree does not" +
                          (foreign == there.entries.end() ? L"" : L", such as " + foreign->first) +
                          L": it would be mixed with the copy",
                      L"look what it is; move it away, or choose another destination");
}

void Look::CheckFindings(const wchar_t* pszSubject, const std::vector<ZNFinding>& findings,
                         const std::wstring& strDo, uint32_t nRefusal)
{
    for (size_t i = 0; i < std::min(findings.size(), FIRST_ONES); ++i)
    {
        const std::string strText = ZNFindingText(findings[i].eFinding);
        m_report.Stop(pszSubject,
                      std::wstring(strText.begin(), strText.end()) + L": " + findings[i].strPath +
                          (findings[i].nError != 0 ? L", " + ZNFormatError(findings[i].nError) : L""),
                      strDo, nRefusal);
    }
    if (findings.size() > FIRST_ONES)
        m_report.Note(pszSubject, L"and " + ZNFormatCount(findings.size() - FIRST_ONES) + L" more");
}

void Look::CheckOldTree(const wchar_t* pszSubject, CZNInventory& tree, const Destination& destination)
{
    m_report.Ok(pszSubject, tree.strDir + L": " + ZNFormatSize(tree.nFiles, tree.nBytes) +
                                L"; longest new path " +
                                std::to_wstring(tree.LongestPathIn(destination.strDir)) + L" of " +
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
    if (const std::wstring strOther = m_survey.FindOther(tree.directories); !strOther.empty())
        m_report.Stop(L"foreign content",
                      L"a directory of the queue manager " + strOther + L" lies in " + tree.strDir +
                          L": it would be copied and then deleted",
                      L"move that queue manager first");
}

// The look that the command takes before it copies. It expects the destinations to exist.
void Look::CheckAsTheCommandDoes()
{
    const ZNPlaces places = {m_words.strQueueManager,    m_survey.strDataDir,
                             m_survey.strNewDataDir,     m_survey.strLogDir,
                             m_survey.strNewLogDir,      CString(m_survey.znsIni.szName),
                             m_survey.znsIni.Directory()};
    CZNFindings found(FIRST_ONES + 1);
    CZNMovedTrees(places).Look(found);
    const std::vector<ZNFinding>& findings = found.First();
    CheckFindings(L"the command's own look", findings, L"mend that, or choose another destination",
                  IDS_COPY_FAILED);
    if (findings.empty())
        m_report.Ok(L"the command's own look", L"finds nothing against copying and deleting both trees");
}

void Look::CheckSpace()
{
    constexpr uint64_t CLUSTER = 4096;
    for (Destination* p : {&m_data, &m_log})
    {
        const CZNInventory& tree = p == &m_data ? m_oldData : m_oldLog;
        for (const auto& entry : tree.entries)
            p->nNeeded += (entry.second.nSize + CLUSTER) / CLUSTER * CLUSTER;
        wchar_t szVolume[MAX_PATH] = {};
        if (!p->strExisting.empty() && GetVolumePathNameW(p->strExisting.c_str(), szVolume, MAX_PATH))
            p->strVolume = szVolume;
    }
    const bool fOne = m_data.strVolume == m_log.strVolume;
    for (const Destination* p : {&m_data, &m_log})
    {
        ULARGE_INTEGER nFree = {};
        if (p->strVolume.empty() || (fOne && p == &m_log) ||
            !GetDiskFreeSpaceExW(p->strExisting.c_str(), &nFree, nullptr, nullptr))
            continue;
        const uint64_t nNeeded = fOne ? m_data.nNeeded + m_log.nNeeded : p->nNeeded;
        const std::wstring strFound = p->strVolume + L" has " + ZNFormatCount(nFree.QuadPart) +
                                      L" bytes free; " + (fOne ? L"both trees need " : L"the tree needs ") +
                                      ZNFormatCount(nNeeded);
        if (nNeeded > nFree.QuadPart)
            m_report.Stop(L"free space", strFound, L"make room, or choose another volume", IDS_COPY_FAILED);
        else
            m_report.Ok(L"free space", strFound);
    }
}

void Look::WriteRecord()
{
    constexpr wchar_t SUBJECT[] = L"record";
    constexpr DWORD MAX_LENGTH = 32'768;
    std::wstring strPath(MAX_LENGTH, L'\0');
    strPath.resize(std::min(GetFullPathNameW(m_words.strRecord.c_str(), MAX_LENGTH, strPath.data(), nullptr),
                            MAX_LENGTH));
    const std::wstring strParent = strPath.substr(0, strPath.find_last_of(L'\\') + 1);
    DWORD nError = ERROR_SUCCESS;
    const auto parent = CZNIdentity::Of(strParent);
    const auto isIn = [&](const Destination& destination) {
        CZNInventory there;
        there.List(destination.strDir, false);
        return parent && there.directories.Find(*parent) != nullptr;
    };
    if (parent && (m_oldData.directories.Find(*parent) != nullptr ||
                   m_oldLog.directories.Find(*parent) != nullptr || isIn(m_data) || isIn(m_log)))
        return m_report.Stop(SUBJECT, strPath + L" would lie in a tree that moves", L"name a file elsewhere");

    const FileHandle file(
        CreateFileW(strPath.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr));
    nError = GetLastError();
    if (!file)
        return m_report.Stop(SUBJECT, strPath + L" cannot be made anew: " + ZNFormatError(nError),
                             L"name a file that does not exist yet, in a directory that does");
    CZNRecord record;
    record.strQueueManager = m_words.strQueueManager;
    record.strDirectory = m_survey.strDirectory;
    record.strOldData = m_oldData.strDir;
    record.strOldLog = m_oldLog.strDir;
    record.strNewData = m_data.strDir;
    record.strNewLog = m_log.strDir;
    record.strZnsIni = m_survey.strZnsIni;
    record.strQmIni = m_survey.strQmIni;
    ZNReadFile(record.strZnsIni, record.strZnsText);
    ZNReadFile(record.strQmIni, record.strQmText);
    record.fRunning = m_survey.fRunning;
    {
        CZNProgress progress;
        progress.Expect(m_oldData.nFiles + m_oldLog.nFiles, m_oldData.nBytes + m_oldLog.nBytes);
        m_oldData.Read(progress, true);
        m_oldLog.Read(progress, true);
    }
    record.data = m_oldData;
    record.log = m_oldLog;
    const std::string strText = record.ToText();
    DWORD nWritten = 0;
    const BOOL fWritten =
        WriteFile(file.Get(), strText.data(), static_cast<DWORD>(strText.size()), &nWritten, nullptr) &&
        FlushFileBuffers(file.Get());
    nError = GetLastError();
    if (!fWritten || nWritten != strText.size())
        return m_report.Stop(SUBJECT, strPath + L" could not be written whole: " + ZNFormatError(nError),
                             L"delete it and make room");
    if (m_survey.fRunning)
        m_report.Note(
            SUBJECT,
            strPath +
                L" was written while the queue manager runs: what it writes from now on differs from it");
    else
        m_report.Ok(SUBJECT, strPath + L" was written");
}

void Look::Take()
{
    CheckUser();
    if (!CheckQueueManager() || !CheckOldPlaces())
        return;
    m_oldData.List(std::wstring(m_survey.strDataDir), true);
    m_oldLog.List(std::wstring(m_survey.strLogDir), false);
    for (CZNInventory* const pTree : {&m_oldData, &m_oldLog})
        pTree->Probe(!m_survey.fRunning);
    CheckSamePlaces();
    CheckDestination(m_data, m_oldData);
    CheckDestination(m_log, m_oldLog);
    CheckOldTree(L"old data directory", m_oldData, m_data);
    CheckOldTree(L"old log directory", m_oldLog, m_log);
    if (m_survey.fRunning)
        m_report.Note(L"held files", L"not looked for while the queue manager runs and holds its own");
    CheckAsTheCommandDoes();
    CheckSpace();
    if (!m_words.strRecord.empty())
        WriteRecord();
}
} // namespace

void CZNCheckReport::Print(const wchar_t* pszVerdict, const wchar_t* pszSubject, const std::wstring& strFound)
{
    ZNPrintLine(std::wstring(pszVerdict) + L" " + pszSubject + L": " + strFound);
}

void CZNCheckReport::Note(const wchar_t* pszSubject, const std::wstring& strFound)
{
    ++m_nNotes;
    Print(L"note ", pszSubject, strFound);
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

int CZNCheckReport::Close() const
{
    if (m_nRefusal != 0)
        ZNPrintLine(L"tarvel itself would end with: " + ZNMessageText(m_nRefusal));
    ZNPrintLine(m_nStops == 0 ? L"Nothing stops the move. Notes: " + std::to_wstring(m_nNotes)
                              : L"Do not move yet. Stops: " + std::to_wstring(m_nStops) + L", notes: " +
                                    std::to_wstring(m_nNotes));
    return m_nStops == 0 ? 0 : 1;
}

void ZNCheckBefore(const ZNCheckWords& words, CZNCheckReport& report)
{
    Look(words, report).Take();
}
