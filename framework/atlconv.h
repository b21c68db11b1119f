// CW2A, the conversion class of the class library.
#pragma once

#include <windows.h>

#include <memory>

// Narrow form of a zero-terminated wide text in the thread's ANSI code page: CW2A(strName).
class CW2A
{
  public:
    // psz: the text, or null.
    explicit CW2A(const wchar_t* psz);

    // The narrow text; valid as long as this object. Null for null and if the conversion fails, for example
    // because the text needs more than two bytes a unit. A character that the code page lacks becomes its
    // default character.
    operator char*() const noexcept { return m_pszNarrow.get(); }

  private:
    std::unique_ptr<char[]> m_pszNarrow;
};
