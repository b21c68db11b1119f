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
    Capture capture;
};
} // namespace

TEST_F(Directories, CreationReturnsTheCodeOfTheLastComponent)
{
    const auto create = [&](const wchar_t* psz) { return theApp.CreateZNDirectory(At(psz), L""); };
    EXPECT_EQ(create(L"\\new\\\\y\\"), 0u); // an empty component is ignored
    EXPECT_THAT(Names(), ElementsAre(L"new", L"new\\y"));
    EXPECT_EQ(create(L"\\new\\y") & 0x10, 0x10u); // exists: its attributes
    std::vector<std::string> created;
    const auto refuse = Hook(xcsCreateDirectory, [&](auto* psz, auto, auto, auto, auto, auto* pn) {
        return created.push_back(psz), *pn = 1816, 9;
    });
    EXPECT_EQ(create(L"\\new\\q\\q"), 1816u);
    EXPECT_TRUE(capture.Has("# 171 Failed to create directory '" + Narrow("\\new\\q") + "': 1816"));
    // An empty first component is tried as it is.
    EXPECT_EQ(theApp.CreateZNDirectory(L"\\\\srv\\share\\x", L""), 1816u);
    EXPECT_THAT(created, ElementsAre(Narrow("\\new\\q"), ""));
}

TEST_F(Directories, CopyHandsTheShellWholeListsOfAnyLength)
{
    for (const size_t nLength : {259, 260, 511, 512, 32767})
    {
        const std::wstring strSrc = L"C:\\" + std::wstring(nLength - 3, L's'), strDest(nLength, L'd');
        const auto shell = Hook(SHFileOperationW, [&](LPSHFILEOPSTRUCTW p) {
            EXPECT_EQ(std::wstring(p->pFrom, nLength + 4), strSrc + std::wstring(L"\\*\0\0", 4));
            EXPECT_EQ(std::wstring(p->pTo, nLength + 2), strDest + std::wstring(2, L'\0'));
            return SetLastError(1224), 0x7C;
        });
        EXPECT_EQ(theApp.CopyZNFiles(strDest.c_str(), strSrc.c_str(), nullptr), 0);
        EXPECT_THAT(capture.lines, Contains(EndsWith("rc=124, gle=1224")));
    }
}

TEST_F(Directories, CopyIsProvedInWhateverOrderDirectoriesAreListed)
{
    for (const char* psz : {"\\from\\a", "\\from\\b", "\\from\\c\\d", "\\from\\e\\f"})
        Make(psz);
    fs::create_directory(Narrow("\\to"));
    // "b" is a link to a file, whose entry has no size of it.
    std::vector<WIN32_FIND_DATAW> entries;
    bool fLinkCopied = false;
    const auto next = Hook(FindNextFileW, [&](HANDLE hFind, WIN32_FIND_DATAW* pEntry) {
        if (entries.empty())
            return FindNextFileW(hFind, pEntry);
        *pEntry = entries.back();
        return entries.pop_back(), TRUE;
    });
    const auto list = Hook(FindFirstFileExW, [&](LPCWSTR psz, auto eLevel, void* p, auto... args) {
        auto* const pEntry = static_cast<WIN32_FIND_DATAW*>(p);
        const HANDLE hFind = FindFirstFileExW(psz, eLevel, p, args...);
        const bool fOld = wcsstr(psz, L"\\from") != nullptr;
        entries.clear();
        std::vector<WIN32_FIND_DATAW> found;
        do
        {
            if (pEntry->cFileName[0] == L'b' && (fLinkCopied || fOld))
            {
                pEntry->dwFileAttributes |= FILE_ATTRIBUTE_REPARSE_POINT;
                pEntry->dwReserved0 = IO_REPARSE_TAG_SYMLINK;
                pEntry->nFileSizeLow = 0;
            }
            found.insert(fOld ? found.end() : found.begin(), *pEntry);
        } while (FindNextFileW(hFind, pEntry));
        entries = found;
        return FindNextFileW(hFind, pEntry), hFind;
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
        // Not every platform keeps it of a directory.
        p->dwFileAttributes |= p->cFileName == std::wstring(L"s") ? FILE_ATTRIBUTE_HIDDEN : 0;
        return fFound;
    });
    EXPECT_EQ(theApp.DeleteZNFiles(At(L"\\x"), pair), 0);
    EXPECT_THAT(Names("x"), ElementsAre(L"..a"));
    fDots = true;
    for (int n : {1, 2}) // the second time nothing is there
        EXPECT_EQ(theApp.DeleteZNFiles(At(L"\\x"), pair), 1) << n;
    EXPECT_FALSE(fs::exists(Narrow("\\x")));
    EXPECT_THAT(reset, ElementsAre(L"s", L"hidden", L"..a")); // not of the system file
}
