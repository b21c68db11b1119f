// A configuration file in memory. Its texts are in the thread's ANSI code page or, behind a byte-order mark,
// in UTF-8. Selectors, attributes and values that are written are given in the former.
#pragma once

#include <windows.h>

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "inifile.h"
#include "text.h"

class ConfigFile
{
  public:
    explicit ConfigFile(std::string strText = "");

    // Take the content of zns.ini, or of another file. 0, or the system's error code.
    DWORD OpenProduct();
    DWORD Open(const std::wstring& strPath);

    // The selected stanza, or null.
    const IniFile::Stanza* Find(const IniSelector& selector) const;

    // An attribute of plain ASCII. Nothing when there is no such attribute, or its bytes are no text.
    std::optional<std::wstring> Value(const IniFile::Stanza& stanza, std::string_view strAttribute) const;

    // As Value, with an empty text for nothing.
    std::wstring ValueOrEmpty(const IniFile::Stanza& stanza, std::string_view strAttribute) const;

    // Nothing when there is no such value, or one that no narrow text can hold.
    std::optional<std::string> Read(const IniSelector& selector, std::string_view strAttribute) const;

    // The text with the value changed, as IniFile::Write makes it. Nothing also when the file's code page has
    // not all of its characters.
    std::optional<std::string> Write(const IniSelector& selector, std::string_view strAttribute,
                                     std::string_view strValue) const;

  private:
    UINT CodePage() const;

    std::unique_ptr<IniFile> m_pIni;
};

// Copies a text into a record's field with its terminator. False when it does not fit: a cut name would be
// another one's.
template <size_t nSize>
bool CopyToField(char (&szField)[nSize], std::string_view text)
{
    if (text.size() >= nSize)
        return false;
    text.copy(szField, text.size());
    szField[text.size()] = '\0';
    return true;
}

// The same for a wide text. False also when no narrow text can hold it.
template <size_t nSize>
bool CopyToField(char (&szField)[nSize], std::wstring_view text)
{
    const std::optional<std::string> strNarrow = Narrow(text);
    return strNarrow && CopyToField(szField, *strNarrow);
}
