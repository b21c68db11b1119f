// What the program prints: lines on standard output, progress on a console's standard error.
#pragma once

#include <windows.h>

#include <cstdint>
#include <string>

// Writes one line: in UTF-16 to a console, in UTF-8 to a file or pipe.
void ZNPrintLine(const std::wstring& strLine);

std::wstring ZNFormatCount(uint64_t nCount);                 // 12,345
std::wstring ZNFormatError(DWORD nError);                    // error 5: Access is denied.
std::wstring ZNFormatSize(uint64_t nFiles, uint64_t nBytes); // 12 files, 34,567 bytes

// One line of progress, rewritten twice a second and erased with the object; nothing where standard error is
// no console.
class CZNProgress
{
  public:
    CZNProgress();
    ~CZNProgress();
    CZNProgress(const CZNProgress&) = delete;
    CZNProgress& operator=(const CZNProgress&) = delete;

    // What all of it comes to, as far as it is known.
    void Expect(uint64_t nFiles, uint64_t nBytes);
    void AddFile() { ++m_nFiles; }
    void AddBytes(uint64_t nBytes);

  private:
    void Show(const std::wstring& strText);

    HANDLE m_hConsole = nullptr; // not owned; null: none
    uint64_t m_nFiles = 0, m_nBytes = 0, m_nAllFiles = 0, m_nAllBytes = 0;
    uint64_t m_nStarted, m_nShown;
    size_t m_nLength = 0;
};
