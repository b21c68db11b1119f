// Reads the places of a queue manager through the product's library. Changes nothing.
#include "znmplaces.h"

#include <map>
#include <string>

#include "tovmsrid.h"
#include "znmidentity.h"
#include "znmpaths.h"
#include "znmreadfile.h"
#include "znmstanza.h"
#include "znmwalk.h"

ZNM_SOURCE_ID(ZNM_MIGRATE_TOOL("znmplaces"));

bool ConfigurationFile::Find(const char* pszQueueManager)
{
    return xcsGetIniFilename(pszQueueManager, szName, &nType) == 0;
}

CString ConfigurationFile::Directory() const
{
    CString strName(szName);
    strName.Replace(L'/', L'\\');
    const int nLength = strName.ReverseFind(L'\\') + 1;
    return nLength > 0 ? strName.Left(nLength) : CString(L".\\");
}

bool ReadLogPath(const ConfigurationFile& qmIni, CString& strLogPath)
{
    constexpr uint32_t MAX_LOG_PATH = 261;
    char szLogPath[MAX_LOG_PATH + 1] = {}; // a value of the full length comes without its terminator
    uint32_t nLength = MAX_LOG_PATH;
    const int32_t nResult =
        xcsIniUtilRead("Log", nullptr, nullptr, "LogPath", szLogPath, &nLength, qmIni.szName, qmIni.nType);
    if (nResult != 0 || nLength > MAX_LOG_PATH)
        return false;
    szLogPath[nLength] = '\0';
    strLogPath = WithoutTrailingBackslash(CString(szLogPath));
    return IsTreePath(strLogPath);
}

CString NewDataDirectory(const CString& strDataDest, const CString& strDirectory)
{
    return strDataDest + L"\\" + L"qmgrs" + L"\\" + strDirectory;
}

CString NewLogDirectory(const CString& strLogDest, const CString& strDirectory)
{
    return strLogDest + L"\\" + strDirectory;
}

std::vector<ZNOtherPlaces> ReadOtherPlaces(const CString& strConfiguration, const CString& strQueueManager)
{
    struct Stanza
    {
        CString strName, strPrefix, strDirectory;
    };
    std::string strText;
    ZNReadFile(static_cast<const wchar_t*>(strConfiguration), strText);
    std::map<size_t, Stanza> stanzas;
    for (const ZNStanzaLine& line : ZNReadStanzas(strText))
    {
        if (line.stanza != "QueueManager")
            continue;
        Stanza& stanza = stanzas[line.nStanza];
        const CString strValue(std::string(line.value).c_str());
        if (line.attribute == "Name")
            stanza.strName = strValue;
        else if (line.attribute == "Prefix")
            stanza.strPrefix = strValue;
        else if (line.attribute == "Directory")
            stanza.strDirectory = strValue;
    }
    std::vector<ZNOtherPlaces> others;
    for (const auto& [nStanza, stanza] : stanzas)
    {
        if (stanza.strName == strQueueManager || stanza.strPrefix.IsEmpty() || stanza.strDirectory.IsEmpty())
            continue;
        ZNOtherPlaces other;
        other.strName = stanza.strName;
        other.strDataDir = NewDataDirectory(stanza.strPrefix, stanza.strDirectory);
        ZNReadFile(static_cast<const wchar_t*>(other.strDataDir + L"\\qm.ini"), strText);
        other.strLogDir = CString(std::string(ZNFindValue(strText, "Log", "LogPath")).c_str());
        others.push_back(other);
    }
    return others;
}

bool ZNIsSamePlace(const CString& strLeft, const CString& strRight)
{
    const auto left = CZNIdentity::Of(static_cast<const wchar_t*>(strLeft)),
               right = CZNIdentity::Of(static_cast<const wchar_t*>(strRight));
    if (left && right)
        return left->IsSame(*right);
    return ZNIsSameName(ResolvedPath(std::wstring(strLeft)).c_str(),
                        ResolvedPath(std::wstring(strRight)).c_str());
}

CString WithoutTrailingBackslash(const CString& strPath)
{
    return strPath.Right(1) == L"\\" ? strPath.Left(strPath.GetLength() - 1) : strPath;
}

CString WithTrailingBackslash(const CString& strPath)
{
    return strPath.Right(1) == L"\\" ? strPath : strPath + L"\\";
}
