// Makes and checks records. Must find every changed byte, and every record that is missing before the last.
#include "records.h"

#include <array>

#include "text.h"

namespace
{
constexpr std::array<uint32_t, 256> MakeCrcTable()
{
    std::array<uint32_t, 256> table = {};
    for (uint32_t n = 0; n < table.size(); ++n)
    {
        table[n] = n;
        for (int nBit = 0; nBit < 8; ++nBit)
            table[n] = (table[n] >> 1) ^ ((table[n] & 1) != 0 ? 0xEDB88320 : 0);
    }
    return table;
}

constexpr auto CRC_TABLE = MakeCrcTable();

uint32_t Crc32(std::string_view content)
{
    uint32_t nCrc = 0xFFFFFFFF;
    for (const char ch : content)
        nCrc = (nCrc >> 8) ^ CRC_TABLE[(nCrc ^ static_cast<unsigned char>(ch)) & 0xFF];
    return ~nCrc;
}

std::string Number(uint32_t nNumber)
{
    return Format("%08u ", nNumber);
}

std::string Checksum(std::string_view content)
{
    return Format(" %08X", Crc32(content));
}
} // namespace

std::string MakeRecord(uint32_t nNumber, std::string_view strText)
{
    const std::string strBody = Number(nNumber).append(strText);
    return strBody + Checksum(strBody) + "\n";
}

RecordScan ScanRecords(std::string_view content)
{
    RecordScan scan;
    for (size_t nEnd; (nEnd = content.find('\n', scan.nWhole)) != content.npos; scan.nWhole = nEnd + 1)
    {
        const std::string_view strLine = content.substr(scan.nWhole, nEnd - scan.nWhole);
        const std::string strNumber = Number(static_cast<uint32_t>(scan.texts.size() + 1));
        const size_t nChecksum = Checksum("").size();
        scan.fDamaged = strLine.size() < strNumber.size() + nChecksum || !strLine.starts_with(strNumber) ||
                        strLine.substr(strLine.size() - nChecksum) !=
                            Checksum(strLine.substr(0, strLine.size() - nChecksum));
        if (scan.fDamaged)
            return scan;
        scan.texts.push_back(strLine.substr(strNumber.size(), strLine.size() - strNumber.size() - nChecksum));
    }
    return scan;
}
