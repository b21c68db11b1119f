// Where the configuration files are, reading them, changing them. Must not give a caller half a value, nor
// write one that would not read back.
#include "config.h"

#include <windows.h>

#include <cstring>

#include "qmdetails.h"
#include "replacefile.h"
#include "returncodes.h"
#include "text.h"
#include "tovxcs2.h"
#include "trace.h"
#include "workpath.h"

namespace
{
enum FileType : uint32_t
{
    FILE_TYPE_PRODUCT = 1,
    FILE_TYPE_QUEUE_MANAGER = 2,
};

constexpr std::string_view NO_PATH_CHARACTERS = "?*<>|\"";

UINT CodePageOf(const IniFile& ini)
{
    return ini.HasByteOrderMark() ? UINT{CP_UTF8} : UINT{CP_THREAD_ACP};
}

// A selector and attribute in the code page of a file; the texts live as long as this object.
class RecodedNames
{
  public:
    RecodedNames(const IniSelector& selector, std::string_view strAttribute, UINT nFrom, UINT nTo)
    {
        const std::string_view names[] = {selector.strStanza, selector.strKeyName, selector.strKeyValue,
                                          strAttribute};
        for (size_t i = 0; i < std::size(names); ++i)
        {
            std::optional<std::string> strName = Recode(names[i], nFrom, nTo);
            m_fValid = m_fValid && strName;
            m_astrNames[i] = std::move(strName).value_or("");
        }
    }
    explicit operator bool() const { return m_fValid; }
    IniSelector Selector() const { return {m_astrNames[0], m_astrNames[1], m_astrNames[2]}; }
    std::string_view Attribute() const { return m_astrNames[3]; }

  private:
    std::string m_astrNames[4];
    bool m_fValid = true;
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

template <class Char>
bool IsAbsolute(std::basic_string_view<Char> strPath)
{
    for (const char ch : NO_PATH_CHARACTERS)
        if (strPath.find(static_cast<Char>(ch)) != strPath.npos)
            return false;
    if (strPath.size() > 2 && strPath[0] == '\\' && strPath[1] == '\\')
        return strPath[2] != '\\';
    const auto nLetter = strPath.empty() ? 0 : strPath[0] | 0x20;
    return strPath.size() >= 2 && nLetter >= 'a' && nLetter <= 'z' && strPath[1] == ':' &&
           (strPath.size() == 2 || strPath[2] == '\\') &&
           strPath.find(static_cast<Char>(':'), 2) == strPath.npos;
}
} // namespace

bool IsAbsolutePath(std::wstring_view strPath)
{
    return IsAbsolute(strPath);
}

bool IsAbsolutePath(std::string_view strPath)
{
    return IsAbsolute(strPath);
}

ConfigFile::ConfigFile(std::string strText) : m_pIni(std::make_unique<IniFile>(std::move(strText))) {}

std::optional<ConfigFile> ConfigFile::Open(const std::wstring& strPath)
{
    std::string strText;
    if (const DWORD nError = ReadWholeFile(strPath, strText))
    {
        SetLastError(nError);
        return std::nullopt;
    }
    return ConfigFile(std::move(strText));
}

std::optional<ConfigFile> ConfigFile::OpenProduct()
{
    const std::wstring strWorkPath = WorkPath();
    return strWorkPath.empty() ? std::nullopt : Open(strWorkPath + L"\\zns.ini");
}

const IniFile::Stanza* ConfigFile::Find(const IniSelector& selector) const
{
    const RecodedNames names(selector, "", CP_THREAD_ACP, CodePageOf(*m_pIni));
    return names ? m_pIni->Find(names.Selector()) : nullptr;
}

std::optional<std::string> ConfigFile::Read(const IniSelector& selector, std::string_view strAttribute) const
{
    const RecodedNames names(selector, strAttribute, CP_THREAD_ACP, CodePageOf(*m_pIni));
    const IniFile::Stanza* const pStanza = names ? m_pIni->Find(names.Selector()) : nullptr;
    return pStanza != nullptr ? Value(*pStanza, names.Attribute()) : std::nullopt;
}

std::optional<std::string> ConfigFile::Value(const IniFile::Stanza& stanza,
                                             std::string_view strAttribute) const
{
    const auto strValue = m_pIni->Value(stanza, strAttribute);
    // A zero byte would end the value early for whoever takes it as a C text.
    if (!strValue || strValue->find('\0') != std::string_view::npos)
        return std::nullopt;
    return Recode(*strValue, CodePageOf(*m_pIni), CP_THREAD_ACP);
}

std::string ConfigFile::ValueOrEmpty(const IniFile::Stanza& stanza, std::string_view strAttribute) const
{
    return Value(stanza, strAttribute).value_or("");
}

int32_t xcsGetIniFilename(const char* pszQMName, char* pszFileName, uint32_t* pnFileType)
try
{
    OperationTrace trace("xcsGetIniFilename");
    trace.Parms("(pszQMName = %s)", pszQMName);
    if (pszFileName == nullptr || pnFileType == nullptr)
        return trace.Return(XCS_RC_PARAMETER);
    std::optional<std::string> strPath;
    if (pszQMName == nullptr)
    {
        const std::wstring strWorkPath = WorkPath();
        if (strWorkPath.empty())
            return trace.Return(XCS_RC_BAD_CONFIGURATION);
        strPath = Narrow(strWorkPath + L"\\zns.ini");
    }
    else
    {
        XCS_QM_DETAILS details = {};
        const int32_t nResult = FindQueueManager(pszQMName, details);
        const DWORD nError = GetLastError();
        if (nResult != XCS_RC_OK)
            return trace.Return(nResult, nError);
        strPath = std::string(details.szDataDirectory) + "\\qm.ini";
    }
    if (!strPath || strPath->size() >= XCS_PATH_SIZE)
        return trace.Return(XCS_RC_TRUNCATED);
    pszFileName[strPath->copy(pszFileName, XCS_PATH_SIZE - 1)] = '\0';
    *pnFileType = pszQMName == nullptr ? FILE_TYPE_PRODUCT : FILE_TYPE_QUEUE_MANAGER;
    trace.Parms("pszFileName = %s", pszFileName);
    return trace.Return(XCS_RC_OK);
}
catch (...)
{
    return XCS_RC_NO_MEMORY; // nothing else is raised
}

int32_t xcsIniUtilRead(const char* pszStanza, const char* pszKeyName, const char* pszKeyValue,
                       const char* pszAttribute, char* pszBuffer, uint32_t* pnLength, const char* pszFileName,
                       uint32_t)
try
{
    OperationTrace trace("xcsIniUtilRead");
    trace.Parms("(pszStanza = %s, pszKeyName = %s, pszKeyValue = %s, pszAttribute = %s, pszFileName = %s)",
                pszStanza, pszKeyName, pszKeyValue, pszAttribute, pszFileName);
    const auto selector = Selector(pszStanza, pszKeyName, pszKeyValue, pszAttribute);
    if (!selector || pszBuffer == nullptr || pnLength == nullptr || pszFileName == nullptr)
        return trace.Return(XCS_RC_PARAMETER);
    const auto strPath = Widen(pszFileName);
    const auto file = strPath ? ConfigFile::Open(*strPath) : std::nullopt;
    const DWORD nError = GetLastError();
    if (!file)
        return trace.Return(XCS_RC_SYSTEM, nError);
    const auto strValue = file->Read(*selector, pszAttribute);
    if (!strValue)
        return trace.Return(XCS_RC_NOT_FOUND);
    if (strValue->size() > *pnLength)
        return trace.Return(XCS_RC_TRUNCATED);
    std::memcpy(pszBuffer, strValue->c_str(), std::min<size_t>(strValue->size() + 1, *pnLength));
    *pnLength = static_cast<uint32_t>(strValue->size());
    trace.Parms("%s = '%s'", pszAttribute, strValue->c_str());
    return trace.Return(XCS_RC_OK);
}
catch (...)
{
    return XCS_RC_NO_MEMORY; // nothing else is raised
}

int32_t xcsIniUtilWrite(const char* pszStanza, const char* pszKeyName, const char* pszKeyValue,
                        const char* pszAttribute, const char* pszValue, const char* pszFileName, uint32_t)
try
{
    OperationTrace trace("xcsIniUtilWrite");
    trace.Parms("(pszStanza = %s, pszKeyName = %s, pszKeyValue = %s, pszAttribute = %s, pszValue = '%s', "
                "pszFileName = %s)",
                pszStanza, pszKeyName, pszKeyValue, pszAttribute, pszValue, pszFileName);
    const auto selector = Selector(pszStanza, pszKeyName, pszKeyValue, pszAttribute);
    if (!selector || pszValue == nullptr || pszFileName == nullptr)
        return trace.Return(XCS_RC_PARAMETER);
    const std::string_view strAttribute = pszAttribute;
    if ((strAttribute == "Prefix" || strAttribute == "LogPath") &&
        std::string_view(pszValue).find_first_of(NO_PATH_CHARACTERS) != std::string_view::npos)
        return trace.Return(XCS_RC_BAD_VALUE);
    const auto strPath = Widen(pszFileName);
    if (!strPath)
        return trace.Return(XCS_RC_PARAMETER);

    int32_t nRefused = XCS_RC_SYSTEM;
    const DWORD nError = ReplaceFileContent(*strPath, [&](std::string strText) -> std::optional<std::string> {
        const IniFile ini(std::move(strText));
        const UINT nCodePage = CodePageOf(ini);
        const RecodedNames names(*selector, strAttribute, CP_THREAD_ACP, nCodePage);
        const auto strValue = Recode(pszValue, CP_THREAD_ACP, nCodePage);
        const bool fFound = names && ini.Find(names.Selector()) != nullptr;
        nRefused = fFound ? XCS_RC_BAD_VALUE : XCS_RC_NOT_FOUND;
        return fFound && strValue ? ini.Write(names.Selector(), names.Attribute(), *strValue) : std::nullopt;
    });
    if (nError == ERROR_SUCCESS)
        return trace.Return(XCS_RC_OK);
    return trace.Return(nError == ERROR_INVALID_DATA ? nRefused : XCS_RC_SYSTEM, nError);
}
catch (...)
{
    return XCS_RC_NO_MEMORY; // nothing else is raised
}
