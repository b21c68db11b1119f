#include "znmapp.h"

#include <aclapi.h>
#include <shellapi.h>

#include "tempdir.h"
#include "tracecapture.h"

namespace
{
using namespace testing;

struct Directories : Test, TempDir
{
    CString At(const wchar_t* psz) const { return (root.wstring() + psz).c_str(); }
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
    // An empty first component is tried as it is.
    EXPECT_EQ(theApp.CreateZNDirectory(L"\\\\srv\\share\\x", L""), 1816u);
    EXPECT_THAT(created, ElementsAre(root.string() + "\\new\\q", ""));
}

TEST_F(Directories, CopyHandsTheShellWholeListsOfAnyLength)
{
    for (const size_t nLength : {259, 260, 511, 512, 32767})
    {
        const std::wstring strSrc = L"C:\\" + std::wstring(nLength - 3, L's'), strDest(nLength, L'd');
        const auto shell = Hook(SHFileOperationW, [&](LPSHFILEOPSTRUCTW p) {
            EXPECT_EQ(std::wstring(p->pFrom, nLength + 4), strSrc + std::wstring(L"\\*\0\0", 4));
            EXPECT_EQ(std::wstring(p->pTo, nLength + 2), strDest + std::wstring(2, L'\0'));
            return 0x7C;
        });
        EXPECT_EQ(theApp.CopyZNFiles(strDest.c_str(), strSrc.c_str(), nullptr), 0);
    }
}

// The listing has no size of what a link leads to.
TEST_F(Directories, CopyOfALinkMustNotBeALink)
{
    WriteAll(root / "from\\link", "content");
    fs::create_directory(root / "to");
    std::wstring strListed, strLinks = root / "from";
    const auto first = Hook(FindFirstFileExW, [&](LPCWSTR psz, auto eLevel, auto... args) {
        return strListed = psz, FindFirstFileExW(psz, eLevel, args...);
    });
    const auto next = Hook(FindNextFileW, [&](HANDLE hFind, WIN32_FIND_DATAW* p) {
        const BOOL fFound = FindNextFileW(hFind, p);
        if (*p->cFileName == L'l' && strListed.starts_with(strLinks))
        {
            p->dwFileAttributes |= FILE_ATTRIBUTE_REPARSE_POINT;
            p->dwReserved0 = IO_REPARSE_TAG_SYMLINK;
            p->nFileSizeLow = 0;
        }
        return fFound;
    });
    const auto unsafe = Fails(SetNamedSecurityInfoW, 0, 0);
    for (const int nResult : {1, 0})
    {
        CZNPair pair(root / "from", root / "to");
        const auto prove = [&](auto& findings) { pair.Prove(CZNPair(L"", L""), nullptr, findings); };
        EXPECT_EQ(theApp.CopyZNFiles(At(L"\\to"), At(L"\\from"), prove), nResult);
        strLinks = root;
    }
    EXPECT_THAT(capture.lines, Contains(HasSubstr("A link stands in the place of the file")));
}

TEST_F(Directories, DeletionNeverExaminesTheFirstEntry)
{
    fs::create_directories(root / "y\\s");
    for (const auto& [pszName, nAttributes] : {std::pair("..a", FILE_ATTRIBUTE_READONLY),
                                               {"s\\hidden", FILE_ATTRIBUTE_HIDDEN},
                                               {"z", FILE_ATTRIBUTE_SYSTEM}})
    {
        WriteAll(root / "x" / pszName, "content", nAttributes);
        CopyFileW((root / "x" / pszName).c_str(), (root / "y" / pszName).c_str(), TRUE);
    }
    bool fDots = false; // whether a listing begins with "."
    std::vector<std::wstring> reset;
    const auto attributes = Hook(SetFileAttributesW, [&](LPCWSTR psz, DWORD n) {
        return reset.push_back(fs::path(psz).filename()), SetFileAttributesW(psz, n);
    });
    const auto first = Hook(FindFirstFileW, [&](LPCWSTR psz, WIN32_FIND_DATAW* p) {
        const HANDLE hFind = FindFirstFileW(psz, p);
        while (!fDots && std::wstring_view(psz).ends_with(L"x\\*") && std::wcslen(p->cFileName) < 3)
            FindNextFileW(hFind, p);
        return hFind;
    });
    // The directory is listed last, and as hidden, which not every platform keeps of it.
    const auto next = Hook(FindNextFileW, [held = WIN32_FIND_DATAW()](HANDLE hFind, auto* p) mutable {
        BOOL fFound = FindNextFileW(hFind, p);
        if (fFound && *p->cFileName == L's')
        {
            held = *p;
            fFound = FindNextFileW(hFind, p);
        }
        if (fFound || *held.cFileName == L'\0')
            return fFound;
        *p = std::exchange(held, {});
        p->dwFileAttributes |= FILE_ATTRIBUTE_HIDDEN;
        return TRUE;
    });
    CZNPair pair(root / "x", root / "y");
    CZNFindings findings;
    ASSERT_TRUE(pair.Prove(CZNPair(L"", L""), nullptr, findings));
    EXPECT_EQ(theApp.DeleteZNFiles(At(L"\\x"), pair), 0);
    EXPECT_THAT(Names("x"), ElementsAre(L"..a"));
    fDots = true;
    for (const int nTime : {1, 2}) // the second time nothing is there
        EXPECT_EQ(theApp.DeleteZNFiles(At(L"\\x"), pair), 1) << nTime;
    EXPECT_FALSE(fs::exists(root / "x"));
    EXPECT_THAT(reset, ElementsAre(L"s", L"hidden", L"..a")); // not of the system file
}
