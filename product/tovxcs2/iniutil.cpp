// The library's operations on configuration files. Must not write a value that would not read back.
#include "details.h"
#include "path.h"
#include "replacefile.h"
#include "workpath.h"

namespace
{
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

// Whether those who read the attribute would take its value: a prefix may be good by itself, and too long
// with the queue manager's directory behind it.
bool CanBeRead(const IniFile& file, const IniSelector& selector, std::string_view strAttribute)
{
    const IniFile::Stanza* const pStanza = file.Find(selector);
    XCS_QM_DETAILS details = {};
    if (pStanza == nullptr)
        return false;
    if (pStanza->strName == "QueueManager")
        return ReadQueueManagerDetails(file, *pStanza, details) == XCS_RC_OK;
    char szPath[XCS_PATH_SIZE];
    const std::wstring strValue = WideValue(file, *pStanza, strAttribute);
    return strAttribute != "LogPath" || (IsAbsolutePath(strValue) && CopyToField(szPath, strValue));
}

// The changed text of a file. With nothing, nRefused is the reason.
std::optional<std::string> Change(std::string strText, const IniSelector& selector, const char* pszAttribute,
                                  const char* pszValue, int32_t& nRefused)
{
    const IniFile file(std::move(strText));
    nRefused = file.Read(selector, pszAttribute) ? XCS_RC_BAD_VALUE : XCS_RC_NOT_FOUND;
    const auto strChanged = file.Write(selector, pszAttribute, pszValue);
    return strChanged && CanBeRead(IniFile(*strChanged), selector, pszAttribute) ? strChanged : std::nullopt;
}
} // namespace

int32_t xcsGetIniFilename(const char* pszQMName, char* pszFileName, uint32_t* pnFileType)
{
    return Operation("xcsGetIniFilename", [&](const OperationTrace& trace) -> Outcome {
        trace.Parms("(pszQMName = %s)", pszQMName);
        if (pszFileName == nullptr || pnFileType == nullptr)
            return XCS_RC_PARAMETER;
        const bool fProduct = pszQMName == nullptr;
        XCS_QM_DETAILS details = {};
        const Outcome outcome = fProduct ? XCS_RC_OK : LookUpQueueManager(pszQMName, details);
        if (outcome.nCode != XCS_RC_OK)
            return outcome;
        auto strPath = fProduct ? Narrow(WorkPath()) : std::string(details.szDataDirectory);
        if (!strPath || strPath->empty())
            return XCS_RC_BAD_CONFIGURATION;
        strPath->append(fProduct ? "\\zns.ini" : "\\qm.ini");
        if (strPath->size() >= XCS_PATH_SIZE)
            return XCS_RC_TRUNCATED;
        pszFileName[strPath->copy(pszFileName, XCS_PATH_SIZE - 1)] = '\0';
        *pnFileType = fProduct ? 1 : 2; // what the operations below need is in the file name
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
        std::string strText;
        if (const DWORD nError = ReadWholeFile(*strPath, strText))
            return {XCS_RC_SYSTEM, nError};
        const IniFile file(std::move(strText));
        const auto strValue = file.Read(*selector, pszAttribute);
        if (!strValue)
            return XCS_RC_NOT_FOUND;
        if (strValue->size() > *pnLength)
            return XCS_RC_TRUNCATED;
        strValue->copy(pszBuffer, strValue->size());
        if (strValue->size() < *pnLength)
            pszBuffer[strValue->size()] = '\0';
        *pnLength = static_cast<uint32_t>(strValue->size());
        trace.Parms("%s = '%s'", pszAttribute, std::string(*strValue).c_str());
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
        int32_t nRefused = XCS_RC_SYSTEM;
        const DWORD nError = ReplaceFileContent(*strPath, [&](std::string strText) {
            return Change(std::move(strText), *selector, pszAttribute, pszValue, nRefused);
        });
        if (nError == ERROR_SUCCESS)
            return XCS_RC_OK;
        return nError == ERROR_INVALID_DATA ? Outcome(nRefused) : Outcome(XCS_RC_SYSTEM, nError);
    });
}
