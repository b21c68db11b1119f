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
    // An empty component is the directory it stands in.
    const std::pair<const wchar_t*, int> cases[] = {{L"\\a\\b\\c", 1},    {L"\\a\\b\\", 1}, {L"\\d\\e\\", 1},
                                                    {L"\\f\\\\g", 1},     {L"\\file", 0},   {L"\\file\\x", 0},
                                                    {L"\\bad?name\\x", 0}};
    for (const auto& [pszPath, nExpected] : cases)
    {
        EXPECT_EQ(theApp.CheckAndCreateZNDirectory(At(pszPath)), nExpected) << pszPath;
        EXPECT_EQ(fs::is_directory(root.wstring() + pszPath), nExpected == 1) << pszPath;
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
    for (const size_t nLength : {10, 259, 260, 511, 512, 32767})
    {
        const std::wstring strSrc = L"C:\\" + std::wstring(nLength - 3, L's'), strDest(nLength, L'd');
        const auto shell = Hook(SHFileOperationW, [&](LPSHFILEOPSTRUCTW p) {
            EXPECT_TRUE(p->hwnd == nullptr && p->wFunc == FO_COPY && p->fFlags == 0x0614);
            EXPECT_EQ(std::wstring(p->pFrom, nLength + 4), strSrc + std::wstring(L"\\*\0\0", 4));
            EXPECT_EQ(std::wstring(p->pTo, nLength + 2), strDest + std::wstring(2, L'\0'));
            return SetLastError(1224), 0x7C;
        });
        capture.lines.clear();
        EXPECT_EQ(theApp.CopyZNFiles(strDest.c_str(), strSrc.c_str()), 0);
        EXPECT_THAT(capture.Only("#"), Contains(EndsWith("rc=124, gle=1224")));
        EXPECT_FALSE(capture.Has("> 31")); // nothing is secured after a failed copy
    }
}

TEST_F(Directories, CopyChangesTheCurrentDirectoryAndSecuresFilesAndDirectories)
{
    Make("\\from\\a");
    for (const char* psz : {"\\to", "\\log", "\\tolog"})
        fs::create_directory(Narrow(psz));
    ASSERT_TRUE(theApp.m_sources.Look({At(L"\\from"), At(L"\\to"), At(L"\\log"), At(L"\\tolog"), At(L"")},
                                      [](const ZNFinding&) { return true; }));
    const std::string FROM = Narrow("\\from");
    const std::tuple<DWORD, std::wstring, int, std::vector<std::string>> cases[] = {
        // length of the current directory, what cannot be secured; result, changes of the current directory
        {7, L"-", 1, {FROM, "C:\\here"}},
        {300, L"-", 1, {FROM}}, // too long for the buffer: cannot be restored
        {0, L"\\a", 0, {}},
        {0, L"\\to", 0, {}},
    };
    for (const auto& [nLength, strUnsafe, nExpected, expected] : cases)
    {
        std::vector<std::string> changes;
        const auto current = Hook(GetCurrentDirectoryW, [n = nLength](DWORD nSize, LPWSTR psz) {
            EXPECT_EQ(nSize, 260u);
            return n == 7 ? lstrcpyW(psz, L"C:\\here"), n : n;
        });
        const auto change = Hook(SetCurrentDirectoryW, [&](LPCWSTR psz) { // does not end the copy
            return changes.push_back(fs::path(psz).string()), FALSE;
        });
        const auto set = Hook(SetNamedSecurityInfoW, [str = strUnsafe](LPWSTR psz, auto...) {
            return std::wstring_view(psz).ends_with(str) ? 5 : 0;
        });
        capture.lines.clear();
        EXPECT_EQ(theApp.CopyZNFiles(At(L"\\to"), At(L"\\from")), nExpected) << strUnsafe.size();
        EXPECT_EQ(changes, expected);
        EXPECT_EQ(capture.Count("- 31 Discarding previous security settings"), 2); // files, then directories
    }
}

TEST_F(Directories, DeletionTakesTheWholeTree)
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
