// The look before a move.
#pragma once

#include <cstdint>
#include <string>

#include "znmsurvey.h"

// Prints one line a check, and counts what it printed.
class CZNCheckReport
{
  public:
    void Ok(const wchar_t* pszSubject, const std::wstring& strFound)
    {
        Print(L"ok   ", pszSubject, strFound);
    }
    void Note(const wchar_t* pszSubject, const std::wstring& strFound);

    // nRefusal: the message with which the command itself ends at this, or 0.
    void Stop(const wchar_t* pszSubject, const std::wstring& strFound, const std::wstring& strWhatToDo,
              uint32_t nRefusal = 0);

    // Prints what it comes to. 0 if nothing stops the move, 1 if something does.
    int Close() const;

  private:
    static void Print(const wchar_t* pszVerdict, const wchar_t* pszSubject, const std::wstring& strFound);

    int m_nNotes = 0, m_nStops = 0;
    uint32_t m_nRefusal = 0; // the one that the command comes to first
};

// Everything that needs the common services. Changes nothing on disk, but for the record that it writes.
void ZNCheckBefore(const ZNCheckWords& words, CZNCheckReport& report);
