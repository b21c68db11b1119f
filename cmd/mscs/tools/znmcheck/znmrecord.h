// The record of a queue manager before its move: one text file, UTF-8, one fact a line.
//
// The first line has the version of the form; the last one the SHA-256 of everything before it. Each other
// line is a word, a tab and values with tabs between them. In a value, %XX stands for a byte that does not
// print and for '%' itself, %uXXXX for half a surrogate pair.
#pragma once

#include <optional>
#include <string>

#include "znminventory.h"

struct CZNRecord
{
    std::wstring strQueueManager, strDirectory;
    std::wstring strOldData, strOldLog, strNewData, strNewLog;
    std::wstring strZnsIni, strQmIni;  // their paths
    std::string strZnsText, strQmText; // and bytes
    bool fRunning = false;             // while the record was made
    CZNInventory data, log;

    std::string ToText() const;

    // Nothing for a text that is no whole record of this version; strError then says why.
    static std::optional<CZNRecord> FromText(const std::string& strText, std::string& strError);
};

// Puts the closing line behind a record's text.
std::string ZNSealRecord(const std::string& strText);
