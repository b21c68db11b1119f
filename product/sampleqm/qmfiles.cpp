// Makes and verifies the sample queue manager's files. Must not call a queue manager whole of which one
// record is missing.
#include "qmfiles.h"

#include <shlobj.h>

#include <cstdlib>

#include "replacefile.h"
#include "text.h"

namespace
{
// A record is a text line "number text checksum", numbered from 1. A file only ever grows by whole records,
// so that a crash can cut off only the last line.
uint32_t Crc32(std::string_view content)
{
    uint32_t nCrc = 0xFFFFFFFF;
    for (const char ch : content)
    {
        nCrc ^= static_cast<unsigned char>(ch);
        for (int nBit = 0; nBit < 8; ++nBit)
            nCrc = (nCrc >> 1) ^ ((nCrc & 1) != 0 ? 0xEDB88320 : 0);
    }
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

std::string MakeRecord(uint32_t nNumber, std::string_view strText)
{
    const std::string strBody = Number(nNumber).append(strText);
    return strBody + Checksum(strBody) + "\n";
}

struct RecordScan
{
    std::vector<std::string_view> texts; // of the records, views of the content
    size_t nWhole = 0;                   // bytes of them: what lies behind is a half-written record or damage
    bool fDamaged = false;               // a whole line is not the record that belongs there
};

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

constexpr unsigned WRITTEN_FILES = 2;              // the first two: a running queue manager writes to them
constexpr std::string_view FILES_TEXT = "files: "; // before the number of all, in activity.rec's first record

// Makes the file, and the directories above it that are missing.
DWORD CreateFileWith(const std::wstring& strPath, DWORD nAttributes, const std::string& strContent)
{
    const std::wstring strDirectory = strPath.substr(0, strPath.find_last_of(L'\\'));
    const int nError = SHCreateDirectoryExW(nullptr, strDirectory.c_str(), nullptr);
    if (nError != ERROR_SUCCESS && nError != ERROR_ALREADY_EXISTS)
        return static_cast<DWORD>(nError);
    const FileHandle file(
        CreateFileW(strPath.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW, nAttributes, nullptr));
    if (!file)
        return GetLastError();
    DWORD nWritten = 0;
    if (!WriteFile(file.Get(), strContent.data(), static_cast<DWORD>(strContent.size()), &nWritten, nullptr))
        return GetLastError();
    return nWritten == strContent.size() ? ERROR_SUCCESS : ERROR_WRITE_FAULT;
}

// Directory of the n-th file below its root, with a backslash at its end: up to four levels, three
// directories each.
std::string DirectoryOf(unsigned n)
{
    static constexpr const char* LEVELS[] = {"queues", "depth", "page", "block"};
    constexpr unsigned FANOUT = 3;
    std::string strPath;
    for (unsigned nLevel = 0, nRest = n; nLevel < n % (std::size(LEVELS) + 1); ++nLevel, nRest /= FANOUT)
        strPath += Format("%s%u\\", LEVELS[nLevel], nRest % FANOUT);
    return strPath;
}

// A file of the sample queue manager, as it is created. All of it follows from the file's number.
struct SampleFile
{
    std::wstring strPath;
    DWORD nAttributes = FILE_ATTRIBUTE_NORMAL;
    unsigned nRecords = 1;
    std::string strContent;
};

SampleFile FileOf(const QueueManagerFiles& files, unsigned n)
{
    constexpr unsigned MAX_RECORDS = 20, EVERY_READ_ONLY = 10, EVERY_HIDDEN = 7;
    SampleFile file;
    if (n < WRITTEN_FILES)
    {
        file.strPath = n == 0 ? files.ActivityPath() : files.JournalPath();
        return file;
    }
    n -= WRITTEN_FILES;
    const std::string strName = DirectoryOf(n / 2) + Format("file%05u.rec", n);
    file.strPath = n % 2 == 0 ? files.strDataDirectory : files.strLogDirectory;
    file.strPath += L"\\" + WidenForDisplay(strName); // ASCII
    file.nAttributes = (n % EVERY_READ_ONLY == 0 ? FILE_ATTRIBUTE_READONLY : FILE_ATTRIBUTE_NORMAL) |
                       (n % EVERY_HIDDEN == 0 ? FILE_ATTRIBUTE_HIDDEN : FILE_ATTRIBUTE_NORMAL);
    file.nRecords += n % MAX_RECORDS;
    for (unsigned i = 1; i <= file.nRecords; ++i)
        file.strContent += MakeRecord(i, Format("message %u of %s", i, strName.c_str()));
    return file;
}

// What is wrong with the n-th file, or an empty text. Only a file that a running queue manager writes to may
// end in a half-written record.
std::wstring Examine(const QueueManagerFiles& files, unsigned n, Verdict& verdict)
{
    const SampleFile file = FileOf(files, n);
    std::string strContent;
    if (const DWORD nError = ReadWholeFile(file.strPath, strContent))
        return file.strPath + L": " + ErrorText(nError);
    const RecordScan scan = ScanRecords(strContent);
    const auto nFound = static_cast<unsigned>(scan.texts.size());
    verdict.nRecords += nFound;
    const bool fWhole =
        n < WRITTEN_FILES ? !scan.fDamaged && nFound >= file.nRecords : strContent == file.strContent;
    return fWhole ? L"" : file.strPath + L": missing or damaged behind record " + std::to_wstring(nFound);
}
} // namespace

DWORD CreateFiles(const QueueManagerFiles& files, unsigned nFiles, std::wstring& strFailed)
{
    for (const std::wstring& strDirectory : {files.strDataDirectory, files.strLogDirectory})
    {
        strFailed = strDirectory;
        if (const int nError = SHCreateDirectoryExW(nullptr, strDirectory.c_str(), nullptr))
            return static_cast<DWORD>(nError);
    }
    nFiles += WRITTEN_FILES;
    const std::string strFirst = MakeRecord(1, std::string(FILES_TEXT) + std::to_string(nFiles));
    for (unsigned n = 0; n < nFiles; ++n)
    {
        const SampleFile file = FileOf(files, n);
        strFailed = file.strPath;
        const std::string& strContent = n < WRITTEN_FILES ? strFirst : file.strContent;
        if (const DWORD nError = CreateFileWith(file.strPath, file.nAttributes, strContent))
            return nError;
    }
    strFailed = files.strDataDirectory + L"\\qm.ini";
    const auto strLogPath = Narrow(files.strLogDirectory);
    if (!strLogPath)
        return ERROR_NO_UNICODE_TRANSLATION;
    return CreateFileWith(strFailed, FILE_ATTRIBUTE_NORMAL,
                          "# Configuration of this queue manager.\r\nLog:\r\n   LogPath=" + *strLogPath +
                              "\\\r\n");
}

Verdict VerifyFiles(const QueueManagerFiles& files, const std::function<void(const std::wstring&)>& report)
{
    std::string strContent;
    const DWORD nError = ReadWholeFile(files.ActivityPath(), strContent);
    const RecordScan scan = ScanRecords(strContent);
    if (nError != ERROR_SUCCESS || scan.texts.empty() || !scan.texts[0].starts_with(FILES_TEXT))
    {
        report(files.ActivityPath() + L": cannot be read, or its first record is damaged");
        return {0, 0, 1};
    }
    Verdict verdict;
    verdict.nFiles =
        static_cast<unsigned>(std::strtoul(scan.texts[0].data() + FILES_TEXT.size(), nullptr, 10));
    for (unsigned n = 0; n < verdict.nFiles; ++n)
        if (const std::wstring strWrong = Examine(files, n, verdict); !strWrong.empty())
        {
            ++verdict.nDamaged;
            report(strWrong);
        }
    return verdict;
}

RecordAppender::RecordAppender(const std::wstring& strPath)
{
    std::string strContent;
    FileHandle file(CreateFileW(strPath.c_str(), GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ, nullptr,
                                OPEN_EXISTING, 0, nullptr));
    // Read by a second handle, which the first one lets in: nobody else writes from here on.
    if (!file || ReadWholeFile(strPath, strContent) != ERROR_SUCCESS)
        return;
    const RecordScan scan = ScanRecords(strContent);
    LARGE_INTEGER nEnd = {};
    nEnd.QuadPart = static_cast<LONGLONG>(scan.nWhole);
    if (scan.fDamaged || !SetFilePointerEx(file.Get(), nEnd, nullptr, FILE_BEGIN) ||
        !SetEndOfFile(file.Get()))
        return;
    m_nNext = static_cast<uint32_t>(scan.texts.size()) + 1;
    m_file = std::move(file);
}

bool RecordAppender::Append(std::string_view strText)
{
    const std::string strRecord = MakeRecord(m_nNext++, strText);
    DWORD nWritten = 0;
    return WriteFile(m_file.Get(), strRecord.data(), static_cast<DWORD>(strRecord.size()), &nWritten,
                     nullptr) &&
           nWritten == strRecord.size();
}
