// The look before a move.
#pragma once

#include <cstdint>
#include <string>

#include "znmsurvey.h"

// One line a check, in the order of the checks, and what they come to.
class CZNCheckReport
{
  public:
    // fQuiet: only counts.
    explicit CZNCheckReport(bool fQuiet = false) : m_fQuiet(fQuiet) {}

    void Ok(const wchar_t* pszSubject, const std::wstring& strFound)
    {
        OkOrNote(pszSubject, true, strFound, {});
    }
    void Note(const wchar_t* pszSubject, const std::wstring& strFound)
    {
        OkOrNote(pszSubject, false, {}, strFound);
    }
    void OkOrNote(const wchar_t* pszSubject, bool fOk, const std::wstring& strOk,
                  const std::wstring& strNote);

    // nRefusal: the message with which the command itself ends at this, or 0.
    void Stop(const wchar_t* pszSubject, const std::wstring& strFound, const std::wstring& strWhatToDo,
              uint32_t nRefusal = 0);

    // Prints strOk if fOk, otherwise calls Stop. Returns fOk.
    bool Check(const wchar_t* pszSubject, bool fOk, const std::wstring& strOk, const std::wstring& strFound,
               const std::wstring& strWhatToDo, uint32_t nRefusal = 0);

    // Prints what it comes to. 0 if nothing stops the move, 1 if something does.
    int Close() const;
    int Stops() const { return m_nStops; }

  private:
    void Print(const wchar_t* pszVerdict, const wchar_t* pszSubject, const std::wstring& strFound) const;

    bool m_fQuiet;
    int m_nNotes = 0, m_nStops = 0;
    uint32_t m_nRefusal = 0; // the one that the command comes to first
};

// Everything that needs the common services. Changes nothing on disk, but for the record that it writes.
void ZNCheckBefore(const ZNCheckWords& words, CZNCheckReport& report);
