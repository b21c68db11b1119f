// CString, the reference-counted UTF-16 string of the class-library subset, and the conversions between it
// and narrow text.
#pragma once

#include <windows.h>

#include <memory>
#include <string>

// A string of UTF-16 code units with value semantics. Copies share one buffer until one of them is changed.
//
// Running out of memory raises std::bad_alloc, an impossible length std::length_error; the string is then as
// it was before the call.
class CString
{
  public:
    CString() noexcept = default;

    // Zero-terminated text; null is taken as empty.
    CString(const wchar_t* psz);

    // The first nLength units of pch, whether or not there is a terminator among them.
    CString(const wchar_t* pch, size_t nLength);

    // Narrow text in the thread's ANSI code page; null, or text that cannot be converted, is taken as empty.
    explicit CString(const char* psz);

    // The zero-terminated units; valid until the string is changed or destroyed. Never null.
    operator const wchar_t*() const noexcept;

    int GetLength() const noexcept;
    bool IsEmpty() const noexcept { return GetLength() == 0; }

    // The last unit, or NUL of an empty string.
    wchar_t GetLast() const noexcept;

    // The first or last nCount units, or the whole string if it is shorter. A negative count is taken as 0.
    CString Left(int nCount) const;
    CString Right(int nCount) const;

    // Index of the first ch, or -1.
    int Find(wchar_t ch) const noexcept;

    // Index of the last ch, or -1.
    int ReverseFind(wchar_t ch) const noexcept;

    // Replaces every chOld by chNew.
    void Replace(wchar_t chOld, wchar_t chNew);

    // Lower case by the rules of the system (CharLowerW), without regard to the user's locale.
    void MakeLower();

    CString& operator+=(const wchar_t* psz);
    CString& operator+=(wchar_t ch);

    // Loads the string of that identifier in the language of the calling thread, by the system's own order of
    // fallback. False, and an empty string, if there is none or if it is damaged.
    bool LoadString(HINSTANCE hInstance, UINT nID);

  private:
    const std::wstring& Text() const noexcept;
    std::wstring& Own();

    std::shared_ptr<std::wstring> m_pText; // null: empty
};

CString operator+(const CString& strLeft, const CString& strRight);
CString operator+(const CString& strLeft, const wchar_t* pszRight);

// Equal unit by unit, with case.
bool operator==(const CString& strLeft, const CString& strRight) noexcept;
bool operator==(const CString& strLeft, const wchar_t* pszRight) noexcept;

// Narrow form of a zero-terminated wide text, for the length of one call: CW2A(strName). A null pointer if
// the conversion fails, as it does for a text that needs more than two bytes a unit; characters that the code
// page lacks become its default character.
class CW2A
{
  public:
    explicit CW2A(const wchar_t* psz, UINT nCodePage = CP_THREAD_ACP);
    operator const char*() const noexcept { return m_pszNarrow.get(); }

  private:
    std::unique_ptr<char[]> m_pszNarrow;
};
