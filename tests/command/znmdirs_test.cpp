#include <windows.h>
#include <aclapi.h>
#include <shellapi.h>

#include "tracecapture.h"
#include "tempdir.h"
#include "znmapp.h"

namespace
{
using namespace testing;

struct Directories : Test, TempDir
{
    CString At(const wchar_t* psz) const { return (root.wstring() + psz).c_str(); }
    std::string Narrow(const char* psz) const { return root.string() + psz; }
    void Make(const char* psz, DWORD nAttributes = FILE_ATTRIBUTE_NORMAL) const
    {
        WriteAll(Narrow(psz), psz, nAttributes);
    }
    Capture capture;
};
} // namespace

TEST_F(Directories, MissingPathsAreCreatedAndExistingOnesChecked)
{
    Make("\\file");
    const std::tuple<const wchar_t*, int, const char*> cases[] = {
        {L"\\a\\b\\c", 1, "# 171 Successfully created directory '"},
        {L"\\a\\b\\", 1, "- 173 The specified directory/file already exists"},
        {L"\\d\\e\\", 1, "# 171 Successfully created directory '"},
        {L"\\f\\\\g", 1, "# 171 Directory '"}, // an empty component is the directory it stands in
        {L"\\file", 0, "- 173 Specified directory/file is actually a file"},
        {L"\\file\\x", 0, "- 171 Specified path is not a directory"},
        {L"\\bad?name\\x", 0, "- 173 Cannot create directory structure"},
    };
    for (const auto& [pszPath, nExpected, pszTrace] : cases)
    {
        capture.lines.clear();
        EXPECT_EQ(theApp.CheckAndCreateZNDirectory(At(pszPath)), nExpected) << pszPath;
        EXPECT_EQ(fs::is_directory(root.wstring() + pszPath), nExpected == 1) << pszPath;
        EXPECT_THAT(capture.lines, Contains(StartsWith(pszTrace)));
    }
    EXPECT_THAT(Names(), ElementsAre(L"a", L"a\\b", L"a\\b\\c", L"d", L"d\\e", L"f", L"f\\g", L"file"));
}

TEST_F(Directories, CreationReturnsTheCodeOfTheLastComponent)
{
    Make("\\file");
    EXPECT_EQ(theApp.CreateZNDirectory(At(L"\\new\\x"), L""), 0u);
    EXPECT_EQ(theApp.CreateZNDirectory(At(L"\\new\\x"), L"") & 0x10, 0x10u); // exists: its attributes
    EXPECT_EQ(theApp.CreateZNDirectory(At(L"\\file\\x"), L""), 3u);
    const auto denied = Fails(SetNamedSecurityInfoW, ERROR_ACCESS_DENIED, 0); // is no failure of the creation
    EXPECT_EQ(theApp.CreateZNDirectory(L"y", At(L"\\new")), 0u);
    EXPECT_EQ(capture.Count("- 171 Failed to set security on newly created directory"), 1);
    EXPECT_TRUE(capture.Has("- 31 Merging previous security settings"));
    std::vector<std::string> created;
    const auto refuse = Hook(xcsCreateDirectory, [&](auto* psz, int n1, auto p1, auto p2, int n2, auto* pn) {
        EXPECT_TRUE(n1 == 1 && n2 == 1 && p1 == nullptr && p2 == nullptr);
        created.push_back(psz);
        return *pn = 1816, 9;
    });
    EXPECT_EQ(theApp.CreateZNDirectory(At(L"\\new\\z\\z"), L""), 1816u);
    EXPECT_TRUE(capture.Has("# 171 Failed to create directory '" + Narrow("\\new\\z") + "': 1816"));
    // An empty first component is tried as it is.
    EXPECT_EQ(theApp.CreateZNDirectory(L"\\\\srv\\share\\x", L""), 1816u);
    EXPECT_THAT(created, ElementsAre(Narrow("\\new\\z"), ""));
    const auto unreadable = Fails(GetFileAttributesW, INVALID_FILE_ATTRIBUTES, 1117);
    EXPECT_EQ(theApp.CreateZNDirectory(At(L"\\new"), L""), 1117u);
}

TEST_F(Directories, CopyHandsTheShellWholeListsOfAnyLength)
{
    const fs::path before = fs::current_path();
    for (const size_t nLength : {10, 259, 260, 511, 512, 32767})
    {
        const std::wstring strSrc = L"C:\\" + std::wstring(nLength - 3, L's'), strDest(nLength, L'd');
        const auto shell = Hook(SHFileOperationW, [&](LPSHFILEOPSTRUCTW p) {
            EXPECT_TRUE(p->hwnd == nullptr && p->wFunc == FO_COPY && p->fFlags == 0x0614);
            EXPECT_EQ(std::wstring(p->pFrom, nLength + 4), strSrc + std::wstring(L"\\*\0\0", 4));
            EXPECT_EQ(std::wstring(p->pTo, nLength + 2), strDest + std::wstring(2, L'\0'));
            SetLastError(1224);
            return 0x7C;
        });
        capture.lines.clear();
        EXPECT_EQ(theApp.CopyZNFiles(strDest.c_str(), strSrc.c_str()), 0);
        EXPECT_EQ(fs::current_path(), before);
        EXPECT_THAT(capture.Only("#"), Contains(EndsWith("rc=124, gle=1224")));
        EXPECT_FALSE(capture.Has("> 31")); // nothing is secured after a failed copy
    }
}

TEST_F(Directories, CopyGoesOnWithoutItsCurrentDirectoryAndSecuresBothParts)
{
    Make("\\from\\a");
    for (const char* psz : {"\\log", "\\tolog"})
        fs::create_directory(Narrow(psz));
    const fs::path before = fs::current_path();
    const std::string FILES = "- 174 Failed to set security on destination files",
                      DIRECTORY = "- 174 Failed to set security on destination directory";
    const struct
    {
        bool fSaved, fSet;      // whether the current directory can be asked for, and be set
        std::wstring strUnsafe; // what cannot be secured
        std::vector<std::string> texts;
    } cases[] = {{false, true, L"-", {}},
                 {true, false, L"-", {"- 174 Failed to restore original working directory!"}},
                 {true, true, L"\\a", {FILES}},
                 {true, true, L"\\to", {DIRECTORY}},
                 {true, true, L"", {FILES, DIRECTORY}}};
    for (const auto& c : cases)
    {
        const auto current = Hook(GetCurrentDirectoryW, [&](auto... args) {
            return c.fSaved ? GetCurrentDirectoryW(args...) : 300;
        });
        const auto change =
            Hook(SetCurrentDirectoryW, [&](LPCWSTR psz) { return c.fSet && SetCurrentDirectoryW(psz); });
        const auto set = Hook(SetNamedSecurityInfoW, [&](LPWSTR psz, auto...) {
            return std::wstring_view(psz).ends_with(c.strUnsafe) ? 5 : 0;
        });
        capture.lines.clear();
        fs::remove_all(Narrow("\\to"));
        fs::create_directory(Narrow("\\to"));
        ASSERT_TRUE(theApp.m_sources.Look({At(L"\\from"), At(L"\\to"), At(L"\\log"), At(L"\\tolog"), At(L"")},
                                          [](const ZNFinding&) { return true; }));
        EXPECT_EQ(theApp.CopyZNFiles(At(L"\\to"), At(L"\\from")), c.strUnsafe == L"-") << &c - cases;
        EXPECT_EQ(capture.Only("-", 174), c.texts) << &c - cases;
        EXPECT_EQ(
            capture.Has("# 174 Current Dir = " + before.string() + ", Changing to = " + Narrow("\\from")),
            c.fSaved);
        EXPECT_EQ(capture.Has("# 174 Failed to change current directory to '" + Narrow("\\from") + "'"),
                  !c.fSet);
        EXPECT_EQ(capture.Count("- 31 Discarding previous security settings"), 2);
        EXPECT_EQ(fs::current_path(), c.fSaved ? before : fs::path(Narrow("\\from")));
        fs::current_path(before);
    }
}

TEST_F(Directories, DeletionTakesTheWholeTreeDepthFirst)
{
    Make("\\x\\.config", FILE_ATTRIBUTE_HIDDEN);
    Make("\\x\\..x\\deep\\f", FILE_ATTRIBUTE_READONLY);
    Make("\\x\\system", FILE_ATTRIBUTE_SYSTEM);
    std::vector<std::wstring> reset;
    const auto attributes = Hook(SetFileAttributesW, [&](LPCWSTR psz, DWORD n) {
        EXPECT_EQ(n, 0x80u);
        return reset.push_back(fs::path(psz).filename()), SetFileAttributesW(psz, n);
    });
    EXPECT_EQ(theApp.DeleteZNFiles(At(L"\\x")), 1);
    EXPECT_FALSE(fs::exists(Narrow("\\x")));
    EXPECT_THAT(reset, AllOf(Contains(L"f"), Contains(L".config"), Not(Contains(L"system"))));
    std::vector<std::string> done = capture.Only("#", 176);
    std::erase_if(done, [](const std::string& str) { return !str.starts_with("# 176 Successfully"); });
    const std::string F = "# 176 Successfully deleted file '" + Narrow("\\x"),
                      D = "# 176 Successfully deleted directory '" + Narrow("\\x");
    EXPECT_THAT(done, ElementsAre(F + "\\..x\\deep\\f'", D + "\\..x\\deep'", D + "\\..x'", F + "\\.config'",
                                  F + "\\system'", D + "'"));
    EXPECT_EQ(theApp.DeleteZNFiles(At(L"\\missing")), 1);
}

TEST_F(Directories, DeletionStopsAtTheFirstFailureWithItsOwnError)
{
    for (const char* psz : {"\\x\\a", "\\x\\s\\locked", "\\x\\z"})
        Make(psz);
    const auto close = Hook(FindClose, [&](HANDLE h) { return SetLastError(6), FindClose(h); });
    {
        const auto locked = Hook(DeleteFileW, [&](LPCWSTR psz) {
            return wcsstr(psz, L"locked") == nullptr ? DeleteFileW(psz) : (SetLastError(32), FALSE);
        });
        EXPECT_EQ(theApp.DeleteZNFiles(At(L"\\x")), 0);
    }
    EXPECT_TRUE(capture.Has("# 176 Unable to delete file '" + Narrow("\\x\\s\\locked") + "', error '32'"));
    EXPECT_THAT(Names("x"), ElementsAre(L"s", L"s\\locked", L"z"));
    {
        const auto kept = Fails(RemoveDirectoryW, FALSE, 145);
        EXPECT_EQ(theApp.DeleteZNFiles(At(L"\\x")), 0);
    }
    EXPECT_TRUE(capture.Has("# 176 Unable to delete directory '" + Narrow("\\x\\s") + "', error '145'"));
    EXPECT_THAT(Names("x"), ElementsAre(L"s", L"z"));
    // The first entry is never examined, also where it is neither "." nor "..".
    const auto first = Hook(FindFirstFileW, [&](LPCWSTR psz, WIN32_FIND_DATAW* p) {
        const HANDLE hFind = FindFirstFileW(psz, p);
        while (p->cFileName[0] == L'.')
            FindNextFileW(hFind, p);
        return hFind;
    });
    EXPECT_EQ(theApp.DeleteZNFiles(At(L"\\x")), 0);
    EXPECT_TRUE(capture.Has("# 176 Unable to delete directory '" + Narrow("\\x") + "', error '145'"));
    EXPECT_THAT(Names("x"), ElementsAre(L"s"));
}
