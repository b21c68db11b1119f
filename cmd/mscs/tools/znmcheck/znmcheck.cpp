// Entry of tarvelcheck: takes the words, brings the common services up, and looks. It changes nothing on disk
// but for the record that it is asked for, and starts and stops nothing.
#include <windows.h>
#include <tchar.h>

#include <algorithm>
#include <cwchar>
#include <iterator>

#include "afxwin.h"
#include "messages.h"
#include "tovmsrid.h"
#include "tovxcs2.h"
#include "znmapp.h"
#include "znmcheckafter.h"
#include "znmcheckbefore.h"
#include "znmconsole.h"
#include "znmpaths.h"
#include "znmwatch.h"

ZNM_SOURCE_ID("cmd/mscs/tools/znmcheck/znmcheck");

namespace
{
constexpr int32_t INITIALIZE_COMPONENT = 48;
constexpr int32_t INITIALIZE_OPTIONS = 7;
constexpr int32_t AUTHORIZATION_OPTIONS = 7;
constexpr int32_t TERMINATE_OPTIONS = 4;

constexpr const wchar_t* USAGE[] = {
    L"Usage: tarvelcheck before /m queuemanager /dd absolutedatapath /ld absolutelogpath [/record newfile]",
    L"       tarvelcheck after  /m queuemanager /dd absolutedatapath /ld absolutelogpath",
    L"                          {/record file | /od olddatadirectory /ol oldlogdirectory}",
    L"       tarvelcheck watch  /m queuemanager /dd absolutedatapath /ld absolutelogpath [/record file]"};

constexpr const wchar_t* VERBS[] = {L"before", L"after", L"watch"};

using Value = decltype(&ZNCheckWords::strVerb);
const struct
{
    const wchar_t* pszFlag;
    Value pValue;
    bool fRequired;
} FLAGS[] = {{L"m", &ZNCheckWords::strQueueManager, true}, {L"dd", &ZNCheckWords::strDataDest, true},
             {L"ld", &ZNCheckWords::strLogDest, true},     {L"record", &ZNCheckWords::strRecord, false},
             {L"od", &ZNCheckWords::strOldData, false},    {L"ol", &ZNCheckWords::strOldLog, false}};

bool IsFlag(const wchar_t* pszWord)
{
    return *pszWord == L'/' || *pszWord == L'-';
}

bool AsksForHelp(const wchar_t* pszWord)
{
    for (const wchar_t* const psz : {L"/?", L"-?", L"/h", L"-h", L"/help", L"-help", L"--help"})
        if (_wcsicmp(pszWord, psz) == 0)
            return true;
    return false;
}

// Returns what is wrong with the words; empty if nothing is.
std::wstring TakeWords(int nWords, wchar_t** ppszWords, ZNCheckWords& words)
{
    for (int i = 1; i < nWords; ++i)
    {
        const std::wstring strWord = ppszWords[i];
        const wchar_t* const pszNext = i + 1 < nWords ? ppszWords[i + 1] : L"";
        const auto* const pFlag = std::find_if(std::begin(FLAGS), std::end(FLAGS), [&](const auto& flag) {
            return IsFlag(ppszWords[i]) && _wcsicmp(flag.pszFlag, ppszWords[i] + 1) == 0;
        });
        const auto* const pVerb = std::find_if(std::begin(VERBS), std::end(VERBS), [&](const wchar_t* psz) {
            return _wcsicmp(psz, ppszWords[i]) == 0;
        });
        if (pVerb != std::end(VERBS) && words.strVerb.empty())
            words.strVerb = *pVerb;
        else if (pFlag == std::end(FLAGS) || !(words.*pFlag->pValue).empty())
            return L"This word is not expected: " + strWord;
        else if (*pszNext == L'\0' || IsFlag(pszNext))
            return L"A value is missing after " + strWord;
        else
        {
            words.*pFlag->pValue = pszNext;
            ++i;
        }
    }
    if (words.strVerb.empty())
        return L"One of the words before, after and watch is missing";
    for (const auto& flag : FLAGS)
        if (flag.fRequired && (words.*flag.pValue).empty())
            return std::wstring(L"This word is missing: /") + flag.pszFlag;
    theApp.SetDataDest(words.strDataDest.c_str()); // as the command stores them
    theApp.SetLogDest(words.strLogDest.c_str());
    words.strDataDest = theApp.m_strDataDest;
    words.strLogDest = theApp.m_strLogDest;
    for (std::wstring* const pstrOld : {&words.strOldData, &words.strOldLog})
    {
        if (pstrOld->empty())
            continue;
        if (words.strVerb != L"after" || !words.strRecord.empty())
            return L"The words /od and /ol are for after, without /record";
        if (!IsTreePath(pstrOld->c_str()))
            return L"This is no absolute path below a root: " + *pstrOld;
        *pstrOld = ResolvedPath(*pstrOld);
    }
    return {};
}

int Before(const ZNCheckWords& words, int32_t nLevel, int32_t nServices)
{
    CZNCheckReport report;
    report.Check(L"product level", nLevel == 0, L"" XCS_VERSION_LEVEL,
                 L"the installed product is not of level " XCS_VERSION_LEVEL,
                 L"use the programs and libraries of one installation");
    if (nLevel == 0 && nServices != 0)
        report.Stop(L"common services", L"they do not start",
                    L"see that this user can read zns.ini in the work path", IDS_COMMON_SERVICES_FAILED);
    if (nServices != 0)
        return report.Close();
    const int32_t nResult = xcsCheckAuthorization(AUTHORIZATION_OPTIONS);
    const bool fNoSecurity = nResult == XCS_RC_NO_VOLUME_SECURITY;
    report.Check(L"authority", nResult == 0, L"this user may administer the product",
                 fNoSecurity ? L"the work path's volume keeps no access lists; tarvel ends with status 119"
                             : L"this user may not administer the product; tarvel ends with status 71",
                 fNoSecurity ? L"use a work path on NTFS or ReFS"
                             : L"become a member of Administrators or of the group znm, and log on again");
    ZNCheckBefore(words, report);
    return report.Close();
}

int Look(const ZNCheckWords& words)
{
    const int32_t nLevel = xcsCheckConsistency(XCS_VERSION_LEVEL);
    XCS_CONNECTION connection = {};
    const int32_t nServices = nLevel != 0 ? nLevel
                                          : xcsInitializeEx(INITIALIZE_COMPONENT, INITIALIZE_OPTIONS, nullptr,
                                                            nullptr, nullptr, nullptr, nullptr, &connection);
    int nStatus = ZN_STATUS_CANNOT_TELL;
    if (words.strVerb == L"before")
        nStatus = Before(words, nLevel, nServices);
    else if (nServices != 0)
        ZNPrintLine(L"Cannot tell: the product's common services of level " XCS_VERSION_LEVEL
                    " do not start, or are not installed.");
    else
        nStatus = words.strVerb == L"after" ? ZNCheckAfter(words) : ZNWatch(words);
    if (nServices == 0)
        xcsTerminate(&connection, TERMINATE_OPTIONS);
    return nStatus;
}
} // namespace

extern "C" int _tmain(int argc, _TCHAR* argv[])
{
    SetErrorMode(GetErrorMode() | SEM_FAILCRITICALERRORS); // an empty drive is an error, not a box that waits
    SetDllDirectoryW(L"");
    ZNCheckWords words;
    const bool fHelp = std::any_of(argv + 1, argv + argc, AsksForHelp);
    const bool fInitialized = AfxWinInit(GetModuleHandleW(nullptr), nullptr, GetCommandLineW(), 0) != FALSE;
    const std::wstring strWrong = fHelp || !fInitialized ? L"" : TakeWords(argc, argv, words);
    if (!fHelp && fInitialized && strWrong.empty())
    {
        ZNPrintLine(ZNOutputHead());
        return Look(words);
    }
    if (!strWrong.empty())
        ZNPrintLine(strWrong);
    for (const wchar_t* const pszLine : USAGE)
        ZNPrintLine(pszLine);
    return fHelp ? ZN_STATUS_OK : ZN_STATUS_INVALID;
}
