// Queue managers and installations as the product's configuration describes them.
#pragma once

#include <windows.h>

#include <optional>
#include <string>
#include <string_view>

#include "inifile.h"
#include "operation.h"
#include "text.h"
#include "tovxcs2.h"

// Reads zns.ini. 0, or the system's error code.
DWORD ReadProductFile(std::string& strText);

// An attribute's value. Empty when there is none that can be used.
std::wstring WideValue(const IniFile& file, const IniFile::Stanza& stanza, std::string_view strAttribute);

// Copies a text into a record's field with its terminator. False when no narrow text can hold it or it does
// not fit: a cut name would name something else.
template <size_t nSize>
bool CopyToField(char (&szField)[nSize], std::wstring_view text)
{
    const std::optional<std::string> strNarrow = Narrow(text);
    if (!strNarrow || strNarrow->size() >= nSize)
        return false;
    szField[strNarrow->copy(szField, nSize - 1)] = '\0';
    return true;
}

// Fills the record of the queue manager of a stanza. Returns 0 or a return code; a stanza of which anything
// does not fit the record or could lead into a wrong directory is a failure: what the record names is copied
// and deleted.
int32_t ReadQueueManagerDetails(const IniFile& file, const IniFile::Stanza& stanza, XCS_QM_DETAILS& details);

// The same for the queue manager of that name in zns.ini.
Outcome LookUpQueueManager(const char* pszName, XCS_QM_DETAILS& details);
