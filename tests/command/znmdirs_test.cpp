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
    int Copy(const wchar_t* pszSrc, const wchar_t* pszDest)
    {
        CZNPair pair(root.wstring() + pszSrc, root.wstring() + pszDest);
        return theApp.CopyZNFiles(At(pszDest), At(pszSrc), [&](CZNFindings& findings) {
            pair.Prove(CZNPair(L"", L""), nullptr, findings);
        });
    }
    std::vector<std::wstring> LeftOf(wchar_t chTree) const
    {
        std::vector<std::wstring> names = Names();
        std::erase_if(names, [&](const std::wstring& str) { return str[0] != chTree; });
        return names;
    }
    Capture capture;
};
} // namespace

TEST_F(Directories, CreationReturnsTheCodeOfTheLastComponent)
{
    Make("\\file");
    for (const wchar_t* psz : {L"\\new\\\\y\\", L"\\new\\y"}) // an empty component is ignored
        EXPECT_EQ(theApp.CheckAndCreateZNDirectory(At(psz)), 1);
    for (const wchar_t* psz : {L"\\file", L"\\file\\x", L"\\bad?name\\x"})
        EXPECT_EQ(theApp.CheckAndCreateZNDirectory(At(psz)), 0) << psz;
    EXPECT_THAT(Names(), ElementsAre(L"file", L"new", L"new\\y"));
    EXPECT_EQ(theApp.CreateZNDirectory(At(L"\\new\\x"), L""), 0u);
    EXPECT_EQ(theApp.CreateZNDirectory(At(L"\\new\\x"), L"") & 0x10, 0x10u); // exists: its attributes
    EXPECT_EQ(theApp.CreateZNDirectory(At(L"\\file\\x"), L""), 3u);
    const auto denied = Fails(SetNamedSecurityInfoW, ERROR_ACCESS_DENIED, 0); // is no failure of the creation
    EXPECT_EQ(theApp.CreateZNDirectory(L"z", At(L"\\new")), 0u);
    EXPECT_TRUE(capture.Has("- 31 Merging previous security settings"));
    std::vector<std::string> created;
    const auto refuse = Hook(xcsCreateDirectory, [&](auto* psz, int n1, auto p1, auto p2, int n2, auto* pn) {
        EXPECT_TRUE(n1 == 1 && n2 == 1 && p1 == nullptr && p2 == nullptr);
        created.push_back(psz);
        return *pn = 1816, 9;
    });
    EXPECT_EQ(theApp.CreateZNDirectory(At(L"\\new\\q\\q"), L""), 1816u);
    EXPECT_TRUE(capture.Has("# 171 Failed to create directory '" + Narrow("\\new\\q") + "': 1816"));
    // An empty first component is tried as it is.
    EXPECT_EQ(theApp.CreateZNDirectory(L"\\\\srv\\share\\x", L""), 1816u);
    EXPECT_THAT(created, ElementsAre(Narrow("\\new\\q"), ""));
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
        EXPECT_EQ(theApp.CopyZNFiles(strDest.c_str(), strSrc.c_str(), nullptr), 0);
        EXPECT_THAT(capture.Only("#"), Contains(EndsWith("rc=124, gle=1224")));
        EXPECT_FALSE(capture.Has("> 31")); // nothing is secured after a failed copy
    }
}

TEST_F(Directories, CopyIsProvedInWhateverOrderDirectoriesAreListed)
{
    for (const char* psz : {"\\from\\a", "\\from\\b", "\\from\\c\\d", "\\from\\e\\f"})
        Make(psz);
    fs::create_directory(Narrow("\\to"));
    // "b" is a link to a file, whose entry has no size of it.
    std::vector<WIN32_FIND_DATAW> entries;
    bool fLists = false, fLinkCopied = false;
    const auto list = Hook(FindFirstFileExW, [&](LPCWSTR psz, auto eLevel, void* p, auto... args) {
        auto* const pEntry = static_cast<WIN32_FIND_DATAW*>(p);
        const HANDLE hFind = FindFirstFileExW(psz, eLevel, p, args...);
        entries.clear();
        fLists = true;
        for (BOOL fMore = hFind != INVALID_HANDLE_VALUE; fMore; fMore = FindNextFileW(hFind, pEntry))
        {
            if (pEntry->cFileName[0] == L'b' && (fLinkCopied || wcsstr(psz, L"\\from\\") != nullptr))
            {
                pEntry->dwFileAttributes |= FILE_ATTRIBUTE_REPARSE_POINT;
                pEntry->dwReserved0 = IO_REPARSE_TAG_SYMLINK;
                pEntry->nFileSizeLow = 0;
            }
            entries.insert(wcsstr(psz, L"\\from") != nullptr ? entries.begin() : entries.end(), *pEntry);
        }
        fLists = false;
        return FindNextFileW(hFind, pEntry), hFind;
    });
    const auto next = Hook(FindNextFileW, [&](HANDLE hFind, WIN32_FIND_DATAW* pEntry) {
        if (fLists || entries.empty())
            return FindNextFileW(hFind, pEntry);
        *pEntry = entries.back();
        return entries.pop_back(), TRUE;
    });
    const auto unsafe = Fails(SetNamedSecurityInfoW, 0, 0);
    EXPECT_EQ(Copy(L"\\from", L"\\to"), 1);
    fLinkCopied = true;
    EXPECT_EQ(Copy(L"\\from", L"\\to"), 0);
    EXPECT_THAT(capture.lines, Contains(HasSubstr("A link stands in the place of the file")));
}

TEST_F(Directories, DeletionNeverExaminesTheFirstEntry)
{
    Make("\\x\\..a", FILE_ATTRIBUTE_READONLY);
    Make("\\x\\s\\hidden", FILE_ATTRIBUTE_HIDDEN);
    Make("\\x\\z", FILE_ATTRIBUTE_SYSTEM);
    fs::create_directories(Narrow("\\y\\s"));
    for (const wchar_t* psz : {L"\\..a", L"\\s\\hidden", L"\\z"})
        CopyFileW(At(L"\\x") + psz, At(L"\\y") + psz, TRUE);
    CZNPair pair(root.wstring() + L"\\x", root.wstring() + L"\\y");
    CZNFindings findings;
    ASSERT_TRUE(pair.Prove(CZNPair(L"", L""), nullptr, findings));
    bool fDots = false; // whether a listing begins with "."
    std::vector<std::wstring> reset;
    const auto attributes = Hook(SetFileAttributesW, [&](LPCWSTR psz, DWORD n) {
        return reset.push_back(fs::path(psz).filename()), SetFileAttributesW(psz, n);
    });
    const auto find = Hook(FindFirstFileW, [&](LPCWSTR psz, WIN32_FIND_DATAW* p) {
        const HANDLE hFind = FindFirstFileW(psz, p);
        while (!fDots && std::wstring_view(psz).ends_with(L"x\\*") && std::wcslen(p->cFileName) < 3)
            FindNextFileW(hFind, p);
        return hFind;
    });
    const auto next = Hook(FindNextFileW, [](HANDLE hFind, WIN32_FIND_DATAW* p) {
        const BOOL fFound = FindNextFileW(hFind, p);
        if (std::wstring_view(p->cFileName) == L"s") // not every platform keeps it of a directory
            p->dwFileAttributes |= FILE_ATTRIBUTE_HIDDEN;
        return fFound;
    });
    EXPECT_EQ(theApp.DeleteZNFiles(At(L"\\x"), pair), 0);
    EXPECT_THAT(LeftOf(L'x'), ElementsAre(L"x", L"x\\..a"));
    fDots = true;
    EXPECT_EQ(theApp.DeleteZNFiles(At(L"\\x"), pair), 1);
    EXPECT_EQ(theApp.DeleteZNFiles(At(L"\\x"), pair), 1); // nothing is there
    EXPECT_THAT(LeftOf(L'x'), IsEmpty());
    EXPECT_THAT(reset, ElementsAre(L"s", L"hidden", L"..a")); // not of the system file
}
