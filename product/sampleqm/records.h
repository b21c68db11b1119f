// Record files: text lines "number text checksum", numbered from 1. A file only ever grows by whole records,
// so that what a crash cuts off is the last line at most.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

// A record with its line end. strText has no line end in it.
std::string MakeRecord(uint32_t nNumber, std::string_view strText);

struct RecordScan
{
    std::vector<std::string_view> texts; // of the records, views of the content
    size_t nWhole = 0;                   // bytes of them: what lies behind is a half-written record or damage
    bool fDamaged = false;               // a whole line is not the record that belongs there
};
RecordScan ScanRecords(std::string_view content);
