// Reads configuration files and converts their texts. Must not give a caller half a value.
#include "config.h"

#include "replacefile.h"
#include "workpath.h"

namespace
{
// A selector and attribute in the code page of a file; the texts live as long as this object.
class RecodedNames
{
  public:
    RecodedNames(const IniSelector& selector, std::string_view strAttribute, UINT nCodePage)
    {
        const std::string_view names[] = {selector.strStanza, selector.strKeyName, selector.strKeyValue,
                                          strAttribute};
        for (size_t i = 0; i < std::size(names); ++i)
        {
            std::optional<std::string> strName = Recode(names[i], CP_THREAD_ACP, nCodePage);
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

// A zero byte would end the value early for everybody who takes it as a C text.
bool IsCText(std::string_view strValue)
{
    return strValue.find('\0') == std::string_view::npos;
}
} // namespace

ConfigFile::ConfigFile(std::string strText) : m_pIni(std::make_unique<IniFile>(std::move(strText))) {}

DWORD ConfigFile::OpenProduct()
{
    const std::wstring strWorkPath = WorkPath();
    return strWorkPath.empty() ? DWORD{ERROR_BAD_PATHNAME} : Open(strWorkPath + L"\\zns.ini");
}

DWORD ConfigFile::Open(const std::wstring& strPath)
{
    std::string strText;
    const DWORD nError = ReadWholeFile(strPath, strText);
    if (nError == ERROR_SUCCESS)
        m_pIni = std::make_unique<IniFile>(std::move(strText));
    return nError;
}

UINT ConfigFile::CodePage() const
{
    return m_pIni->HasByteOrderMark() ? UINT{CP_UTF8} : UINT{CP_THREAD_ACP};
}

const IniFile::Stanza* ConfigFile::Find(const IniSelector& selector) const
{
    const RecodedNames names(selector, "", CodePage());
    return names ? m_pIni->Find(names.Selector()) : nullptr;
}

std::optional<std::wstring> ConfigFile::Value(const IniFile::Stanza& stanza,
                                              std::string_view strAttribute) const
{
    const auto strValue = m_pIni->Value(stanza, strAttribute);
    return strValue && IsCText(*strValue) ? Widen(*strValue, CodePage()) : std::nullopt;
}

std::wstring ConfigFile::ValueOrEmpty(const IniFile::Stanza& stanza, std::string_view strAttribute) const
{
    return Value(stanza, strAttribute).value_or(L"");
}

std::optional<std::string> ConfigFile::Read(const IniSelector& selector, std::string_view strAttribute) const
{
    const RecodedNames names(selector, strAttribute, CodePage());
    const auto strValue = names ? m_pIni->Read(names.Selector(), names.Attribute()) : std::nullopt;
    return strValue && IsCText(*strValue) ? Recode(*strValue, CodePage(), CP_THREAD_ACP) : std::nullopt;
}

std::optional<std::string> ConfigFile::Write(const IniSelector& selector, std::string_view strAttribute,
                                             std::string_view strValue) const
{
    const RecodedNames names(selector, strAttribute, CodePage());
    const auto strRecoded = Recode(strValue, CP_THREAD_ACP, CodePage());
    return names && strRecoded ? m_pIni->Write(names.Selector(), names.Attribute(), *strRecoded)
                               : std::nullopt;
}
