// The library's operations on configuration files. Must not write a value that would not read back.
#include <cstring>

#include "config.h"
#include "path.h"
#include "qmdetails.h"
#include "replacefile.h"
#include "trace.h"
#include "workpath.h"

namespace
{
enum FileType : uint32_t
{
    FILE_TYPE_PRODUCT = 1,
    FILE_TYPE_QUEUE_MANAGER = 2,
};

// What the interface's text arguments select; nothing when one of them is missing.
std::optional<IniSelector> Selector(const char* pszStanza, const char* pszKeyName, const char* pszKeyValue,
                                    const char* pszAttribute)
{
    if (pszStanza == nullptr || pszAttribute == nullptr ||
        (pszKeyName == nullptr) != (pszKeyValue == nullptr) || (pszKeyName != nullptr && *pszKeyName == '\0'))
        return std::nullopt;
    if (pszKeyName == nullptr)
        return IniSelector{pszStanza};
    return IniSelector{pszStanza, pszKeyName, pszKeyValue};
}

// Whether those who read the attribute would take the value.
bool CanBeRead(std::string_view strAttribute, std::string_view strValue)
{
    if (strAttribute != "Prefix" && strAttribute != "LogPath")
        return true;
    const auto strPath = Widen(strValue);
    return strPath && IsAbsolutePath(*strPath) && strValue.size() < XCS_PATH_SIZE;
}

// Whether the selected stanza is that of a queue manager that can be looked up.
bool IsUsable(const ConfigFile& file, const IniSelector& selector)
{
    const IniFile::Stanza* const pStanza = file.Find(selector);
    XCS_QM_DETAILS details = {};
    return pStanza != nullptr && pStanza->strName == "QueueManager" &&
           ReadQueueManagerDetails(file, *pStanza, details) == XCS_RC_OK;
}

// The changed text of a file. With nothing, nRefused is the reason.
std::optional<std::string> Change(std::string strText, const IniSelector& selector, const char* pszAttribute,
                                  const char* pszValue, int32_t& nRefused)
{
    const ConfigFile file(std::move(strText));
    nRefused = XCS_RC_NOT_FOUND;
    if (file.Find(selector) == nullptr)
        return std::nullopt;
    nRefused = XCS_RC_BAD_VALUE;
    auto strChanged = file.Write(selector, pszAttribute, pszValue);
    // A prefix may be good by itself and too long with the queue manager's directory behind it.
    if (strChanged && IsUsable(file, selector) && !IsUsable(ConfigFile(*strChanged), selector))
        return std::nullopt;
    return strChanged;
}
} // namespace

int32_t xcsGetIniFilename(const char* pszQMName, char* pszFileName, uint32_t* pnFileType)
{
    return Operation("xcsGetIniFilename", [&](const OperationTrace& trace) -> Outcome {
        trace.Parms("(pszQMName = %s)", pszQMName);
        if (pszFileName == nullptr || pnFileType == nullptr)
            return XCS_RC_PARAMETER;
        std::optional<std::string> strPath;
        if (pszQMName == nullptr)
        {
            const std::wstring strWorkPath = WorkPath();
            if (strWorkPath.empty())
                return XCS_RC_BAD_CONFIGURATION;
            strPath = Narrow(strWorkPath + L"\\zns.ini");
        }
        else
        {
            XCS_QM_DETAILS details = {};
            const Outcome outcome = LookUpQueueManager(pszQMName, details);
            if (outcome.nCode != XCS_RC_OK)
                return outcome;
            strPath = std::string(details.szDataDirectory) + "\\qm.ini";
        }
        if (!strPath || strPath->size() >= XCS_PATH_SIZE)
            return XCS_RC_TRUNCATED;
        pszFileName[strPath->copy(pszFileName, XCS_PATH_SIZE - 1)] = '\0';
        *pnFileType = pszQMName == nullptr ? FILE_TYPE_PRODUCT : FILE_TYPE_QUEUE_MANAGER;
        trace.Parms("pszFileName = %s", pszFileName);
        return XCS_RC_OK;
    });
}

int32_t xcsIniUtilRead(const char* pszStanza, const char* pszKeyName, const char* pszKeyValue,
                       const char* pszAttribute, char* pszBuffer, uint32_t* pnLength, const char* pszFileName,
                       uint32_t)
{
    return Operation("xcsIniUtilRead", [&](const OperationTrace& trace) -> Outcome {
        trace.Parms(
            "(pszStanza = %s, pszKeyName = %s, pszKeyValue = %s, pszAttribute = %s, pszFileName = %s)",
            pszStanza, pszKeyName, pszKeyValue, pszAttribute, pszFileName);
        const auto selector = Selector(pszStanza, pszKeyName, pszKeyValue, pszAttribute);
        const auto strPath = pszFileName != nullptr ? Widen(pszFileName) : std::nullopt;
        if (!selector || pszBuffer == nullptr || pnLength == nullptr || !strPath)
            return XCS_RC_PARAMETER;
        ConfigFile file;
        if (const DWORD nError = file.Open(*strPath))
            return {XCS_RC_SYSTEM, nError};
        const auto strValue = file.Read(*selector, pszAttribute);
        if (!strValue)
            return XCS_RC_NOT_FOUND;
        if (strValue->size() > *pnLength)
            return XCS_RC_TRUNCATED;
        std::memcpy(pszBuffer, strValue->c_str(), std::min<size_t>(strValue->size() + 1, *pnLength));
        *pnLength = static_cast<uint32_t>(strValue->size());
        trace.Parms("%s = '%s'", pszAttribute, strValue->c_str());
        return XCS_RC_OK;
    });
}

int32_t xcsIniUtilWrite(const char* pszStanza, const char* pszKeyName, const char* pszKeyValue,
                        const char* pszAttribute, const char* pszValue, const char* pszFileName, uint32_t)
{
    return Operation("xcsIniUtilWrite", [&](const OperationTrace& trace) -> Outcome {
        trace.Parms("(pszStanza = %s, pszKeyName = %s, pszKeyValue = %s, pszAttribute = %s, pszValue = '%s', "
                    "pszFileName = %s)",
                    pszStanza, pszKeyName, pszKeyValue, pszAttribute, pszValue, pszFileName);
        const auto selector = Selector(pszStanza, pszKeyName, pszKeyValue, pszAttribute);
        const auto strPath = pszFileName != nullptr ? Widen(pszFileName) : std::nullopt;
        if (!selector || pszValue == nullptr || !strPath)
            return XCS_RC_PARAMETER;
        if (!CanBeRead(pszAttribute, pszValue))
            return XCS_RC_BAD_VALUE;
        int32_t nRefused = XCS_RC_SYSTEM;
        const DWORD nError = ReplaceFileContent(*strPath, [&](std::string strText) {
            return Change(std::move(strText), *selector, pszAttribute, pszValue, nRefused);
        });
        if (nError == ERROR_SUCCESS)
            return XCS_RC_OK;
        return nError == ERROR_INVALID_DATA ? Outcome(nRefused) : Outcome(XCS_RC_SYSTEM, nError);
    });
}
