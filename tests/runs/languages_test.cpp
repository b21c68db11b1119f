// Whole runs in the language that the environment chooses: LC_ALL, as the test platform reads it. ctest
// starts this program once for each language.
#include <gtest/gtest.h>

#include "installation.h"
#include "messages.h"

namespace
{
struct Language
{
    LANGID nTable;  // string table that must be served
    UINT nCodePage; // the console's
};

// What LC_ALL must give; a language without a table is served in English.
const std::map<std::string, Language> LANGUAGES = {
    {"es_ES", {0x000A, 850}}, {"es_MX", {0x000A, 850}}, {"zh_TW", {0x0404, 950}}, {"cs_CZ", {0x0405, 852}},
    {"de_DE", {0x0407, 850}}, {"en_US", {0x0409, 437}}, {"fr_FR", {0x040C, 850}}, {"hu_HU", {0x040E, 852}},
    {"it_IT", {0x0410, 850}}, {"ja_JP", {0x0411, 932}}, {"ko_KR", {0x0412, 949}}, {"pl_PL", {0x0415, 852}},
    {"pt_BR", {0x0416, 850}}, {"ru_RU", {0x0419, 866}}, {"zh_CN", {0x0804, 936}}, {"sv_SE", {0x0409, 850}}};

// The text as its resource has it, in the console's bytes.
std::string Expected(unsigned nID, const Language& language)
{
    const HMODULE hModule =
        LoadLibraryExW((ProgramFolder() / "tarvel.exe").c_str(), nullptr, LOAD_LIBRARY_AS_DATAFILE);
    const HRSRC hBlock =
        FindResourceExW(hModule, MAKEINTRESOURCEW(6), MAKEINTRESOURCEW(nID / 16 + 1), language.nTable);
    if (hBlock == nullptr)
        return "no table";
    const auto* pch = static_cast<const wchar_t*>(LockResource(LoadResource(hModule, hBlock)));
    for (unsigned i = 0; i < nID % 16; ++i)
        pch += *pch + 1;
    std::string strText(1000, '\0');
    strText.resize(static_cast<size_t>(
        WideCharToMultiByte(language.nCodePage, 0, pch + 1, *pch, strText.data(), 1000, nullptr, nullptr)));
    return strText + "\r\n";
}
} // namespace

TEST(Languages, RunsSpeakTheLanguageOfTheSystemInTheConsolesBytes)
{
    const char* const pszLocale = std::getenv("LC_ALL");
    const std::string strLocale = pszLocale != nullptr ? std::string(pszLocale).substr(0, 5) : "";
    if (!LANGUAGES.contains(strLocale))
        GTEST_SKIP() << "LC_ALL chooses no language of the table";
    const Language& language = LANGUAGES.at(strLocale);
    EXPECT_EQ(GetOEMCP(), language.nCodePage);
    Installation zn;
    const RunResult usage = zn.Run(L"");
    EXPECT_EQ(usage.nStatus, 0xFFFFFFFF);
    EXPECT_EQ(usage.strOut, "");
    EXPECT_EQ(usage.strErr, Expected(IDS_USAGE, language));
    EXPECT_EQ(zn.Run(L"/m QM9 /dd E:\\data /ld F:\\log").strErr,
              Expected(IDS_QM_NOT_FOUND, language) + Expected(IDS_USAGE, language));
}
