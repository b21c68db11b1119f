// CString and its conversions. Everything but LoadString is plain text work without system state.
#include "afxstr.h"

#include <algorithm>
#include <cstring>
#include <cwchar>

CString::CString(const wchar_t* psz) : CString(psz, psz != nullptr ? std::wcslen(psz) : 0) {}

CString::CString(const wchar_t* pch, size_t nLength)
{
    if (nLength > 0)
        m_pText = std::make_shared<std::wstring>(pch, nLength);
}

CString::CString(const char* psz)
{
    const int nSize = psz != nullptr ? MultiByteToWideChar(CP_THREAD_ACP, 0, psz, -1, nullptr, 0) : 0;
    if (nSize <= 1)
        return;
    std::wstring text(static_cast<size_t>(nSize), L'\0');
    if (MultiByteToWideChar(CP_THREAD_ACP, 0, psz, -1, text.data(), nSize) == 0)
        return;
    text.pop_back(); // the terminator, which was converted too
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

wchar_t CString::GetLast() const noexcept
{
    return Text().empty() ? L'\0' : Text().back();
}

CString CString::Left(int nCount) const
{
    return CString(*this, static_cast<size_t>(std::clamp(nCount, 0, GetLength())));
}

CString CString::Right(int nCount) const
{
    const int nTaken = std::clamp(nCount, 0, GetLength());
    return CString(static_cast<const wchar_t*>(*this) + (GetLength() - nTaken), static_cast<size_t>(nTaken));
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

void CString::Replace(wchar_t chOld, wchar_t chNew)
{
    if (Find(chOld) >= 0)
        std::replace(Own().begin(), Own().end(), chOld, chNew);
}

void CString::MakeLower()
{
    if (!IsEmpty())
        CharLowerBuffW(Own().data(), static_cast<DWORD>(GetLength()));
}

CString& CString::operator+=(const wchar_t* psz)
{
    if (psz != nullptr && *psz != L'\0')
        Own() += std::wstring(psz); // a copy first: psz may be this string's own text
    return *this;
}

CString& CString::operator+=(wchar_t ch)
{
    Own() += ch;
    return *this;
}

bool CString::LoadString(HINSTANCE hInstance, UINT nID)
{
    m_pText.reset();

    // Strings are stored sixteen to a block, each a length and that many units without a terminator.
    const auto nBlock = static_cast<WORD>((nID >> 4) + 1);
    const HRSRC hResource =
        FindResourceW(hInstance, MAKEINTRESOURCEW(nBlock), MAKEINTRESOURCEW(6) /* RT_STRING */);
    const HGLOBAL hData = hResource != nullptr ? LoadResource(hInstance, hResource) : nullptr;
    const auto* pch = hData != nullptr ? static_cast<const wchar_t*>(LockResource(hData)) : nullptr;
    if (pch == nullptr)
        return false;

    const wchar_t* const pchEnd = pch + SizeofResource(hInstance, hResource) / sizeof(wchar_t);
    for (UINT nSkip = nID & 15; nSkip > 0 && pch < pchEnd; --nSkip)
        pch += std::min<ptrdiff_t>(1 + *pch, pchEnd - pch);
    if (pch >= pchEnd || *pch == 0 || *pch >= pchEnd - pch)
        return false;
    *this = CString(pch + 1, *pch);
    return true;
}

CString operator+(const CString& strLeft, const CString& strRight)
{
    return strLeft + static_cast<const wchar_t*>(strRight);
}

CString operator+(const CString& strLeft, const wchar_t* pszRight)
{
    CString strResult(strLeft);
    return strResult += pszRight;
}

bool operator==(const CString& strLeft, const CString& strRight) noexcept
{
    return strLeft == static_cast<const wchar_t*>(strRight);
}

bool operator==(const CString& strLeft, const wchar_t* pszRight) noexcept
{
    return std::wcscmp(strLeft, pszRight) == 0;
}

CW2A::CW2A(const wchar_t* psz, UINT nCodePage)
{
    const size_t nSize = (std::wcslen(psz) + 1) * 2;
    m_pszNarrow = std::make_unique<char[]>(nSize);
    if (WideCharToMultiByte(nCodePage, 0, psz, -1, m_pszNarrow.get(), static_cast<int>(nSize), nullptr,
                            nullptr) == 0)
        m_pszNarrow.reset();
}
