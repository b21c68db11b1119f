// CString, the string of the class library.
#pragma once

#include <windows.h>

#include <memory>
#include <string>

// A string of UTF-16 code units with value semantics. Copies share one buffer until one of them is changed.
//
// Running out of memory throws std::bad_alloc; the string is then as it was before the call.
class CString
{
  public:
    CString() noexcept = default;

    // Zero-terminated text; null is taken as empty.
    CString(const wchar_t* psz);

    // The first nLength units of pch, with or without a terminator among them. nLength is not negative.
    CString(const wchar_t* pch, int nLength);

    // Narrow text in the thread's ANSI code page. Null, or text that cannot be converted, is taken as empty.
    explicit CString(const char* psz);

    // The zero-terminated units, never null. Valid until the string is changed or destroyed.
    operator const wchar_t*() const noexcept;

    int GetLength() const noexcept;
    bool IsEmpty() const noexcept { return GetLength() == 0; }

    // The first or last nCount units, or the whole string if it is shorter. A negative count is taken as 0.
    CString Left(int nCount) const;
    CString Right(int nCount) const;

    // Index of the first or the last ch, or -1.
    int Find(wchar_t ch) const noexcept;
    int ReverseFind(wchar_t ch) const noexcept;

    // Replaces every chOld by chNew and returns how many there were.
    int Replace(wchar_t chOld, wchar_t chNew);

    // Lower case by the rules of the system, without regard to the user's locale.
    CString& MakeLower();

    CString& operator+=(const wchar_t* psz);
    CString& operator+=(wchar_t ch);

    // Loads a string of the program's string table, in the language that the system chooses for the calling
    // thread. FALSE, and an empty string, if there is none or if the table is damaged.
    BOOL LoadString(UINT nID);

  private:
    const std::wstring& Text() const noexcept;
    std::wstring& Own();

    std::shared_ptr<std::wstring> m_pText; // null: empty
};

CString operator+(const CString& str1, const CString& str2);
CString operator+(const CString& str1, const wchar_t* psz2);

// Equal unit by unit, with case.
bool operator==(const CString& str1, const CString& str2) noexcept;
bool operator==(const CString& str1, const wchar_t* psz2) noexcept;
