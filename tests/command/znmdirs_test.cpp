#include <windows.h>
#include <aclapi.h>
#include <shellapi.h>

#include "tracecapture.h"
#include "tempdir.h"
#include "znmapp.h"

using testing::Contains;
using testing::ElementsAre;

namespace
{
class Directories : public testing::Test, public TempDir
{
  protected:
    CString At(const wchar_t* psz) const { return (root.wstring() + psz).c_str(); }
    fs::path Path(const char* psz) const { return root.string() + psz; }
    std::string Narrow(const char* psz) const { return root.string() + psz; }
    void Make(const char* psz, DWORD nAttributes = FILE_ATTRIBUTE_NORMAL) const
    {
        WriteAll(Path(psz), psz, nAttributes);
    }
};

using Shell = ImportHook<decltype(SHFileOperationW)>;
} // namespace

TEST_F(Directories, MissingPathsAreCreatedAndExistingOnesChecked)
{
    Make("\\file");
    const std::tuple<const wchar_t*, int, const char*> cases[] = {
        {L"\\a\\b\\c", 1, nullptr},
        {L"\\a\\b\\", 1, "- 173 The specified directory/file already exists"},
        {L"\\d\\e\\", 1, nullptr},
        {L"\\f\\\\g", 1, nullptr}, // an empty component is the directory it stands in
        {L"\\file", 0, "- 173 Specified directory/file is actually a file"},
        {L"\\file\\x", 0, "- 171 Specified path is not a directory"},
        {L"\\bad?name\\x", 0, "- 173 Cannot create directory structure"},
    };
    for (const auto& [pszPath, nExpected, pszTrace] : cases)
    {
        Capture capture;
        EXPECT_EQ(theApp.CheckAndCreateZNDirectory(At(pszPath)), nExpected) << pszPath;
        EXPECT_EQ(fs::is_directory(root.wstring() + pszPath), nExpected == 1) << pszPath;
        if (pszTrace != nullptr)
            EXPECT_TRUE(capture.Has(pszTrace)) << pszPath;
    }
    EXPECT_THAT(Names(), ElementsAre(L"a", L"a\\b", L"a\\b\\c", L"d", L"d\\e", L"f", L"f\\g", L"file"));
}

TEST_F(Directories, WalkReturnsTheCodeOfTheLastComponent)
{
    const auto create = [](const CString& strDir, const CString& strLast = {}) {
        return theApp.CreateZNDirectory(strDir, strLast);
    };
    Make("\\file");
    EXPECT_EQ(create(At(L"\\new\\x")), 0u);
    EXPECT_EQ(create(At(L"\\new\\x")) & 0x10, 0x10u); // exists: its attributes
    EXPECT_EQ(create(At(L"\\file\\x")), 3u);
    EXPECT_EQ(create(L"y", At(L"\\new")), 0u);
    std::vector<std::string> created;
    ImportHook<decltype(xcsCreateDirectory)> refuse(
        "xcsCreateDirectory", [&](const char* psz, int n1, void* p1, void* p2, int n2, uint32_t* pnReason) {
            EXPECT_TRUE(n1 == 1 && n2 == 1 && p1 == nullptr && p2 == nullptr);
            created.push_back(psz);
            *pnReason = 1816;
            return 9;
        });
    Capture capture;
    EXPECT_EQ(create(At(L"\\new\\z\\z")), 1816u);
    EXPECT_TRUE(capture.Has("# 171 Failed to create directory '" + Narrow("\\new\\z") + "': 1816"));
    EXPECT_EQ(create(L"\\\\srv\\share\\x"), 1816u); // its empty first component is tried as it is
    EXPECT_THAT(created, ElementsAre(Narrow("\\new\\z"), ""));
    ImportHook<decltype(GetFileAttributesW)> unreadable(
        "GetFileAttributesW", [](auto...) { return SetLastError(1117), INVALID_FILE_ATTRIBUTES; });
    EXPECT_EQ(create(At(L"\\new")), 1117u);
}

TEST_F(Directories, NewDirectoryIsSecuredAndAFailureOfThatIsNone)
{
    Capture capture;
    std::vector<std::wstring> secured;
    ImportHook<decltype(SetNamedSecurityInfoW)> set("SetNamedSecurityInfoW",
                                                    [&](LPWSTR psz, auto, DWORD nInfo, auto...) {
                                                        if (nInfo == DACL_SECURITY_INFORMATION)
                                                            secured.push_back(psz);
                                                        return DWORD{ERROR_ACCESS_DENIED};
                                                    });
    EXPECT_EQ(theApp.CheckAndCreateZNDirectory(At(L"\\p\\q")), 1);
    const std::wstring p = At(L"\\p").operator const wchar_t*();
    EXPECT_THAT(secured, ElementsAre(p, p, p + L"\\q", p + L"\\q")); // each tried twice, existing ones never
    EXPECT_EQ(capture.Count("- 171 Failed to set security on newly created directory"), 2);
    EXPECT_TRUE(capture.Has("# 171 Successfully created directory '" + Narrow("\\p\\q") + "'"));
    EXPECT_TRUE(capture.Has("- 31 Merging previous security settings"));
}

TEST_F(Directories, CopyHandsTheShellWholeListsOfAnyLength)
{
    for (const size_t nLength : {10, 259, 260, 509, 510, 511, 512, 1024, 32767})
    {
        const std::wstring strSrc = L"C:\\" + std::wstring(nLength - 3, L's'), strDest(nLength, L'd');
        const fs::path before = fs::current_path();
        Capture capture;
        Shell shell("SHFileOperationW", [&](LPSHFILEOPSTRUCTW p) {
            EXPECT_TRUE(p->hwnd == nullptr && p->wFunc == FO_COPY && p->fFlags == 0x0614 &&
                        !p->fAnyOperationsAborted && p->hNameMappings == nullptr &&
                        p->lpszProgressTitle == nullptr);
            EXPECT_EQ(std::wstring(p->pFrom, nLength + 4), strSrc + std::wstring(L"\\*\0\0", 4));
            EXPECT_EQ(std::wstring(p->pTo, nLength + 2), strDest + std::wstring(2, L'\0'));
            SetLastError(1224);
            return 0x7C;
        });
        EXPECT_EQ(theApp.CopyZNFiles(strDest.c_str(), strSrc.c_str()), 0);
        EXPECT_EQ(fs::current_path(), before);
        EXPECT_THAT(capture.Only("#"), Contains(testing::EndsWith("rc=124, gle=1224")));
        EXPECT_FALSE(capture.Has("> 31")); // nothing is secured after a failed copy
    }
}

TEST_F(Directories, CopyGoesOnWithoutItsCurrentDirectoryAndSecuresBothParts)
{
    Make("\\from\\a");
    for (const char* psz : {"\\log", "\\tolog"})
        fs::create_directory(Path(psz));
    const fs::path before = fs::current_path();
    const std::string strFiles = "- 174 Failed to set security on destination files",
                      strDirectory = "- 174 Failed to set security on destination directory",
                      strRestore = "- 174 Failed to restore original working directory!";
    const struct
    {
        bool fSaved,
            fSet; // whether the current directory can be asked for (the buffer is left alone), and be set
        std::wstring strUnsafe; // what cannot be secured
        std::vector<std::string> texts;
    } cases[] = {{false, true, L"-", {}},
                 {true, false, L"-", {strRestore}},
                 {true, true, L"\\a", {strFiles}},
                 {true, true, L"\\to", {strDirectory}},
                 {true, true, L"", {strFiles, strDirectory}}};
    for (const auto& c : cases)
    {
        Capture capture;
        ImportHook<decltype(GetCurrentDirectoryW)> current("GetCurrentDirectoryW", [&](DWORD n, LPWSTR psz) {
            return c.fSaved ? current.Real(n, psz) : 300;
        });
        ImportHook<decltype(SetCurrentDirectoryW)> change(
            "SetCurrentDirectoryW", [&](LPCWSTR psz) { return c.fSet && change.Real(psz); });
        ImportHook<decltype(SetNamedSecurityInfoW)> set(
            "SetNamedSecurityInfoW", [&](LPWSTR psz, auto...) -> DWORD {
                return std::wstring_view(psz).ends_with(c.strUnsafe) ? 5 : 0;
            });
        fs::remove_all(Path("\\to"));
        fs::create_directory(Path("\\to"));
        ASSERT_TRUE(theApp.m_sources.Look({At(L"\\from"), At(L"\\to"), At(L"\\log"), At(L"\\tolog"), At(L"")},
                                          [](const ZNFinding&) { return true; }));
        EXPECT_EQ(theApp.CopyZNFiles(At(L"\\to"), At(L"\\from")), c.strUnsafe == L"-") << &c - cases;
        std::vector<std::string> texts = capture.Only("-");
        std::erase_if(texts, [](const std::string& str) { return !str.starts_with("- 174"); });
        EXPECT_EQ(texts, c.texts) << &c - cases;
        EXPECT_EQ(
            capture.Has("# 174 Current Dir = " + before.string() + ", Changing to = " + Narrow("\\from")),
            c.fSaved);
        EXPECT_EQ(capture.Count("- 31 Discarding previous security settings"), 2);
        EXPECT_EQ(capture.Has("# 174 Failed to change current directory to '" + Narrow("\\from") + "'"),
                  !c.fSet);
        EXPECT_EQ(fs::current_path(), c.fSaved ? before : Path("\\from"));
        fs::current_path(before);
    }
}

TEST_F(Directories, DeletionTakesTheWholeTreeDepthFirst)
{
    Make("\\x\\.config", FILE_ATTRIBUTE_HIDDEN);
    Make("\\x\\..x\\deep\\f", FILE_ATTRIBUTE_READONLY);
    Make("\\x\\system", FILE_ATTRIBUTE_SYSTEM);
    std::vector<std::wstring> reset;
    ImportHook<decltype(SetFileAttributesW)> attributes("SetFileAttributesW", [&](LPCWSTR psz, DWORD n) {
        EXPECT_EQ(n, 0x80u);
        reset.push_back(fs::path(psz).filename());
        return attributes.Real(psz, n);
    });
    std::vector<std::wstring>
        open; // searches, the innermost last: while a directory's is open it cannot be removed
    ImportHook<decltype(FindFirstFileW)> first(
        "FindFirstFileW", [&](LPCWSTR psz, auto p) { return open.push_back(psz), first.Real(psz, p); });
    ImportHook<decltype(FindClose)> close("FindClose",
                                          [&](HANDLE h) { return open.pop_back(), close.Real(h); });
    ImportHook<decltype(RemoveDirectoryW)> remove("RemoveDirectoryW", [&](LPCWSTR psz) {
        EXPECT_TRUE(open.empty() || open.back() != psz + std::wstring(L"\\*")) << psz;
        return remove.Real(psz);
    });
    Capture capture;
    EXPECT_EQ(theApp.DeleteZNFiles(At(L"\\x")), 1);
    EXPECT_FALSE(fs::exists(Path("\\x")));
    EXPECT_THAT(reset,
                testing::AllOf(Contains(L"f"), Contains(L".config"), testing::Not(Contains(L"system"))));
    std::vector<std::string> done;
    for (const std::string& str : capture.Only("#"))
        if (const size_t n = str.find("Successfully deleted "); n != std::string::npos)
            done.push_back(str.substr(n + 21, 4) + str.substr(str.rfind('\\') + 1));
    EXPECT_THAT(done,
                ElementsAre("filef'", "diredeep'", "dire..x'", "file.config'", "filesystem'", "direx'"));

    EXPECT_EQ(theApp.DeleteZNFiles(At(L"\\missing")), 1);
    EXPECT_FALSE(capture.Has("# 176 Unable"));
}

TEST_F(Directories, DeletionStopsAtTheFirstFailureWithItsOwnError)
{
    for (const char* psz : {"\\x\\a", "\\x\\s\\locked", "\\x\\z"})
        Make(psz);
    ImportHook<decltype(FindClose)> close("FindClose",
                                          [&](HANDLE h) { return SetLastError(6), close.Real(h); });
    Capture capture;
    {
        ImportHook<decltype(DeleteFileW)> remove("DeleteFileW", [&](LPCWSTR psz) {
            return wcsstr(psz, L"locked") == nullptr ? remove.Real(psz) : (SetLastError(32), FALSE);
        });
        EXPECT_EQ(theApp.DeleteZNFiles(At(L"\\x")), 0);
        EXPECT_TRUE(
            capture.Has("# 176 Unable to delete file '" + Narrow("\\x\\s\\locked") + "', error '32'"));
        EXPECT_THAT(Names("x"), ElementsAre(L"s", L"s\\locked", L"z"));
    }
    ImportHook<decltype(RemoveDirectoryW)> remove("RemoveDirectoryW",
                                                  [](auto...) { return SetLastError(145), FALSE; });
    EXPECT_EQ(theApp.DeleteZNFiles(At(L"\\x")), 0);
    EXPECT_TRUE(capture.Has("# 176 Unable to delete directory '" + Narrow("\\x\\s") + "', error '145'"));
    EXPECT_THAT(Names("x"), ElementsAre(L"s", L"z"));
}

TEST_F(Directories, FirstEntryOfAListingIsNeverExamined)
{
    Make("\\x\\first");
    Make("\\x\\second");
    // A file system that lists neither "." nor "..".
    ImportHook<decltype(FindFirstFileW)> first("FindFirstFileW", [&](LPCWSTR psz, WIN32_FIND_DATAW* p) {
        const HANDLE hFind = first.Real(psz, p);
        while (p->cFileName[0] == L'.')
            FindNextFileW(hFind, p);
        return hFind;
    });
    Capture capture;
    EXPECT_EQ(theApp.DeleteZNFiles(At(L"\\x")), 0);
    EXPECT_THAT(Names("x"), ElementsAre(L"first"));
    EXPECT_TRUE(capture.Has("# 176 Unable to delete directory '" + Narrow("\\x") + "', error '145'"));
}
