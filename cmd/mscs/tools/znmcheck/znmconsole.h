// What the program prints: lines on standard output, progress on a console.
#pragma once

#include <windows.h>

#include <cstdint>
#include <string>

std::string ZNUtf8(const std::wstring& strText);

// Writes one line: in UTF-16 to a console, in UTF-8 to a file or pipe.
void ZNPrintLine(const std::wstring& strLine);

// Two lines for who reads it later: program, version, time, machine and user; the words of the command line.
std::wstring ZNOutputHead();

std::wstring ZNFormatCount(uint64_t nCount);                 // 12,345
std::wstring ZNFormatError(DWORD nError);                    // error 5: Access is denied.
std::wstring ZNFormatSize(uint64_t nFiles, uint64_t nBytes); // 12 files, 34,567 bytes
std::wstring ZNFormatSeconds(double dSeconds);               // 59 s, 3 min 20 s, 2 h 5 min

// How far something is that takes long, and how long it will still take.
class CZNProgress
{
  public:
    CZNProgress() : m_nStarted(GetTickCount64()) {}

    // What all of it comes to, as far as it is known.
    void Expect(uint64_t nFiles, uint64_t nBytes);
    void Add(uint64_t nFiles, uint64_t nBytes);
    void Set(uint64_t nFiles, uint64_t nBytes);
    // What is done already counts as no part of the rate.
    void Begin(uint64_t nBytes) { m_nFirstBytes = nBytes; }
    uint64_t Bytes() const { return m_nBytes; }
    double Seconds() const { return static_cast<double>(GetTickCount64() - m_nStarted) / 1000; }

    // 3 of 12 files, 34,567 bytes, 25%, 1,234,567 bytes a second, 3 min 20 s left
    std::wstring Text() const;

  private:
    uint64_t m_nFiles = 0, m_nBytes = 0, m_nAllFiles = 0, m_nAllBytes = 0;
    uint64_t m_nStarted, m_nFirstBytes = 0;
};

// One line of a console that is written again and again, and erased with the object.
class CZNStatusLine
{
  public:
    // nStream: STD_OUTPUT_HANDLE or STD_ERROR_HANDLE.
    explicit CZNStatusLine(DWORD nStream);
    ~CZNStatusLine();
    CZNStatusLine(const CZNStatusLine&) = delete;
    CZNStatusLine& operator=(const CZNStatusLine&) = delete;

    bool IsConsole() const { return m_hConsole != nullptr; }
    // Whether the last text is half a second old; false where the stream is no console.
    bool IsDue() const;
    void Show(const std::wstring& strText);

  private:
    HANDLE m_hConsole = nullptr; // not owned; null: none
    uint64_t m_nShown = 0;
    size_t m_nLength = 0;
};
