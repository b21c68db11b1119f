// CW2A.
#include "atlconv.h"

#include <cwchar>

#include "sourceid.h"

ZNM_SOURCE_ID("framework/atlconv");

CW2A::CW2A(const wchar_t* psz)
{
    if (psz == nullptr)
        return;
    const size_t nSize = (std::wcslen(psz) + 1) * 2;
    m_pszNarrow = std::make_unique<char[]>(nSize);
    if (WideCharToMultiByte(CP_THREAD_ACP, 0, psz, -1, m_pszNarrow.get(), static_cast<int>(nSize), nullptr,
                            nullptr) == 0)
        m_pszNarrow.reset();
}
