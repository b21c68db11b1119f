// The configuration files as the library's operations see them: narrow values by stanza and attribute.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "inifile.h"

// A configuration file in memory. Its texts are in the thread's ANSI code page or, behind a byte-order mark,
// in UTF-8; values are given in the former.
class ConfigFile
{
  public:
    // zns.ini, or another file. Nothing when it cannot be read; the last error then tells why.
    static std::optional<ConfigFile> OpenProduct();
    static std::optional<ConfigFile> Open(const std::wstring& strPath);

    const IniFile& Ini() const { return *m_pIni; }

    // The selected stanza, or null.
    const IniFile::Stanza* Find(const IniSelector& selector) const;

    // Nothing when there is no such value, or one that no narrow text can hold. Value takes an attribute of
    // plain ASCII.
    std::optional<std::string> Read(const IniSelector& selector, std::string_view strAttribute) const;
    std::optional<std::string> Value(const IniFile::Stanza& stanza, std::string_view strAttribute) const;

    // As Value, with an empty text for a missing attribute.
    std::string ValueOrEmpty(const IniFile::Stanza& stanza, std::string_view strAttribute) const;

  private:
    explicit ConfigFile(std::string strText);

    std::unique_ptr<IniFile> m_pIni;
};

// "E:", "E:\..." or "\\server...", and none of the characters that no path can hold.
bool IsAbsolutePath(std::wstring_view strPath);

// The same for narrow text.
bool IsAbsolutePath(std::string_view strPath);

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
