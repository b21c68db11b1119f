// Makes and verifies the sample queue manager's files. Must not call a queue manager whole of which one
// record is missing.
#include "qmfiles.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "records.h"
#include "replacefile.h"
#include "text.h"

namespace
{
constexpr wchar_t MANIFEST[] = L"\\manifest.rec";
constexpr std::string_view DATA_ROOT = "data";
constexpr std::string_view LOG_ROOT = "log";
constexpr std::string_view MANIFEST_END = "end of manifest";
constexpr unsigned WRITTEN_FILES = 2;

std::wstring Plain(std::string_view text) // names of files and roots are ASCII
{
    return std::wstring(text.begin(), text.end());
}

DWORD CreateFileWith(const std::wstring& strPath, DWORD nAttributes, const std::string& strContent)
{
    const FileHandle file(
        CreateFileW(strPath.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW, nAttributes, nullptr));
    const DWORD nError = GetLastError();
    if (!file)
        return nError;
    DWORD nWritten = 0;
    if (!WriteFile(file.Get(), strContent.data(), static_cast<DWORD>(strContent.size()), &nWritten, nullptr))
        return GetLastError();
    return nWritten == strContent.size() ? ERROR_SUCCESS : ERROR_WRITE_FAULT;
}

// Makes the directory, and what is missing above it. ERROR_ALREADY_EXISTS when it is there.
DWORD CreateDirectories(const std::wstring& strPath)
{
    const BOOL fCreated = CreateDirectoryW(strPath.c_str(), nullptr);
    const DWORD nError = fCreated ? DWORD{ERROR_SUCCESS} : GetLastError();
    const size_t nParent = strPath.find_last_of(L'\\');
    if (nError != ERROR_PATH_NOT_FOUND || nParent == std::wstring::npos || nParent < 3)
        return nError;
    const DWORD nParentError = CreateDirectories(strPath.substr(0, nParent));
    if (nParentError != ERROR_SUCCESS && nParentError != ERROR_ALREADY_EXISTS)
        return nParentError;
    return CreateDirectoryW(strPath.c_str(), nullptr) ? ERROR_SUCCESS : GetLastError();
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

DWORD AttributesOf(unsigned n)
{
    constexpr unsigned EVERY_READ_ONLY = 10;
    constexpr unsigned EVERY_HIDDEN = 7;
    DWORD nAttributes = 0;
    if (n % EVERY_READ_ONLY == EVERY_READ_ONLY - 1)
        nAttributes |= FILE_ATTRIBUTE_READONLY;
    if (n % EVERY_HIDDEN == EVERY_HIDDEN - 1)
        nAttributes |= FILE_ATTRIBUTE_HIDDEN;
    return nAttributes != 0 ? nAttributes : DWORD{FILE_ATTRIBUTE_NORMAL};
}

// A manifest line: root, least number of records, path below the root.
struct ListedFile
{
    std::string strRoot;
    unsigned nRecords;
    std::string strPath;
};

std::string ToLine(const ListedFile& listed)
{
    return listed.strRoot + Format(" %u ", listed.nRecords) + listed.strPath;
}

std::optional<ListedFile> FromLine(std::string_view strLine)
{
    const size_t nFirst = strLine.find(' ');
    const size_t nSecond = nFirst != strLine.npos ? strLine.find(' ', nFirst + 1) : strLine.npos;
    if (nSecond == strLine.npos)
        return std::nullopt;
    const std::string strCount(strLine.substr(nFirst + 1, nSecond - nFirst - 1));
    return ListedFile{std::string(strLine.substr(0, nFirst)),
                      static_cast<unsigned>(std::strtoul(strCount.c_str(), nullptr, 10)),
                      std::string(strLine.substr(nSecond + 1))};
}

// The n-th file of a queue manager. The first two are those that it writes to.
ListedFile PlannedFile(unsigned n)
{
    constexpr unsigned MAX_RECORDS = 20;
    if (n < WRITTEN_FILES)
        return n == 0 ? ListedFile{std::string(DATA_ROOT), 1, "activity.rec"}
                      : ListedFile{std::string(LOG_ROOT), 1, "journal.rec"};
    n -= WRITTEN_FILES;
    return {std::string(n % 2 == 0 ? DATA_ROOT : LOG_ROOT), 1 + n % MAX_RECORDS,
            DirectoryOf(n / 2) + Format("file%05u.rec", n)};
}

std::wstring PathOf(const QueueManagerFiles& files, const ListedFile& listed)
{
    return (listed.strRoot == DATA_ROOT ? files.strDataDirectory : files.strLogDirectory) + L"\\" +
           Plain(listed.strPath);
}

DWORD CreateListedFile(const std::wstring& strPath, const ListedFile& listed, DWORD nAttributes)
{
    const DWORD nError = CreateDirectories(strPath.substr(0, strPath.find_last_of(L'\\')));
    if (nError != ERROR_SUCCESS && nError != ERROR_ALREADY_EXISTS)
        return nError;
    std::string strContent;
    for (uint32_t n = 1; n <= listed.nRecords; ++n)
        strContent += MakeRecord(n, Format("message %u of %s", n, listed.strPath.c_str()));
    return CreateFileWith(strPath, nAttributes, strContent);
}

// What is wrong with a listed file, or an empty text. Only the files that a running queue manager writes to
// may end in a half-written record.
std::wstring Examine(const QueueManagerFiles& files, const ListedFile& listed, Verdict& verdict)
{
    const std::wstring strPath = PathOf(files, listed);
    std::string strContent;
    if (const DWORD nError = ReadWholeFile(strPath, strContent))
        return ErrorText(nError);
    const RecordScan scan = ScanRecords(strContent);
    const bool fWritten = strPath == files.ActivityPath() || strPath == files.JournalPath();
    verdict.nRecords += static_cast<unsigned>(scan.texts.size());
    if (scan.fDamaged)
        return L"damaged behind record " + std::to_wstring(scan.texts.size());
    if (scan.nWhole < strContent.size() && !fWritten)
        return L"its last record is cut off";
    if (scan.texts.size() < listed.nRecords || (scan.texts.size() > listed.nRecords && !fWritten))
        return std::to_wstring(scan.texts.size()) + L" records instead of " +
               std::to_wstring(listed.nRecords);
    return L"";
}
} // namespace

DWORD CreateFiles(const QueueManagerFiles& files, unsigned nFiles, std::wstring& strFailed)
{
    for (const std::wstring& strDirectory : {files.strDataDirectory, files.strLogDirectory})
    {
        strFailed = strDirectory;
        if (const DWORD nError = CreateDirectories(strDirectory))
            return nError;
    }
    std::string strManifest;
    for (unsigned n = 0; n < WRITTEN_FILES + nFiles; ++n)
    {
        const ListedFile listed = PlannedFile(n);
        strFailed = PathOf(files, listed);
        const DWORD nAttributes = n < WRITTEN_FILES ? DWORD{FILE_ATTRIBUTE_NORMAL} : AttributesOf(n);
        if (const DWORD nError = CreateListedFile(strFailed, listed, nAttributes))
            return nError;
        strManifest += MakeRecord(n + 1, ToLine(listed));
    }
    strManifest += MakeRecord(WRITTEN_FILES + nFiles + 1, MANIFEST_END);
    strFailed = files.strDataDirectory + MANIFEST;
    if (const DWORD nError = CreateFileWith(strFailed, FILE_ATTRIBUTE_NORMAL, strManifest))
        return nError;

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
    Verdict verdict;
    const std::wstring strManifest = files.strDataDirectory + MANIFEST;
    std::string strContent;
    const DWORD nError = ReadWholeFile(strManifest, strContent);
    const RecordScan scan = ScanRecords(strContent);
    if (nError != ERROR_SUCCESS || scan.fDamaged || scan.nWhole < strContent.size() || scan.texts.empty() ||
        scan.texts.back() != MANIFEST_END)
    {
        report(strManifest + L": " +
               (nError != ERROR_SUCCESS ? ErrorText(nError) : L"the manifest is damaged"));
        return {0, 0, 1};
    }
    for (size_t n = 0; n + 1 < scan.texts.size(); ++n)
    {
        const auto listed = FromLine(scan.texts[n]);
        const std::wstring strWrong = listed ? Examine(files, *listed, verdict) : L"not a line of a manifest";
        ++verdict.nFiles;
        if (strWrong.empty())
            continue;
        ++verdict.nDamaged;
        report((listed ? PathOf(files, *listed) : strManifest) + L": " + strWrong);
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
    const std::string strRecord = MakeRecord(m_nNext, strText);
    DWORD nWritten = 0;
    if (!WriteFile(m_file.Get(), strRecord.data(), static_cast<DWORD>(strRecord.size()), &nWritten,
                   nullptr) ||
        nWritten != strRecord.size())
        return false;
    ++m_nNext;
    return true;
}
