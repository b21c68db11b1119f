// Writes to the two standard streams. Must not lose a character of a file name.
#include "znmconsole.h"

#include <algorithm>
#include <cmath>

#include "tovmsrid.h"
#include "tovxcs2.h"

ZNM_SOURCE_ID("cmd/mscs/tools/znmcheck/znmconsole");

namespace
{
bool IsConsoleHandle(HANDLE hStream)
{
    DWORD nMode = 0;
    return hStream != nullptr && GetConsoleMode(hStream, &nMode) != FALSE;
}

// "2024-05-31 12:00:00"
std::wstring TimeText(const SYSTEMTIME& time)
{
    constexpr size_t LENGTH = 32;
    wchar_t szText[LENGTH] = {};
    _snwprintf(szText, LENGTH - 1, L"%04u-%02u-%02u %02u:%02u:%02u", time.wYear, time.wMonth, time.wDay,
               time.wHour, time.wMinute, time.wSecond);
    return szText;
}
} // namespace

std::string ZNUtf8(const std::wstring& strText)
{
    constexpr size_t LONGEST = 3; // bytes for a UTF-16 unit
    std::string strUtf8(strText.size() * LONGEST, '\0');
    strUtf8.resize(static_cast<size_t>(
        WideCharToMultiByte(CP_UTF8, 0, strText.data(), static_cast<int>(strText.size()), strUtf8.data(),
                            static_cast<int>(strUtf8.size()), nullptr, nullptr)));
    return strUtf8;
}

void ZNPrintLine(const std::wstring& strLine)
{
    const HANDLE hOut = GetStdHandle(STD_OUTPUT_HANDLE);
    const std::wstring strText = strLine + L"\r\n";
    DWORD nWritten = 0; // a closed stream has nobody to be told
    const std::string strUtf8 = ZNUtf8(strText);
    if (IsConsoleHandle(hOut))
        WriteConsoleW(hOut, strText.data(), static_cast<DWORD>(strText.size()), &nWritten, nullptr);
    else
        WriteFile(hOut, strUtf8.data(), static_cast<DWORD>(strUtf8.size()), &nWritten, nullptr);
}

std::wstring ZNOutputHead()
{
    constexpr DWORD LONGEST = 257;
    wchar_t szMachine[LONGEST] = {}, szUser[LONGEST] = {}; // empty where the system does not say
    DWORD nMachine = LONGEST, nUser = LONGEST;
    GetComputerNameExW(ComputerNameDnsHostname, szMachine, &nMachine);
    GetUserNameW(szUser, &nUser);
    SYSTEMTIME utc = {}, local = {};
    GetSystemTime(&utc);
    SystemTimeToTzSpecificLocalTime(nullptr, &utc, &local);
    const wchar_t* pszWords = GetCommandLineW(); // the program's name ends at a blank or a quotation mark
    const wchar_t chEnd = *pszWords == L'"' ? L'"' : L' ';
    do
        ++pszWords;
    while (*pszWords != L'\0' && *pszWords != chEnd);
    return L"tarvelcheck " TARVEL_VERSION L", " + TimeText(utc) + L" UTC, " + TimeText(local) +
           L" local time, machine " + szMachine + L", user " + szUser + L"\r\nWords:" +
           (*pszWords == L'"' ? pszWords + 1 : pszWords);
}

std::wstring ZNFormatCount(uint64_t nCount)
{
    std::wstring strCount = std::to_wstring(nCount);
    for (size_t n = strCount.size(); n > 3; n -= 3)
        strCount.insert(n - 3, L",");
    return strCount;
}

std::wstring ZNFormatError(DWORD nError)
{
    constexpr DWORD MAX_TEXT = 512;
    wchar_t szText[MAX_TEXT] = {};
    DWORD nLength = 0;
    for (const DWORD nLanguage : {DWORD{MAKELANGID(LANG_ENGLISH, SUBLANG_ENGLISH_US)}, DWORD{0}}) // 0: any
        if (nLength == 0)
            nLength = FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS |
                                         FORMAT_MESSAGE_MAX_WIDTH_MASK,
                                     nullptr, nError, nLanguage, szText, MAX_TEXT, nullptr);
    while (nLength > 0 && (szText[nLength - 1] == L' ' || szText[nLength - 1] == L'.'))
        --nLength;
    return L"error " + std::to_wstring(nError) + (nLength > 0 ? L": " : L"") + std::wstring(szText, nLength);
}

std::wstring ZNFormatSize(uint64_t nFiles, uint64_t nBytes)
{
    return ZNFormatCount(nFiles) + (nFiles == 1 ? L" file, " : L" files, ") + ZNFormatCount(nBytes) +
           L" bytes";
}

std::wstring ZNFormatSeconds(double dSeconds)
{
    constexpr uint64_t MINUTE = 60, HOUR = 3600;
    const auto n = static_cast<uint64_t>(std::ceil(dSeconds));
    const auto text = [](uint64_t nValue, const wchar_t* pszUnit) { return ZNFormatCount(nValue) + pszUnit; };
    if (n < MINUTE)
        return text(n, L" s");
    return n < HOUR ? text(n / MINUTE, L" min ") + text(n % MINUTE, L" s")
                    : text(n / HOUR, L" h ") + text(n % HOUR / MINUTE, L" min");
}

void CZNProgress::Expect(uint64_t nFiles, uint64_t nBytes)
{
    m_nAllFiles += nFiles;
    m_nAllBytes += nBytes;
}

void CZNProgress::Add(uint64_t nFiles, uint64_t nBytes)
{
    m_nFiles += nFiles;
    m_nBytes += nBytes;
}

void CZNProgress::Set(uint64_t nFiles, uint64_t nBytes)
{
    m_nFiles = nFiles;
    m_nBytes = nBytes;
}

std::wstring CZNProgress::Text() const
{
    const double dDone =
        m_nAllBytes == 0 ? 1 : static_cast<double>(m_nBytes) / static_cast<double>(m_nAllBytes);
    const double dRate = static_cast<double>(m_nBytes - m_nFirstBytes) / std::max(Seconds(), 0.001);
    const uint64_t nLeft = m_nAllBytes - std::min(m_nBytes, m_nAllBytes);
    return ZNFormatCount(m_nFiles) + L" of " + ZNFormatCount(m_nAllFiles) + L" files, " +
           ZNFormatCount(m_nBytes) + L" of " + ZNFormatCount(m_nAllBytes) + L" bytes, " +
           std::to_wstring(static_cast<int>(std::min(dDone, 1.0) * 100)) + L"%" +
           (dRate < 1 ? L""
                      : L", " + ZNFormatCount(static_cast<uint64_t>(dRate)) + L" bytes a second, " +
                            ZNFormatSeconds(static_cast<double>(nLeft) / dRate) + L" left");
}

CZNStatusLine::CZNStatusLine(DWORD nStream)
{
    if (const HANDLE hStream = GetStdHandle(nStream); IsConsoleHandle(hStream))
        m_hConsole = hStream;
}

CZNStatusLine::~CZNStatusLine()
{
    if (m_nLength > 0)
        Show(L"");
}

bool CZNStatusLine::IsDue() const
{
    constexpr uint64_t INTERVAL = 500; // milliseconds
    return m_hConsole != nullptr && GetTickCount64() - m_nShown >= INTERVAL;
}

void CZNStatusLine::Show(const std::wstring& strText)
{
    if (m_hConsole == nullptr)
        return;
    // A line that is too long for the console would not be written over, but pushed up.
    CONSOLE_SCREEN_BUFFER_INFO console = {};
    const size_t nWidth = GetConsoleScreenBufferInfo(m_hConsole, &console) != FALSE && console.dwSize.X > 1
                              ? static_cast<size_t>(console.dwSize.X) - 1
                              : std::wstring::npos;
    std::wstring strLine = strText.substr(0, nWidth);
    const size_t nLength = strLine.size();
    strLine.append(std::max(m_nLength, nLength) - nLength, L' ').append(L"\r");
    m_nLength = nLength;
    m_nShown = GetTickCount64();
    DWORD nWritten = 0; // progress that cannot be shown stops nothing
    WriteConsoleW(m_hConsole, strLine.data(), static_cast<DWORD>(strLine.size()), &nWritten, nullptr);
}
