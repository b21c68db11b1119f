// Writes to the two standard streams. Must not lose a character of a file name.
#include "znmconsole.h"

#include "tovmsrid.h"
#include "tovxcs2.h"

ZNM_SOURCE_ID("cmd/mscs/tools/znmcheck/znmconsole");

namespace
{
bool IsConsole(HANDLE hStream)
{
    DWORD nMode = 0;
    return hStream != nullptr && GetConsoleMode(hStream, &nMode) != FALSE;
}
} // namespace

void ZNPrintLine(const std::wstring& strLine)
{
    const HANDLE hOut = GetStdHandle(STD_OUTPUT_HANDLE);
    const std::wstring strText = strLine + L"\r\n";
    const int nLength = static_cast<int>(strText.size());
    DWORD nWritten = 0; // a closed stream has nobody to be told
    if (IsConsole(hOut))
    {
        WriteConsoleW(hOut, strText.data(), static_cast<DWORD>(nLength), &nWritten, nullptr);
        return;
    }
    constexpr size_t LONGEST = 3; // bytes for a UTF-16 unit
    std::string strUtf8(strText.size() * LONGEST, '\0');
    const int nBytes = WideCharToMultiByte(CP_UTF8, 0, strText.data(), nLength, strUtf8.data(),
                                           static_cast<int>(strUtf8.size()), nullptr, nullptr);
    WriteFile(hOut, strUtf8.data(), static_cast<DWORD>(nBytes), &nWritten, nullptr);
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
    const DWORD nLanguage = MAKELANGID(LANG_ENGLISH, SUBLANG_ENGLISH_US);
    DWORD nLength = FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS |
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

CZNProgress::CZNProgress() : m_nStarted(GetTickCount64()), m_nShown(m_nStarted)
{
    if (const HANDLE hError = GetStdHandle(STD_ERROR_HANDLE); IsConsole(hError))
        m_hConsole = hError;
}

CZNProgress::~CZNProgress()
{
    if (m_nLength > 0)
        Show(L"");
}

void CZNProgress::Expect(uint64_t nFiles, uint64_t nBytes)
{
    m_nAllFiles += nFiles;
    m_nAllBytes += nBytes;
}

void CZNProgress::AddBytes(uint64_t nBytes)
{
    constexpr uint64_t INTERVAL = 500; // milliseconds
    m_nBytes += nBytes;
    const uint64_t nNow = GetTickCount64();
    if (m_hConsole == nullptr || nNow - m_nShown < INTERVAL)
        return;
    m_nShown = nNow;
    const double dDone =
        m_nAllBytes == 0 ? 1 : static_cast<double>(m_nBytes) / static_cast<double>(m_nAllBytes);
    const double dElapsed = static_cast<double>(nNow - m_nStarted) / 1000;
    const double dLeft = dDone <= 0 || dDone >= 1 ? 0 : dElapsed / dDone - dElapsed;
    Show(L"Reading: " + ZNFormatCount(m_nFiles) + L" of " + ZNFormatSize(m_nAllFiles, m_nAllBytes) + L", " +
         std::to_wstring(static_cast<int>(dDone * 100)) + L"%, " +
         ZNFormatCount(static_cast<uint64_t>(dLeft)) + L" s left");
}

void CZNProgress::Show(const std::wstring& strText)
{
    const size_t nLength = strText.size();
    std::wstring strLine = L"\r" + strText;
    if (nLength < m_nLength)
        strLine.append(m_nLength - nLength, L' ');
    strLine += nLength == 0 ? L"\r" : L"";
    m_nLength = nLength;
    DWORD nWritten = 0; // progress that cannot be shown stops nothing
    WriteConsoleW(m_hConsole, strLine.data(), static_cast<DWORD>(strLine.size()), &nWritten, nullptr);
}
