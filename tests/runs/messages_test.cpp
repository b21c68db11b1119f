// The console messages of the shipped executable: each is there in each language, keeps what must not be
// translated and can be written on that language's console; runs use the language of the system.
#include <algorithm>
#include <regex>

#include <gtest/gtest.h>

#include "installation.h"
#include "messages.h"

namespace
{
constexpr LANGID ENGLISH = 0x0409;

struct Language
{
    const char* pszLocale;
    LANGID nTable;  // string table that is used
    UINT nCodePage; // the console's
};

// A language without a table is served in English.
const Language LANGUAGES[] = {
    {"es_ES", 0x000A, 850}, {"zh_TW", 0x0404, 950}, {"cs_CZ", 0x0405, 852}, {"de_DE", 0x0407, 850},
    {"en_US", 0x0409, 437}, {"fr_FR", 0x040C, 850}, {"hu_HU", 0x040E, 852}, {"it_IT", 0x0410, 850},
    {"ja_JP", 0x0411, 932}, {"ko_KR", 0x0412, 949}, {"pl_PL", 0x0415, 852}, {"pt_BR", 0x0416, 850},
    {"ru_RU", 0x0419, 866}, {"zh_CN", 0x0804, 936}, {"es_MX", 0x000A, 850}, {"sv_SE", ENGLISH, 850}};

HMODULE Program()
{
    static const HMODULE s_hModule =
        LoadLibraryExW((ProgramFolder() / "tarvel.exe").c_str(), nullptr, LOAD_LIBRARY_AS_DATAFILE);
    return s_hModule;
}

// The text as its resource has it; empty if the language does not have the message.
std::wstring Text(LANGID nLanguage, UINT nMessage)
{
    const HRSRC hBlock =
        FindResourceExW(Program(), RT_STRING, MAKEINTRESOURCEW(nMessage / 16 + 1), nLanguage);
    if (hBlock == nullptr)
        return {};
    auto* pEntry = static_cast<const wchar_t*>(LockResource(LoadResource(Program(), hBlock)));
    for (UINT n = nMessage % 16; n > 0; --n)
        pEntry += 1 + *pEntry;
    return {pEntry + 1, *pEntry};
}
} // namespace

TEST(Messages, AreTranslatedKeepTheirFixedPartsAndSurviveTheConsole)
{
    for (const Language& language : LANGUAGES)
    {
        for (UINT nMessage = 16; nMessage < 48; ++nMessage)
        {
            SCOPED_TRACE(testing::Message() << language.pszLocale << " message " << nMessage);
            const std::wstring strText = Text(language.nTable, nMessage),
                               strEnglish = Text(ENGLISH, nMessage);
            ASSERT_EQ(strText.empty(), nMessage < 20 || (nMessage > 20 && nMessage < 30));
            if (strText.empty())
                continue;
            EXPECT_EQ(strText == strEnglish, language.nTable == ENGLISH);
            EXPECT_EQ(std::ranges::count(strText, L'\n'), std::ranges::count(strEnglish, L'\n'));
            for (const wchar_t* pszName : {L"Vantor ZN", L"MSCS", L"COM", L"MFC"})
                EXPECT_EQ(strText.find(pszName) == std::wstring::npos,
                          strEnglish.find(pszName) == std::wstring::npos);
            // The operands are words of the language, but one word each.
            const std::wregex usage(L"[^ ]+ ?: ?tarvel /m [^ /-]+ /dd [^ /-]+ /ld [^ /-]+");
            EXPECT_EQ(std::regex_match(strText, usage), nMessage == IDS_USAGE);

            // A text longer than the console routine's buffer shows as a difference too.
            char szBytes[2048] = {};
            wchar_t szBack[2048] = {};
            BOOL fReplaced = FALSE;
            WideCharToMultiByte(language.nCodePage, WC_NO_BEST_FIT_CHARS, strText.c_str(), -1, szBytes,
                                sizeof szBytes, nullptr, &fReplaced);
            MultiByteToWideChar(language.nCodePage, MB_ERR_INVALID_CHARS, szBytes, -1, szBack, 2048);
            EXPECT_FALSE(fReplaced) << szBytes;
            EXPECT_EQ(szBack, strText);
        }
    }
}

TEST(Messages, EnglishTextsAreAsKept)
{
    std::string strTexts;
    for (UINT nMessage = 16; nMessage < 48; ++nMessage)
        if (const std::wstring str = Text(ENGLISH, nMessage); !str.empty())
            strTexts += std::to_string(nMessage) + " " + std::string(str.begin(), str.end()) + "\n";
    const char* const pszUpdate = std::getenv("ZN_TRANSCRIPTS_UPDATE"); // see transcripts_test.cpp
    if (pszUpdate != nullptr)
        WriteAll(fs::path(pszUpdate) / "messages.txt", strTexts);
    EXPECT_EQ(pszUpdate != nullptr ? strTexts : ReadAll(ProgramFolder() / "transcripts\\messages.txt"),
              strTexts);
}

// ctest runs this once for each language, which LC_ALL sets on the test platform, and once without. Windows
// ignores that variable: there the machine's own language is tested.
TEST(Languages, RunsSpeakTheLanguageOfTheSystemInTheConsolesBytes)
{
    wchar_t szName[LOCALE_NAME_MAX_LENGTH] = {};
    LCIDToLocaleName(GetUserDefaultUILanguage(), szName, LOCALE_NAME_MAX_LENGTH, 0);
    std::string strSystem = fs::path(szName).string();
    std::ranges::replace(strSystem, '-', '_');
    const auto find = [](const std::string& strLocale) {
        return std::ranges::find_if(
            LANGUAGES, [&](const Language& language) { return strLocale.starts_with(language.pszLocale); });
    };
    const char* const pszWanted = std::getenv("LC_ALL");
    const Language* const pLanguage = find(strSystem);
    const Language* const pWanted = find(pszWanted != nullptr ? pszWanted : "");
    const bool fWanted = pWanted == std::end(LANGUAGES) || pWanted == pLanguage;
    EXPECT_TRUE(fWanted || GetProcAddress(GetModuleHandleW(L"ntdll"), "wine_get_version") == nullptr);
    if (!fWanted || pLanguage == std::end(LANGUAGES))
        GTEST_SKIP() << "this machine speaks " << strSystem;
    const auto line = [&](UINT nMessage) {
        const std::wstring strText = Text(pLanguage->nTable, nMessage) + L"\r\n";
        char szBytes[1000] = {};
        WideCharToMultiByte(CP_OEMCP, 0, strText.c_str(), -1, szBytes, sizeof szBytes, nullptr, nullptr);
        return std::string(szBytes);
    };
    Installation zn;
    const RunResult result = zn.Run(L"/m QM9 /dd E:\\data /ld F:\\log");
    EXPECT_EQ(result.strErr, line(IDS_QM_NOT_FOUND) + line(IDS_USAGE));
}
