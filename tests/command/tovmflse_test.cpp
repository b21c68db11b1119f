#include <windows.h>
#include <sddl.h>

#include <map>
#include <set>

#include "tracecapture.h"
#include "tempdir.h"
#include "tovmflse.h"

using testing::ElementsAre;

namespace
{
// Access lists by path, in the place of the file system's: that of the test platform keeps only permission
// bits.
struct AccessLists
{
    std::map<std::string, std::string> lists; // in the system's own text form
    std::vector<std::string> written;         // paths, in order; an owner as "owner <path>"
    std::vector<DWORD> writeResults;          // of the next writes of access lists; then 0
    DWORD nReadResult = 0;

    static std::string Narrow(LPCWSTR psz) { return static_cast<const char*>(CW2A(psz)); }
    ImportHook<decltype(GetNamedSecurityInfoW)> get{
        "GetNamedSecurityInfoW",
        [this](LPCWSTR psz, auto eType, auto nInfo, auto ppOwner, auto ppGroup, PACL* ppDacl, auto ppSacl,
               auto ppDescriptor) -> DWORD {
            EXPECT_TRUE(eType == SE_FILE_OBJECT && nInfo == 4 && !ppOwner && !ppGroup && !ppSacl);
            if (nReadResult != 0 || !lists.contains(Narrow(psz)))
                return nReadResult != 0 ? nReadResult : ERROR_FILE_NOT_FOUND;
            BOOL fPresent, fDefaulted;
            ConvertStringSecurityDescriptorToSecurityDescriptorA(lists[Narrow(psz)].c_str(), 1, ppDescriptor,
                                                                 nullptr);
            GetSecurityDescriptorDacl(*ppDescriptor, &fPresent, ppDacl, &fDefaulted);
            return 0;
        }};
    ImportHook<decltype(SetNamedSecurityInfoW)> set{
        "SetNamedSecurityInfoW",
        [this](LPWSTR psz, auto eType, DWORD nInfo, PSID pOwner, PSID pGroup, PACL pDacl,
               PACL pSacl) -> DWORD {
            EXPECT_TRUE(eType == SE_FILE_OBJECT && !pGroup && !pSacl);
            written.push_back((pOwner != nullptr ? "owner " : "") + Narrow(psz));
            if (nInfo != DACL_SECURITY_INFORMATION)
                return 0;
            const DWORD nResult = writeResults.empty() ? 0 : writeResults.front();
            if (!writeResults.empty())
                writeResults.erase(writeResults.begin());
            if (nResult != 0)
                return nResult;
            SECURITY_DESCRIPTOR descriptor;
            char* pszText = nullptr;
            InitializeSecurityDescriptor(&descriptor, SECURITY_DESCRIPTOR_REVISION);
            SetSecurityDescriptorDacl(&descriptor, TRUE, pDacl, FALSE);
            ConvertSecurityDescriptorToStringSecurityDescriptorA(&descriptor, 1, nInfo, &pszText, nullptr);
            lists[Narrow(psz)] = pszText;
            LocalFree(pszText);
            return 0;
        }};
    // The group znm is S-1-5-9 ("ED"), any other account S-1-5-7 ("AN").
    ImportHook<decltype(LookupAccountNameW), struct LookupTag> lookup{
        "LookupAccountNameW", [](LPCWSTR, LPCWSTR psz, PSID pSid, DWORD* pnSize, auto...) -> BOOL {
            return CreateWellKnownSid(wcscmp(psz, L"znm") == 0 ? WinEnterpriseControllersSid
                                                               : WinAnonymousSid,
                                      nullptr, pSid, pnSize);
        }};
};

BOOL Change(bool fDirectory, bool fDiscard, const wchar_t* pszUser = nullptr, uint32_t nWorldMode = 2)
{
    CZNMFileSecurity security(pszUser);
    return fDirectory ? security.ChangeDirSecurity(L"C:\\x", fDiscard, nWorldMode, GENERIC_READ, 3)
                      : security.ChangeFileSecurity(L"C:\\x", fDiscard, nWorldMode, GENERIC_READ);
}

// A tree made for one test; names that end in a backslash are directories.
struct Tree : TempDir
{
    explicit Tree(std::initializer_list<const char*> names)
    {
        for (const std::string strName : names)
            strName.back() == '\\' ? void(fs::create_directories(root / strName))
                                   : WriteAll(root / strName, "content");
    }
};
} // namespace

TEST(FileSecurity, AccessListsAreMergedOrReplaced)
{
    const std::string F = "(A;;GA;;;BA)(A;;GA;;;ED)(A;;GA;;;SY)",
                      R = "(A;OICI;GA;;;BA)(A;OICI;GA;;;ED)(A;OICI;GA;;;SY)";
    const std::string ANY = "(A;;FR;;;SY)(A;ID;FR;;;BA)(A;;FR;;;ED)", USER = "(A;OICI;GA;;;AN)",
                      WORLD = "(A;;GA;;;WD)", OTHER = "(D;;GA;;;AN)(A;;GR;;;BU)";
    const struct
    {
        bool fDirectory, fDiscard;
        const wchar_t* pszUser;
        std::string strOld, strNew; // "none": no such object; "": not written
        uint32_t nWorldMode = 2;
    } cases[] = {
        // Whoever has an entry has access enough, whatever the entry allows. A denial is no access; other
        // entries stay.
        {false, false, nullptr, ANY, ""},
        {true, false, nullptr, ANY, ""},
        {false, false, L"u", ANY + "(A;;FR;;;AN)", ""},
        {false, false, L"u", "(A;;GR;;;SY)(A;;GR;;;BA)(A;;GR;;;ED)(D;;GR;;;AN)", F + USER},
        {false, false, nullptr, OTHER, OTHER + F},
        // Everyone: only restated, never added.
        {false, false, nullptr, WORLD, "(A;;GR;;;WD)" + F},
        {true, false, nullptr, WORLD, "(A;OICI;GR;;;WD)" + R},
        {true, false, nullptr, WORLD, WORLD + R, 0},
        {true, false, nullptr, "(A;;GR;;;BU)", "(A;;GR;;;BU)" + R},
        {false, true, nullptr, WORLD, F},
        {true, true, nullptr, WORLD, R},
        {false, true, L"u", WORLD, F + USER},
        {true, true, L"u", ANY, R + USER},
        // No entry, no list at all, no object.
        {false, false, nullptr, "", F},
        {true, false, nullptr, "NO_ACCESS_CONTROL", R},
        {true, false, nullptr, "none", R},
    };
    // Entries as a set: where a merge puts them, and whether it keeps a denial of what it allows ("D;;GR"),
    // is the system's.
    auto entries = [](const std::string& str) {
        std::multiset<std::string> result;
        for (size_t n = str.find('('); n != str.npos; n = str.find('(', n + 1))
            result.insert(str.substr(n, str.find(')', n) + 1 - n));
        std::erase_if(result, [](const std::string& strEntry) { return strEntry.starts_with("(D;;GR"); });
        return result;
    };
    for (const auto& c : cases)
    {
        AccessLists lists;
        if (c.strOld != "none")
            lists.lists["C:\\x"] = "D:" + c.strOld;
        EXPECT_EQ(Change(c.fDirectory, c.fDiscard, c.pszUser, c.nWorldMode), TRUE);
        EXPECT_EQ(lists.written.empty(), c.strNew.empty()) << &c - cases;
        if (!c.strNew.empty())
            EXPECT_EQ(entries(lists.lists["C:\\x"]), entries(c.strNew)) << &c - cases;
        if (c.fDiscard)
            EXPECT_EQ(lists.lists["C:\\x"], "D:" + c.strNew);
    }
}

TEST(FileSecurity, RefusedWriteIsTriedOnceMoreAfterTakingOwnership)
{
    for (const bool fDirectory : {false, true})
        for (const auto& [results, fSuccess] :
             {std::pair{std::vector<DWORD>{5}, TRUE}, {{87}, TRUE}, {{5, 5}, FALSE}, {{2, 3}, FALSE}})
        {
            Capture capture;
            AccessLists lists;
            lists.writeResults = results;
            EXPECT_EQ(Change(fDirectory, true), fSuccess);
            EXPECT_THAT(lists.written, ElementsAre("C:\\x", "owner C:\\x", "C:\\x"));
            const std::string f = fDirectory ? "34" : "33", strKind = fDirectory ? "directory" : "file";
            EXPECT_TRUE(capture.Has("- " + f + " Access denied! Changing ownership and retrying"));
            EXPECT_EQ(capture.Has("# " + f + " Set " + strKind + " security 'C:\\x'"), fSuccess == TRUE);
            const std::string strText =
                " Error " + std::to_string(results.back()) + " setting " + strKind + " security on 'C:\\x'";
            EXPECT_EQ(capture.Has("! " + f + (fDirectory ? "/16" : "/10") + strText), fSuccess == FALSE);
        }
}

TEST(FileSecurity, FailuresBeforeTheWriteAreRecordedAndWriteNothing)
{
    for (const bool fDirectory : {false, true})
    {
        Capture capture;
        AccessLists lists;
        const wchar_t* pszRefused = L"znm";
        DWORD nMergeResult = 0;
        ImportHook<decltype(LookupAccountNameW)> refuse(
            "LookupAccountNameW", [&](LPCWSTR p, LPCWSTR psz, auto... args) -> BOOL {
                return wcscmp(psz, pszRefused) == 0 ? (SetLastError(1332), FALSE)
                                                    : refuse.Real(p, psz, args...);
            });
        ImportHook<decltype(SetEntriesInAclW)> merge("SetEntriesInAclW",
                                                     [&](auto...) { return nMergeResult; });
        EXPECT_EQ(Change(fDirectory, false, L"u"), FALSE);
        pszRefused = L"u";
        EXPECT_EQ(Change(fDirectory, false, L"u"), FALSE);
        lists.nReadResult = 5;
        EXPECT_EQ(Change(fDirectory, false), FALSE);
        lists.nReadResult = 0;
        nMergeResult = 1336;
        EXPECT_EQ(Change(fDirectory, false), FALSE);
        EXPECT_TRUE(lists.written.empty());
        EXPECT_EQ(capture.Count(fDirectory ? "! 34/11 Create SID error, directory: C:\\x"
                                           : "! 33/4 Create SID error, file: C:\\x"),
                  2);
        EXPECT_TRUE(capture.Has(std::string(fDirectory ? "# 34" : "! 33/5") +
                                " Error 5 getting security info 'C:\\x'"));
        EXPECT_TRUE(capture.Has(std::string(fDirectory ? "! 34/15 Dir security: e" : "! 33/9 E") +
                                "rror 1336 merging ACLs on 'C:\\x'"));
    }
}

TEST(FileSecurity, ScanThatStopsKeepsItsBitsAndMerges)
{
    // What the third entry becomes: none, of an unknown type, with a bad SID. The first two are
    // Administrators' and Local System's.
    const char* const texts[] = {"Unable to retrieve ACE in ACL!", "Incorrect ACE type specified!",
                                 "Invalid SID specified in ACE!"};
    for (const int nCase : {0, 1, 2, 3, 4, 5})
    {
        Capture capture;
        AccessLists lists;
        lists.lists["C:\\x"] = "D:(A;;GR;;;BA)(A;;GR;;;SY)(A;;GR;;;WD)(A;;GR;;;ED)";
        ImportHook<decltype(GetAce)> getAce("GetAce", [&](PACL pAcl, DWORD i, LPVOID* ppAce) -> BOOL {
            getAce.Real(pAcl, i, ppAce);
            if (i == 2 && nCase % 3 == 1)
                static_cast<ACE_HEADER*>(*ppAce)->AceType = ACCESS_ALLOWED_OBJECT_ACE_TYPE;
            return i != 2 || nCase % 3 != 0;
        });
        int nSids = 0;
        ImportHook<decltype(IsValidSid)> isValid(
            "IsValidSid", [&](PSID) -> BOOL { return nCase % 3 != 2 || ++nSids <= 2; });
        // Nothing that follows may fail because of the entry that was spoiled.
        ImportHook<decltype(SetEntriesInAclW)> merge(
            "SetEntriesInAclW", [&](ULONG n, PEXPLICIT_ACCESSW p, PACL pOld, PACL* ppNew) {
                EXPECT_TRUE(pOld != nullptr && n == 3); // Everyone's entry came with the end of the scan
                return merge.Real(n, p, nullptr, ppNew);
            });
        EXPECT_EQ(Change(nCase >= 3, false), TRUE);
        const std::string f = nCase >= 3 ? "34" : "33",
                          strProbe = std::to_string((nCase >= 3 ? 9 : 6) + nCase);
        EXPECT_THAT(capture.Only("!"), ElementsAre("! " + f + "/" + strProbe + " " + texts[nCase % 3]));
        EXPECT_TRUE(capture.Has("# " + f + " Current SID Flags = 0003"));
        EXPECT_EQ(lists.written.size(), 1u);
    }
}

TEST(FileSecurity, VolumeIsTestedOnceForEachFirstCharacter)
{
    std::vector<std::string> tested;
    int nResult = 0;
    uint32_t nRootLength = 0;
    ImportHook<decltype(xcsVolumeSupportsSecurity)> volume("xcsVolumeSupportsSecurity",
                                                           [&](const char* psz, uint32_t* pn) {
                                                               tested.push_back(psz);
                                                               EXPECT_EQ(std::exchange(*pn, nRootLength), 0u);
                                                               return nResult;
                                                           });
    CZNMFileSecurity first(nullptr), second(nullptr);
    const auto supports = [&](CZNMFileSecurity& object, const std::wstring& strPath, int nAnswer,
                              uint32_t nLength = 3) {
        nResult = nAnswer;
        nRootLength = nLength;
        return object.DiskSupportsSecurity(strPath.c_str()) == TRUE;
    };
    EXPECT_TRUE(supports(first, L"E:\\a\\b*c\\*", 0) && supports(first, L"e:\\other", 1));
    EXPECT_FALSE(supports(first, L"F:\\x", 0x40806178) || supports(first, L"F:\\y", 0));
    // The answer is shared, the root is each object's.
    EXPECT_TRUE(supports(second, L"\\\\srv\\s", 0) && supports(first, L"F:\\y", 1) &&
                supports(second, L"\\\\else\\s", 1));
    for (const wchar_t* psz : {L"G:\\", L"G:\\", L"*"})
        EXPECT_FALSE(supports(first, psz, 7, 0)); // nothing is remembered
    EXPECT_THAT(tested, ElementsAre("E:\\a", "F:\\x", "\\\\srv\\s", "G:\\", "G:\\", ""));
    EXPECT_TRUE(supports(first, L"H:\\" + std::wstring(3000, L'x'), 0,
                         0xFFFFFFFF)); // a library that reports nonsense
}

TEST(FileSecurity, WalksFilesThenSubdirectoriesThenTheDirectory)
{
    const Tree tree({"b", "a", "s\\t\\u\\deep", "s\\f", "z\\"});
    const std::tuple<const char*, uint32_t, uint32_t, std::string> cases[] = {
        {"\\*", 1, 1, "\\a \\b \\s\\f \\s\\t\\u\\deep "},
        {"\\*", 1, 0, "\\a \\b "},
        {"\\d*", 1, 1, "\\s\\t\\u\\deep "},
        {"", 0, 1, "\\s\\t\\u \\s\\t \\s \\z  "},
        {"", 0, 0, " "},
        {"\\z\\*", 1, 1, ""}};
    for (const auto& [pszPath, fFiles, fSubdirs, strExpected] : cases)
    {
        AccessLists lists;
        CZNMFileSecurity security(nullptr);
        EXPECT_EQ(security.SetSecurityOnFiles(CString((tree.root.string() + pszPath).c_str()), fFiles,
                                              fSubdirs, 1, 2, 0, 3),
                  TRUE);
        std::string strResult;
        for (const std::string& strPath : lists.written)
            strResult += strPath.substr(tree.root.string().size()) + " ";
        EXPECT_EQ(strResult, strExpected);
    }
}

TEST(FileSecurity, FailuresDoNotStopTheWalk)
{
    const Tree tree({"a", "b", "s\\c"});
    const CString strPattern((tree.root.string() + "\\*").c_str());
    for (const auto& [nError, fSuccess] :
         {std::pair{0, FALSE}, {2, TRUE}, {3, TRUE}, {123, TRUE}, {5, FALSE}, {18, FALSE}})
    {
        Capture capture;
        AccessLists lists;
        if (nError == 0)
            lists.writeResults = {5, 5}; // here it is the first file that is refused
        ImportHook<decltype(FindFirstFileExW)> find(
            "FindFirstFileExW", [&](LPCWSTR psz, auto eLevel, auto p, auto eOp, auto, DWORD nFlags) {
                EXPECT_TRUE(eLevel == FindExInfoStandard && nFlags == 0);
                const bool fFails = nError != 0 && wcsstr(psz, L"\\s\\") != nullptr;
                const HANDLE hFind =
                    fFails ? INVALID_HANDLE_VALUE : find.Real(psz, eLevel, p, eOp, nullptr, nFlags);
                if (fFails)
                    SetLastError(nError);
                return hFind;
            });
        CZNMFileSecurity security(nullptr);
        EXPECT_EQ(security.SetSecurityOnFiles(strPattern, 1, 1, 1, 2, 0, 0), fSuccess);
        const std::string strText =
            ") error " + std::to_string(nError) + ", path '" + tree.root.string() + "\\s\\*'";
        for (const std::string strSearch : {"1", "2"})
            EXPECT_EQ(capture.Has("! 31/" + strSearch + " FindFirstFileEx(" + strSearch + strText),
                      fSuccess == FALSE && nError != 0);
        EXPECT_EQ(lists.written.size(),
                  nError == 0 ? 5u : 2u); // refused: twice and the owner, then the other two files
    }
}

TEST(FileSecurity, PathsThatCannotBeTakenAreFailures)
{
    AccessLists lists;
    CZNMFileSecurity fresh(nullptr);
    const auto walk = [](CZNMFileSecurity& security, const std::wstring& str, uint32_t fFiles = 0) {
        return security.SetSecurityOnFiles(str.c_str(), fFiles, 0, 1, 1, 0, 0);
    };
    EXPECT_EQ(walk(fresh, L"pattern", 1), FALSE); // no backslash
    // The limit is the test's of the volume, and once that is known, the walk's own.
    for (const auto& [nLength, fUntested, fTested] : {std::tuple<size_t, BOOL, BOOL>{260, TRUE, TRUE},
                                                      {261, FALSE, TRUE},
                                                      {1023, FALSE, TRUE},
                                                      {1024, FALSE, FALSE},
                                                      {32767, FALSE, FALSE}})
    {
        const std::wstring strPath = L"C:\\" + std::wstring(nLength - 3, L'x');
        CZNMFileSecurity tested(nullptr), untested(nullptr);
        tested.DiskSupportsSecurity(L"C:\\");
        lists.written.clear();
        EXPECT_EQ(walk(untested, strPath), fUntested) << nLength;
        EXPECT_EQ(walk(tested, strPath), fTested) << nLength;
        EXPECT_EQ(static_cast<int>(lists.written.size()), fUntested + fTested);
    }
    ImportHook<decltype(xcsVolumeSupportsSecurity)> none("xcsVolumeSupportsSecurity",
                                                         [](auto...) { return 1; });
    EXPECT_EQ(walk(fresh, L"Q:\\x"), TRUE); // nothing to do is no failure
}
