// The record of a queue manager before its move: one text file, UTF-8, one fact a line.
//
// The first line has the version of the form; lines that begin with # are for people; the last line has the
// SHA-256 of everything before it. Each other line is a word, a tab and values with tabs between them. In a
// value %XXXX stands for a UTF-16 unit that does not print, that is half a pair, or that is '%' itself.
#pragma once

#include <optional>
#include <string>

#include "znminventory.h"

struct ZNRecord
{
    std::wstring strQueueManager;
    std::wstring aNew[ZN_TREES];   // the new directories
    CZNInventory aTrees[ZN_TREES]; // the old trees

    // strHead: lines for people.
    std::string ToText(const std::wstring& strHead) const;

    // Nothing for a text that is no whole record of this version. nLine is then the line that is none of a
    // record, or 0 if the first line is another one or the checksum does not fit.
    static std::optional<ZNRecord> FromText(const std::string& strText, size_t& nLine);
};

// Puts the closing line behind a record's text.
std::string ZNSealRecord(const std::string& strText);
