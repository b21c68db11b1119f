// CString.
#include "afxstr.h"

#include <algorithm>
#include <cstring>
#include <cwchar>

#include "sourceid.h"

ZNM_SOURCE_ID("framework/afxstr");

CString::CString(const wchar_t* psz)
{
    if (psz != nullptr && *psz != L'\0')
        m_pText = std::make_shared<std::wstring>(psz);
}

CString::CString(const wchar_t* pch, int nLength)
{
    if (nLength > 0)
        m_pText = std::make_shared<std::wstring>(pch, static_cast<size_t>(nLength));
}

CString::CString(const char* psz)
{
    const int nSize = psz != nullptr ? MultiByteToWideChar(CP_THREAD_ACP, 0, psz, -1, nullptr, 0) : 0;
    if (nSize <= 1)
        return;
    std::wstring text(static_cast<size_t>(nSize), L'\0');
    if (MultiByteToWideChar(CP_THREAD_ACP, 0, psz, -1, text.data(), nSize) == 0)
        return;
    text.pop_back(); // the terminator is converted too
    m_pText = std::make_shared<std::wstring>(std::move(text));
}

const std::wstring& CString::Text() const noexcept
{
    static const std::wstring s_empty;
    return m_pText ? *m_pText : s_empty;
}

// A buffer that no other string shares.
std::wstring& CString::Own()
{
    if (!m_pText || m_pText.use_count() > 1)
        m_pText = std::make_shared<std::wstring>(Text());
    return *m_pText;
}

CString::operator const wchar_t*() const noexcept
{
    return Text().c_str();
}

int CString::GetLength() const noexcept
{
    return static_cast<int>(Text().size());
}

CString CString::Left(int nCount) const
{
    return CString(*this, std::clamp(nCount, 0, GetLength()));
}

CString CString::Right(int nCount) const
{
    const int nTaken = std::clamp(nCount, 0, GetLength());
    return CString(static_cast<const wchar_t*>(*this) + (GetLength() - nTaken), nTaken);
}

int CString::Find(wchar_t ch) const noexcept
{
    const size_t nIndex = Text().find(ch);
    return nIndex == std::wstring::npos ? -1 : static_cast<int>(nIndex);
}

int CString::ReverseFind(wchar_t ch) const noexcept
{
    const size_t nIndex = Text().rfind(ch);
    return nIndex == std::wstring::npos ? -1 : static_cast<int>(nIndex);
}

int CString::Replace(wchar_t chOld, wchar_t chNew)
{
    const auto nFound = static_cast<int>(std::count(Text().begin(), Text().end(), chOld));
    if (nFound > 0)
        std::replace(Own().begin(), Own().end(), chOld, chNew);
    return nFound;
}

CString& CString::MakeLower()
{
    if (!IsEmpty())
        CharLowerBuffW(Own().data(), static_cast<DWORD>(GetLength()));
    return *this;
}

CString& CString::operator+=(const wchar_t* psz)
{
    if (psz != nullptr && *psz != L'\0')
        Own() += std::wstring(psz); // copied first: psz can be this string's own text
    return *this;
}

CString& CString::operator+=(wchar_t ch)
{
    Own() += ch;
    return *this;
}

BOOL CString::LoadString(UINT nID)
{
    m_pText.reset();

    // A block holds sixteen strings, each a length and that many units without a terminator.
    const HMODULE hInstance = GetModuleHandleW(nullptr);
    const auto nBlock = static_cast<WORD>((nID >> 4) + 1);
    const HRSRC hResource =
        FindResourceW(hInstance, MAKEINTRESOURCEW(nBlock), MAKEINTRESOURCEW(6) /* RT_STRING */);
    const HGLOBAL hData = hResource != nullptr ? LoadResource(hInstance, hResource) : nullptr;
    const auto* pch = hData != nullptr ? static_cast<const wchar_t*>(LockResource(hData)) : nullptr;
    if (pch == nullptr)
        return FALSE;

    const wchar_t* const pchEnd = pch + SizeofResource(hInstance, hResource) / sizeof(wchar_t);
    for (UINT nSkip = nID & 15; nSkip > 0 && pch < pchEnd; --nSkip)
        pch += std::min<ptrdiff_t>(1 + *pch, pchEnd - pch);
    if (pch >= pchEnd || *pch == 0 || *pch >= pchEnd - pch)
        return FALSE;
    *this = CString(pch + 1, *pch);
    return TRUE;
}

CString operator+(const CString& str1, const CString& str2)
{
    return str1 + static_cast<const wchar_t*>(str2);
}

CString operator+(const CString& str1, const wchar_t* psz2)
{
    CString strResult(str1);
    return strResult += psz2;
}

bool operator==(const CString& str1, const CString& str2) noexcept
{
    return str1 == static_cast<const wchar_t*>(str2);
}

bool operator==(const CString& str1, const wchar_t* psz2) noexcept
{
    return std::wcscmp(str1, psz2) == 0;
}
