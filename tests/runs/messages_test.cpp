// Whether each console message of the shipped executable is there in each of its languages, keeps what must
// not be translated, and can be written on that language's console without losing a character. Reads the
// executable as data.
#include <windows.h>

#include <algorithm>
#include <regex>
#include <set>
#include <string>

#include <gtest/gtest.h>

namespace
{
constexpr LANGID k_nEnglish = 0x0409;

struct Language
{
    LANGID nId;
    UINT nCodePage;
};

const Language k_languages[] = {{0x000A, 850}, {0x0404, 950}, {0x0405, 852}, {0x0407, 850}, {k_nEnglish, 437},
                                {0x040C, 850}, {0x040E, 852}, {0x0410, 850}, {0x0411, 932}, {0x0412, 949},
                                {0x0415, 852}, {0x0416, 850}, {0x0419, 866}, {0x0804, 936}};

class Messages : public testing::Test
{
  protected:
    // Looked for beside the test program first; loaded to the end of the test program.
    const HMODULE m_hModule = LoadLibraryExW(L"tarvel.exe", nullptr, LOAD_LIBRARY_AS_DATAFILE);

    // Empty if the language does not have the message.
    std::wstring Text(LANGID nLanguage, UINT nMessage) const
    {
        const HRSRC hBlock =
            FindResourceExW(m_hModule, RT_STRING, MAKEINTRESOURCEW(nMessage / 16 + 1), nLanguage);
        if (hBlock == nullptr)
            return {};
        auto* pEntry = static_cast<const wchar_t*>(LockResource(LoadResource(m_hModule, hBlock)));
        const wchar_t* pEnd = pEntry + SizeofResource(m_hModule, hBlock) / sizeof(wchar_t);
        for (UINT n = nMessage % 16; n > 0 && pEntry < pEnd; --n)
            pEntry += 1 + *pEntry;
        return pEntry < pEnd && pEntry + *pEntry < pEnd ? std::wstring(pEntry + 1, *pEntry) : std::wstring();
    }

    // Every number of the two blocks of texts in every language, the absent ones included.
    template <class Check>
    void ForEachText(Check check) const
    {
        for (const Language& language : k_languages)
            for (UINT nMessage = 16; nMessage < 48; ++nMessage)
            {
                SCOPED_TRACE(testing::Message()
                             << std::hex << language.nId << std::dec << " message " << nMessage);
                check(language, nMessage);
            }
    }
};

// A missing language would not be noticed by looking texts up: Windows may give another language's instead.
TEST_F(Messages, ExistInExactlyTheseLanguages)
{
    std::set<LANGID> wanted;
    for (const auto& language : k_languages)
        wanted.insert(language.nId);
    for (const UINT nBlock : {2U, 3U})
    {
        std::set<LANGID> found;
        const auto insert = [](HMODULE, LPCWSTR, LPCWSTR, WORD nLanguage, LONG_PTR pFound) -> BOOL {
            reinterpret_cast<std::set<LANGID>*>(pFound)->insert(nLanguage);
            return TRUE;
        };
        EnumResourceLanguagesW(m_hModule, RT_STRING, MAKEINTRESOURCEW(nBlock), insert,
                               reinterpret_cast<LONG_PTR>(&found));
        EXPECT_EQ(found, wanted) << "block " << nBlock;
    }
}

TEST_F(Messages, SurviveTheConsolesCodePage)
{
    ForEachText([this](const Language& language, UINT nMessage) {
        const std::wstring strText = Text(language.nId, nMessage);
        ASSERT_EQ(strText.empty(), nMessage < 20 || (nMessage > 20 && nMessage < 30));
        // A call that fails, a text longer than the console routine's buffer say, shows as a difference.
        char szBytes[2048] = {};
        wchar_t szBack[2048] = {};
        BOOL fReplaced = FALSE;
        WideCharToMultiByte(language.nCodePage, WC_NO_BEST_FIT_CHARS, strText.c_str(), -1, szBytes,
                            sizeof szBytes, nullptr, &fReplaced);
        MultiByteToWideChar(language.nCodePage, MB_ERR_INVALID_CHARS, szBytes, -1, szBack, 2048);
        EXPECT_FALSE(fReplaced) << szBytes;
        EXPECT_EQ(szBack, strText);
    });
}

TEST_F(Messages, AreTranslatedAndKeepTheirFixedParts)
{
    std::set<std::pair<LANGID, std::wstring>> texts;
    ForEachText([&](const Language& language, UINT nMessage) {
        const std::wstring strText = Text(language.nId, nMessage);
        const std::wstring strEnglish = Text(k_nEnglish, nMessage);
        if (strEnglish.empty())
            return;
        EXPECT_TRUE(texts.emplace(language.nId, strText).second) << "another message's text";
        EXPECT_EQ(strText == strEnglish, language.nId == k_nEnglish);
        EXPECT_EQ(std::ranges::count(strText, L'\n'), std::ranges::count(strEnglish, L'\n'));
        for (const wchar_t* pszName : {L"Vantor ZN", L"MSCS", L"COM", L"MFC"})
            EXPECT_EQ(strText.find(pszName) == std::wstring::npos,
                      strEnglish.find(pszName) == std::wstring::npos);
        // The operands are words of the language, but one word each.
        const std::wregex usage(L"[^ ]+ ?: ?tarvel /m [^ /-]+ /dd [^ /-]+ /ld [^ /-]+");
        EXPECT_EQ(std::regex_match(strText, usage), nMessage == 20);
    });
}
} // namespace
