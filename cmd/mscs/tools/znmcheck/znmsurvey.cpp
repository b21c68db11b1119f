// Asks the product's library. Must not judge what it says.
#include "znmsurvey.h"

#include <algorithm>

#include "tovmsmon.h"
#include "tovmsrid.h"
#include "tovxcs2.h"
#include "znmmark.h"
#include "znmreadfile.h"
#include "znmstanza.h"

ZNM_SOURCE_ID("cmd/mscs/tools/znmcheck/znmsurvey");

namespace
{
std::wstring Wide(const CString& str)
{
    return static_cast<const wchar_t*>(str);
}
} // namespace

CZNSurvey::CZNSurvey(const ZNCheckWords& words)
{
    const CString strName(words.strQueueManager.c_str());
    CZNMQueueMgr queueMgr(strName);
    if (znsIni.Find(nullptr))
        strZnsIni = Wide(CString(znsIni.szName));
    fKnown = queueMgr.Refresh() == 1;
    if (!fKnown)
        return;
    aMarks[0] = ZNMoveMark(queueMgr.GetPlace());
    fMultiInstance = queueMgr.IsMultiInstance() == 1;
    fRunning = queueMgr.IsRunning() == 1;
    strDirectory = Wide(CString(queueMgr.GetDirectoryName()));
    aNow[ZN_DATA] = Wide(CString(queueMgr.GetDataDirectory()));
    CString strLogDir;
    if (qmIni.Find(CW2A(strName)))
    {
        strQmIni = Wide(CString(qmIni.szName));
        fLogPath = ReadLogPath(qmIni, strLogDir);
    }
    aNow[ZN_LOG] = Wide(strLogDir);
    aNew[ZN_DATA] = Wide(NewDataDirectory(words.strDataDest.c_str(), strDirectory.c_str()));
    aNew[ZN_LOG] = Wide(NewLogDirectory(words.strLogDest.c_str(), strDirectory.c_str()));
    if (const auto destination = CZNIdentity::Of(aNew[ZN_DATA]))
        aMarks[1] = ZNDestinationMark(*destination);
    fMoving = IsMoving();
    for (const ZNOtherPlaces& other : ReadOtherPlaces(CString(znsIni.szName), strName))
        for (const CString& strDir : {other.strDataDir, other.strLogDir})
            if (const auto identity = CZNIdentity::Of(Wide(strDir)); !strDir.IsEmpty() && identity)
                others.Add(*identity, Wide(other.strName));
}

bool CZNSurvey::IsMoving() const
{
    return std::ranges::any_of(
        aMarks, [](const std::wstring& strMark) { return !strMark.empty() && CZNMark::IsSet(strMark); });
}

std::wstring ZNLogPathIn(const std::wstring& strDataDir)
{
    std::string strText;
    ZNReadFile(strDataDir + L"\\qm.ini", strText);
    const CString strValue(std::string(ZNFindValue(strText, "Log", "LogPath")).c_str());
    return Wide(WithoutTrailingBackslash(strValue));
}
