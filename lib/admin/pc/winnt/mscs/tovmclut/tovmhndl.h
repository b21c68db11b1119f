// Owners of what Windows and the product's library hand out, one type for each kind of "nothing". No function
// gives such a thing back by hand.
#pragma once

#include "afxwin.h"

// A search handle, whose nothing is INVALID_HANDLE_VALUE. Closing it keeps the thread's last error, so that
// the error of what happened during the search survives.
class CZNMFindHandle
{
  public:
    explicit CZNMFindHandle(HANDLE hFind) noexcept : m_hFind(hFind) {}
    ~CZNMFindHandle() { Close(); }
    CZNMFindHandle(const CZNMFindHandle&) = delete;
    CZNMFindHandle& operator=(const CZNMFindHandle&) = delete;

    bool IsOpen() const noexcept { return m_hFind != INVALID_HANDLE_VALUE; }
    HANDLE Get() const noexcept { return m_hFind; }

    // Closes now; a second call does nothing.
    void Close() noexcept
    {
        if (!IsOpen())
            return;
        const DWORD nError = GetLastError();
        FindClose(m_hFind); // nothing can be done about a failure
        m_hFind = INVALID_HANDLE_VALUE;
        SetLastError(nError);
    }

  private:
    HANDLE m_hFind;
};

// A file handle, whose nothing is INVALID_HANDLE_VALUE too.
class CZNMFileHandle
{
  public:
    explicit CZNMFileHandle(HANDLE hFile) noexcept : m_hFile(hFile) {}
    ~CZNMFileHandle()
    {
        if (IsOpen())
            CloseHandle(m_hFile); // nothing can be done about a failure
    }
    CZNMFileHandle(const CZNMFileHandle&) = delete;
    CZNMFileHandle& operator=(const CZNMFileHandle&) = delete;

    bool IsOpen() const noexcept { return m_hFile != INVALID_HANDLE_VALUE; }
    HANDLE Get() const noexcept { return m_hFile; }

  private:
    HANDLE m_hFile;
};
