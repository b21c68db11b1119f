// Entry of tarvelcheck: takes the words, brings the common services up, and looks. It changes nothing on disk
// but for the record that it is asked for, and starts and stops nothing.
#include <windows.h>
#include <tchar.h>

#include <cwchar>
#include <map>

#include "afxwin.h"
#include "messages.h"
#include "tovmsrid.h"
#include "tovxcs2.h"
#include "znmapp.h"
#include "znmcheckafter.h"
#include "znmcheckbefore.h"
#include "znmconsole.h"
#include "znmpaths.h"

ZNM_SOURCE_ID("cmd/mscs/tools/znmcheck/znmcheck");

namespace
{
constexpr int STATUS_WRONG_WORDS = 5;

constexpr int32_t INITIALIZE_COMPONENT = 48;
constexpr int32_t INITIALIZE_OPTIONS = 7;
constexpr int32_t AUTHORIZATION_OPTIONS = 7;
constexpr int32_t TERMINATE_OPTIONS = 4;

bool TakeWords(int nWords, wchar_t** ppszWords, bool fAfter, ZNCheckWords& words)
{
    std::map<std::wstring, std::wstring> values;
    for (int i = 2; i + 1 < nWords; i += 2)
    {
        CString strFlag(ppszWords[i]);
        strFlag.MakeLower();
        if (!values.emplace(strFlag, ppszWords[i + 1]).second || *ppszWords[i + 1] == L'\0')
            return false;
    }
    theApp.SetDataDest(values[L"/dd"].c_str()); // as the command stores them
    theApp.SetLogDest(values[L"/ld"].c_str());
    words.strQueueManager = values[L"/m"].c_str();
    words.strDataDest = theApp.m_strDataDest;
    words.strLogDest = theApp.m_strLogDest;
    words.strRecord = values[L"/record"];
    words.strOldData = WithoutTrailingBackslash(values[L"/od"].c_str());
    words.strOldLog = WithoutTrailingBackslash(values[L"/ol"].c_str());
    for (const std::wstring& strOld : {words.strOldData, words.strOldLog})
        if (!strOld.empty() && !IsTreePath(strOld.c_str()))
            return false;
    constexpr size_t KNOWN = 6;
    const bool fOld = !words.strOldData.empty() || !words.strOldLog.empty();
    return nWords % 2 == 0 && values.size() == KNOWN && !words.strQueueManager.IsEmpty() &&
           !words.strDataDest.IsEmpty() && !words.strLogDest.IsEmpty() &&
           (!fOld || (fAfter && words.strRecord.empty()));
}

int Before(const ZNCheckWords& words, int32_t nLevel, int32_t nServices)
{
    CZNCheckReport report;
    if (nLevel != 0)
        report.Stop(L"product level", L"the installed product is not of level " XCS_VERSION_LEVEL,
                    L"use the programs and libraries of one installation");
    else
        report.Ok(L"product level", L"" XCS_VERSION_LEVEL);
    if (nLevel == 0 && nServices != 0)
        report.Stop(L"common services", L"they do not start",
                    L"see that this user can read zns.ini in the work path", IDS_COMMON_SERVICES_FAILED);
    if (nServices != 0)
        return report.Close();
    const int32_t nResult = xcsCheckAuthorization(AUTHORIZATION_OPTIONS);
    if (nResult == XCS_RC_NO_VOLUME_SECURITY)
        report.Stop(L"authority",
                    L"the work path's volume keeps no access lists; tarvel ends with status 119",
                    L"use a work path on NTFS or ReFS");
    else if (nResult != 0)
        report.Stop(L"authority", L"this user may not administer the product; tarvel ends with status 71",
                    L"become a member of Administrators or of the group znm, and log on again");
    else
        report.Ok(L"authority", L"this user may administer the product");
    ZNCheckBefore(words, report);
    return report.Close();
}
} // namespace

extern "C" int _tmain(int argc, _TCHAR* argv[])
{
    SetErrorMode(GetErrorMode() |
                 SEM_FAILCRITICALERRORS); // an empty drive is an error, not a box that waits for somebody
    SetDllDirectoryW(L"");
    const bool fBefore = argc > 1 && _wcsicmp(argv[1], L"before") == 0;
    const bool fAfter = argc > 1 && _wcsicmp(argv[1], L"after") == 0;
    ZNCheckWords words;
    if (!AfxWinInit(GetModuleHandleW(nullptr), nullptr, GetCommandLineW(), 0) || (!fBefore && !fAfter) ||
        !TakeWords(argc, argv, fAfter, words))
    {
        ZNPrintLine(L"Usage: tarvelcheck before /m queuemanager /dd absolutedatapath /ld absolutelogpath "
                    L"[/record file]");
        ZNPrintLine(L"       tarvelcheck after  /m queuemanager /dd absolutedatapath /ld absolutelogpath "
                    L"[/record file | "
                    L"/od olddatadirectory /ol oldlogdirectory]");
        return STATUS_WRONG_WORDS;
    }

    const int32_t nLevel = xcsCheckConsistency(XCS_VERSION_LEVEL);
    XCS_CONNECTION connection = {};
    const int32_t nServices = nLevel != 0 ? nLevel
                                          : xcsInitializeEx(INITIALIZE_COMPONENT, INITIALIZE_OPTIONS, nullptr,
                                                            nullptr, nullptr, nullptr, nullptr, &connection);
    int nStatus = 0;
    if (fBefore)
        nStatus = Before(words, nLevel, nServices);
    else if (nServices == 0)
        nStatus = ZNCheckAfter(words);
    else
    {
        ZNPrintLine(L"Cannot tell: the product's common services of level " XCS_VERSION_LEVEL
                    " do not start, or are not installed.");
        nStatus = ZN_CANNOT_TELL;
    }
    if (nServices == 0)
        xcsTerminate(&connection, TERMINATE_OPTIONS);
    return nStatus;
}
