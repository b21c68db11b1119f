// Asks the product's library. Must not judge what it says.
#include "znmsurvey.h"

#include <algorithm>
#include <cstring>

#include "owner.h"
#include "tovmsmon.h"
#include "tovmsrid.h"
#include "tovxcs2.h"
#include "znminventory.h"
#include "znmmark.h"
#include "znmreadfile.h"

ZNM_SOURCE_ID("cmd/mscs/tools/znmcheck/znmsurvey");

CZNSurvey::CZNSurvey(const ZNCheckWords& words)
{
    CZNMQueueMgr queueMgr(words.strQueueManager);
    const CW2A narrowName(words.strQueueManager);
    fZnsIni = znsIni.Find(nullptr);
    strZnsIni = CString(znsIni.szName);
    fKnown = queueMgr.Refresh() == 1;
    if (!fKnown)
        return;
    fMoving = CZNMark::IsSet(ZNMoveMark(queueMgr.GetPlace()));
    fMultiInstance = queueMgr.IsMultiInstance() == 1;
    fRunning = queueMgr.IsRunning() == 1;
    fQmIni = qmIni.Find(narrowName);
    strQmIni = CString(qmIni.szName);
    const CString strName(queueMgr.GetDirectoryName());
    strDirectory = strName;
    strDataDir = CString(queueMgr.GetDataDirectory());
    fLogPath = fQmIni && ReadLogPath(qmIni, strLogDir);
    strNewDataDir = NewDataDirectory(words.strDataDest, strName);
    strNewLogDir = NewLogDirectory(words.strLogDest, strName);
    AddOthers(words.strQueueManager);
}

// The library lists no queue managers: every name that zns.ini has is asked for.
void CZNSurvey::AddOthers(const CString& strName)
{
    std::string strText;
    ZNReadFile(strZnsIni, strText);
    strText += '\n';
    for (size_t nBegin = 0, nEnd; (nEnd = strText.find('\n', nBegin)) != std::string::npos; nBegin = nEnd + 1)
    {
        const std::string strLine = strText.substr(nBegin, nEnd - nBegin);
        const size_t nName = strLine.find_first_not_of(" \t"), nEquals = strLine.find('=');
        if (nName == std::string::npos || nEquals == std::string::npos ||
            _strnicmp(strLine.c_str() + nName, "Name", 4) != 0)
            continue;
        const std::string strValue = strLine.substr(nEquals + 1);
        const size_t nFirst = std::min(strValue.find_first_not_of(" \t"), strValue.size());
        const CString strOther(
            strValue.substr(nFirst, strValue.find_last_not_of(" \t\r") + 1 - nFirst).c_str());
        CZNMQueueMgr other(strOther);
        if (strOther == strName || other.Refresh() != 1)
            continue;
        CString astrDir[] = {CString(other.GetDataDirectory()), CString()};
        ConfigurationFile otherQmIni;
        if (otherQmIni.Find(CW2A(strOther)))
            ReadLogPath(otherQmIni, astrDir[1]);
        for (const CString& strDir : astrDir)
            if (const auto identity = CZNIdentity::Of(static_cast<const wchar_t*>(strDir));
                !strDir.IsEmpty() && identity)
                m_others.Add(*identity, static_cast<const wchar_t*>(strOther));
    }
}

std::wstring CZNSurvey::FindOther(const CZNIdentityMap<bool>& directories) const
{
    for (const auto& [nKey, other] : m_others)
        if (directories.Find(other.first) != nullptr)
            return other.second;
    return {};
}

bool CZNSurvey::IsSamePlace(const std::wstring& strLeft, const std::wstring& strRight)
{
    return ZNIsSamePlace(strLeft.c_str(), strRight.c_str());
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
