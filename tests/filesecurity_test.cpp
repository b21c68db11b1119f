#include <windows.h>
#include <sddl.h>

#include <map>

#include "capture.h"
#include "tempdir.h"
#include "tovmflse.h"

using testing::ElementsAre;

namespace {
// Access lists by path, in the place of the file system's: that of the test platform keeps only permission
// bits.
struct AccessLists {
    std::map<std::wstring, std::wstring> lists; // in the system's own text form
    std::vector<std::wstring> written;          // paths, in order; an owner as "owner <path>"
    std::vector<DWORD> writeResults;            // of the next writes of access lists; then 0
    DWORD nReadResult = 0;

    ImportHook<decltype(GetNamedSecurityInfoW)> get{"GetNamedSecurityInfoW",
        [this](LPCWSTR psz, SE_OBJECT_TYPE eType, DWORD nInfo, PSID* ppOwner, PSID* ppGroup, PACL* ppDacl, PACL* ppSacl,
            PSECURITY_DESCRIPTOR* ppDescriptor) -> DWORD {
            EXPECT_TRUE(eType == SE_FILE_OBJECT && nInfo == 4 && !ppOwner && !ppGroup && !ppSacl);
            if (nReadResult != 0 || !lists.contains(psz)) return nReadResult != 0 ? nReadResult : ERROR_FILE_NOT_FOUND;
            BOOL fPresent, fDefaulted;
            ConvertStringSecurityDescriptorToSecurityDescriptorW(lists[psz].c_str(), 1, ppDescriptor, nullptr);
            GetSecurityDescriptorDacl(*ppDescriptor, &fPresent, ppDacl, &fDefaulted);
            return 0;
        }};
    ImportHook<decltype(SetNamedSecurityInfoW)> set{"SetNamedSecurityInfoW",
        [this](LPWSTR psz, SE_OBJECT_TYPE eType, DWORD nInfo, PSID pOwner, PSID pGroup, PACL pDacl, PACL pSacl) -> DWORD {
            EXPECT_TRUE(eType == SE_FILE_OBJECT && !pGroup && !pSacl);
            written.push_back((pOwner != nullptr ? L"owner " : L"") + std::wstring(psz));
            if (nInfo != DACL_SECURITY_INFORMATION) return 0;
            if (!writeResults.empty()) {
                const DWORD nResult = writeResults.front();
                writeResults.erase(writeResults.begin());
                if (nResult != 0) return nResult;
            }
            SECURITY_DESCRIPTOR descriptor;
            wchar_t* pszText = nullptr;
            InitializeSecurityDescriptor(&descriptor, SECURITY_DESCRIPTOR_REVISION);
            SetSecurityDescriptorDacl(&descriptor, TRUE, pDacl, FALSE);
            ConvertSecurityDescriptorToStringSecurityDescriptorW(&descriptor, 1, nInfo, &pszText, nullptr);
            lists[psz] = pszText;
            LocalFree(pszText);
            return 0;
        }};
    // The group znm is S-1-5-9, any other account S-1-5-7: with names that are short in text form.
    ImportHook<decltype(LookupAccountNameW)> lookup{
        "LookupAccountNameW", [](LPCWSTR, LPCWSTR psz, PSID pSid, DWORD* pnSize, LPWSTR, DWORD*, SID_NAME_USE*) -> BOOL {
            return CreateWellKnownSid(wcscmp(psz, L"znm") == 0 ? WinEnterpriseControllersSid : WinAnonymousSid, nullptr, pSid, pnSize);
        }};
};

constexpr wchar_t FILE_ENTRIES[] = L"(A;;GA;;;BA)(A;;GA;;;ED)(A;;GA;;;SY)";
constexpr wchar_t DIR_ENTRIES[] = L"(A;OICI;GA;;;BA)(A;OICI;GA;;;ED)(A;OICI;GA;;;SY)";

// A tree made for one test; names that end in a backslash are directories.
struct Tree : TempDir {
    const std::wstring strRoot = root.wstring();
    explicit Tree(std::initializer_list<const char*> names) {
        for (const std::string strName : names)
            strName.back() == '\\' ? void(fs::create_directories(root / strName)) : WriteAll(root / strName, "content");
    }
};
} // namespace

TEST(FileSecurity, AccessListsAreMergedOrReplaced) {
    const std::wstring D = L"D:", F = FILE_ENTRIES, R = DIR_ENTRIES;
    const struct {
        bool fDirectory, fDiscard;
        const wchar_t* pszUser;
        std::wstring strOld; // "": no such object
        std::wstring strNew; // "": not written
        uint32_t nWorldMode = 2;
    } cases[] = {
        // Whoever has an entry has access enough, whatever the entry allows.
        {false, false, nullptr, L"D:(A;;FR;;;SY)(A;;FR;;;BA)(A;;FR;;;ED)", L""},
        {true, false, nullptr, L"D:(A;;FR;;;SY)(A;ID;FR;;;BA)(A;;FR;;;ED)", L""},
        {false, false, L"u", L"D:(A;;FR;;;SY)(A;;FR;;;BA)(A;;FR;;;ED)(A;;FR;;;AN)", L""},
        {false, false, L"u", L"D:(A;;GR;;;SY)(A;;GR;;;BA)(A;;GR;;;ED)", L"D:(A;;GA;;;SY)(A;;GA;;;BA)(A;;GA;;;ED)(A;OICI;GA;;;AN)"},
        // A denial is no access; other entries stay.
        {false, false, nullptr, L"D:(D;;GA;;;AN)(A;;GR;;;BU)", L"D:(D;;GA;;;AN)(A;;GR;;;BU)" + F},
        // Everyone: only restated, never added.
        {false, false, nullptr, L"D:(A;;GA;;;WD)", L"D:(A;;GR;;;WD)(A;;GA;;;BA)(A;;GA;;;ED)(A;;GA;;;SY)"},
        {true, false, nullptr, L"D:(A;;GA;;;WD)", L"D:(A;OICI;GR;;;WD)" + R},
        {true, false, nullptr, L"D:(A;;GA;;;WD)", L"D:(A;;GA;;;WD)" + R, 0},
        {true, false, nullptr, L"D:(A;;GR;;;BU)", L"D:(A;;GR;;;BU)" + R},
        {false, true, nullptr, L"D:(A;;GA;;;WD)", D + F},
        {true, true, nullptr, L"D:(A;;GA;;;WD)", D + R},
        {false, true, L"u", L"D:(A;;GA;;;WD)", D + F + L"(A;OICI;GA;;;AN)"},
        {true, true, L"u", L"D:(A;;FR;;;SY)(A;;FR;;;BA)(A;;FR;;;ED)", D + R + L"(A;OICI;GA;;;AN)"},
        {false, false, nullptr, L"D:", D + F},
        {true, false, nullptr, L"D:NO_ACCESS_CONTROL", D + R}, // a null list counts as an empty one
        {true, false, nullptr, L"", D + R},
    };
    // Entries as a set: where a merge puts them is the system's.
    auto entries = [](const std::wstring& str) {
        std::vector<std::wstring> result;
        for (size_t n = str.find(L'('); n != std::wstring::npos; n = str.find(L'(', n + 1))
            result.push_back(str.substr(n, str.find(L')', n) + 1 - n));
        return result;
    };
    for (const auto& c : cases) {
        AccessLists lists;
        CZNMFileSecurity security(c.pszUser);
        if (!c.strOld.empty()) lists.lists[L"C:\\x"] = c.strOld;
        const BOOL fSuccess = c.fDirectory ? security.ChangeDirSecurity(L"C:\\x", c.fDiscard, c.nWorldMode, GENERIC_READ, 3)
                                           : security.ChangeFileSecurity(L"C:\\x", c.fDiscard, c.nWorldMode, GENERIC_READ);
        EXPECT_EQ(fSuccess, TRUE);
        EXPECT_EQ(lists.written.empty(), c.strNew.empty()) << &c - cases;
        if (!c.strNew.empty())
            EXPECT_THAT(entries(lists.lists[L"C:\\x"]), testing::UnorderedElementsAreArray(entries(c.strNew))) << &c - cases;
    }
}

TEST(FileSecurity, RefusedWriteIsTriedOnceMoreAfterTakingOwnership) {
    for (const bool fDirectory : {false, true})
        for (const auto& [results, fSuccess] : {std::pair{std::vector<DWORD>{5}, TRUE}, {{87}, TRUE}, {{5, 5}, FALSE}, {{2, 3}, FALSE}}) {
            Capture capture;
            AccessLists lists;
            lists.writeResults = results;
            CZNMFileSecurity security(nullptr);
            EXPECT_EQ(
                fDirectory ? security.ChangeDirSecurity(L"C:\\x", 1, 2, 0, 3) : security.ChangeFileSecurity(L"C:\\x", 1, 2, 0), fSuccess);
            EXPECT_THAT(lists.written, ElementsAre(L"C:\\x", L"owner C:\\x", L"C:\\x"));
            const std::string strFunction = fDirectory ? "34" : "33";
            const std::string strKind = fDirectory ? "directory" : "file";
            EXPECT_TRUE(capture.Has("- " + strFunction + " Access denied! Changing ownership and retrying"));
            EXPECT_EQ(capture.Has("# " + strFunction + " Set " + strKind + " security 'C:\\x'"), fSuccess == TRUE);
            EXPECT_EQ(capture.Has("! " + strFunction + (fDirectory ? "/16" : "/10") + " Error " + std::to_string(results.back()) +
                          " setting " + strKind + " security on 'C:\\x'"),
                fSuccess == FALSE);
        }
}

TEST(FileSecurity, FailuresBeforeTheWriteAreRecordedAndWriteNothing) {
    for (const bool fDirectory : {false, true}) {
        Capture capture;
        AccessLists lists;
        const std::string f = fDirectory ? "34/" : "33/", strKind = fDirectory ? "directory" : "file";
        auto change = [&](const wchar_t* pszUser = nullptr) {
            CZNMFileSecurity security(pszUser);
            return fDirectory ? security.ChangeDirSecurity(L"C:\\x", 0, 2, 0, 3) : security.ChangeFileSecurity(L"C:\\x", 0, 2, 0);
        };
        {
            ImportHook<decltype(LookupAccountNameW)> none("LookupAccountNameW",
                [](auto... args) { return SetLastError(wcscmp(std::get<1>(std::tie(args...)), L"znm") ? 1332u : 1331u), FALSE; });
            EXPECT_EQ(change(), FALSE);
        }
        {
            ImportHook<decltype(LookupAccountNameW)> noUser("LookupAccountNameW", [&](auto... args) -> BOOL {
                if (wcscmp(std::get<1>(std::tie(args...)), L"znm") == 0) return noUser.Real(args...);
                return SetLastError(1332), FALSE;
            });
            EXPECT_EQ(change(L"u"), FALSE);
        }
        lists.nReadResult = 5;
        EXPECT_EQ(change(), FALSE);
        {
            lists.nReadResult = 0;
            ImportHook<decltype(SetEntriesInAclW)> merge("SetEntriesInAclW", [](auto...) -> DWORD { return 1336; });
            EXPECT_EQ(change(), FALSE);
        }
        EXPECT_TRUE(lists.written.empty());
        const std::string strSid = "! " + f + (fDirectory ? "11" : "4") + " Create SID error, " + strKind + ": C:\\x";
        EXPECT_EQ(capture.Count(strSid), 2);
        EXPECT_EQ(capture.Has("! 33/5 Error 5 getting security info 'C:\\x'"), !fDirectory);
        EXPECT_EQ(capture.Has("# 34 Error 5 getting security info 'C:\\x'"), fDirectory);
        EXPECT_TRUE(capture.Has(
            fDirectory ? "! 34/15 Dir security: error 1336 merging ACLs on 'C:\\x'" : "! 33/9 Error 1336 merging ACLs on 'C:\\x'"));
    }
}

TEST(FileSecurity, ScanThatStopsKeepsItsBitsAndMerges) {
    // What is put in the place of the third entry; the first two were for Administrators and Local System.
    const std::pair<const char*, int> cases[] = {{"no entry", 0}, {"Incorrect ACE type specified!", 1}, {"sid", 2}};
    for (const auto& [pszCase, nCase] : cases)
        for (const bool fDirectory : {false, true}) {
            Capture capture;
            AccessLists lists;
            lists.lists[L"C:\\x"] = L"D:(A;;GR;;;BA)(A;;GR;;;SY)(A;;GR;;;WD)(A;;GR;;;ED)";
            ImportHook<decltype(GetAce)> getAce("GetAce", [&, n = nCase](PACL pAcl, DWORD i, LPVOID* ppAce) -> BOOL {
                if (i == 2 && n == 0) return FALSE;
                getAce.Real(pAcl, i, ppAce);
                if (i == 2 && n == 1) static_cast<ACE_HEADER*>(*ppAce)->AceType = ACCESS_ALLOWED_OBJECT_ACE_TYPE;
                return TRUE;
            });
            int nSids = 0;
            ImportHook<decltype(IsValidSid)> isValid("IsValidSid", [&, n = nCase](PSID) -> BOOL { return n != 2 || ++nSids <= 2; });
            // Nothing that follows may fail because of the entry that was spoiled.
            ImportHook<decltype(SetEntriesInAclW)> merge("SetEntriesInAclW", [&](ULONG n, PEXPLICIT_ACCESSW p, PACL pOld, PACL* ppNew) {
                EXPECT_NE(pOld, nullptr);
                EXPECT_EQ(n, 3u); // Everyone's entry came with the end of the scan
                return merge.Real(n, p, nullptr, ppNew);
            });
            CZNMFileSecurity security(nullptr);
            EXPECT_EQ(fDirectory ? security.ChangeDirSecurity(L"C:\\x", 0, 2, 0, 3) : security.ChangeFileSecurity(L"C:\\x", 0, 2, 0), TRUE);
            const char* const texts[] = {
                "Unable to retrieve ACE in ACL!", "Incorrect ACE type specified!", "Invalid SID specified in ACE!"};
            EXPECT_THAT(capture.Only("!"),
                ElementsAre(
                    "! " + std::string(fDirectory ? "34/" : "33/") + std::to_string((fDirectory ? 12 : 6) + nCase) + " " + texts[nCase]));
            EXPECT_TRUE(capture.Has(fDirectory ? "# 34 Current SID Flags = 0003" : "# 33 Current SID Flags = 0003"));
            EXPECT_EQ(lists.written.size(), 1u);
        }
}

TEST(FileSecurity, VolumeIsTestedOnceForEachFirstCharacter) {
    std::vector<std::string> tested;
    int nResult = 0;
    uint32_t nRootLength = 3;
    ImportHook<decltype(xcsVolumeSupportsSecurity)> volume("xcsVolumeSupportsSecurity", [&](const char* psz, uint32_t* pn) {
        tested.push_back(psz);
        EXPECT_EQ(*pn, 0u);
        *pn = nRootLength;
        return nResult;
    });
    CZNMFileSecurity security(nullptr), other(nullptr);
    EXPECT_EQ(security.DiskSupportsSecurity(L"E:\\a\\b*c\\*"), TRUE);
    nResult = 0x40806178;
    EXPECT_EQ(security.DiskSupportsSecurity(L"e:\\other"), TRUE);
    EXPECT_EQ(security.DiskSupportsSecurity(L"F:\\x"), FALSE);
    EXPECT_EQ(security.DiskSupportsSecurity(L"F:\\y"), FALSE);
    nResult = 0;
    EXPECT_EQ(other.DiskSupportsSecurity(L"\\\\srv\\s"),
        TRUE); // the answer is shared, the root is each object's
    EXPECT_EQ(security.DiskSupportsSecurity(L"F:\\y"), TRUE);
    EXPECT_EQ(other.DiskSupportsSecurity(L"\\\\else\\s"), TRUE);
    nResult = 7;
    nRootLength = 0; // not found: nothing is remembered
    for (const wchar_t* psz : {L"G:\\", L"G:\\", L"*"}) EXPECT_EQ(security.DiskSupportsSecurity(psz), FALSE);
    EXPECT_THAT(tested, ElementsAre("E:\\a", "F:\\x", "\\\\srv\\s", "G:\\", "G:\\", ""));
    nRootLength = 0xFFFFFFFF; // a library that reports nonsense
    nResult = 0;
    EXPECT_EQ(security.DiskSupportsSecurity((L"H:\\" + std::wstring(3000, L'x')).c_str()), TRUE);
}

TEST(FileSecurity, WalksFilesThenSubdirectoriesThenTheDirectory) {
    const Tree tree({"b", "a", "s\\t\\u\\deep", "s\\f", "z\\"});
    const uint32_t on = 1, off = 0, mode = 2, inheritance = 3;
    auto walk = [&](const std::wstring& str, const uint32_t& fFiles, const uint32_t& fSubdirs) {
        AccessLists lists;
        CZNMFileSecurity security(nullptr);
        EXPECT_EQ(security.SetSecurityOnFiles((tree.strRoot + str).c_str(), fFiles, fSubdirs, on, mode, off, inheritance), TRUE);
        for (std::wstring& strPath : lists.written) strPath.erase(0, tree.strRoot.size());
        return lists.written;
    };
    EXPECT_THAT(walk(L"\\*", on, on), ElementsAre(L"\\a", L"\\b", L"\\s\\f", L"\\s\\t\\u\\deep"));
    EXPECT_THAT(walk(L"\\*", on, off), ElementsAre(L"\\a", L"\\b"));
    EXPECT_THAT(walk(L"\\d*", on, on), ElementsAre(L"\\s\\t\\u\\deep"));
    EXPECT_THAT(walk(L"", off, on), ElementsAre(L"\\s\\t\\u", L"\\s\\t", L"\\s", L"\\z", L""));
    EXPECT_THAT(walk(L"", off, off), ElementsAre(L""));
    EXPECT_THAT(walk(L"\\z\\*", on, on), ElementsAre());
}

TEST(FileSecurity, FailuresDoNotStopTheWalk) {
    const Tree tree({"a", "b", "s\\c"});
    const std::wstring strPattern = tree.strRoot + L"\\*";
    const uint32_t on = 1, off = 0, two = 2;
    {
        AccessLists lists;
        lists.writeResults = {5, 5};
        CZNMFileSecurity security(nullptr);
        EXPECT_EQ(security.SetSecurityOnFiles(strPattern.c_str(), on, on, on, two, off, off), FALSE);
        EXPECT_EQ(lists.written.size(),
            5u); // twice and the owner for the first file, once each for the others
    }
    for (const auto& [nError, fSuccess] : {std::pair{2, TRUE}, {3, TRUE}, {123, TRUE}, {5, FALSE}, {18, FALSE}}) {
        Capture capture;
        AccessLists lists;
        int nOpen = 0;
        ImportHook<decltype(FindFirstFileExW)> find("FindFirstFileExW",
            [&, n = nError](LPCWSTR psz, FINDEX_INFO_LEVELS eLevel, void* p, FINDEX_SEARCH_OPS eOp, void* pFilter, DWORD nFlags) {
                EXPECT_TRUE(eLevel == FindExInfoStandard && pFilter == nullptr && nFlags == 0);
                if (wcsstr(psz, L"\\s\\") == nullptr) return ++nOpen, find.Real(psz, eLevel, p, eOp, pFilter, nFlags);
                SetLastError(static_cast<DWORD>(n));
                return INVALID_HANDLE_VALUE;
            });
        ImportHook<decltype(FindClose)> close("FindClose", [&](HANDLE h) { return --nOpen, close.Real(h); });
        CZNMFileSecurity security(nullptr);
        EXPECT_EQ(security.SetSecurityOnFiles(strPattern.c_str(), on, on, on, two, off, off), fSuccess);
        const std::string strPath = CW2A((tree.strRoot + L"\\s\\*").c_str()).operator const char*();
        for (const char* pszSearch : {"1", "2"})
            EXPECT_EQ(capture.Has(std::string("! 31/") + pszSearch + " FindFirstFileEx(" + pszSearch + ") error " + std::to_string(nError) +
                          ", path '" + strPath + "'"),
                fSuccess == FALSE);
        EXPECT_EQ(lists.written.size(), 2u);
        EXPECT_EQ(nOpen, 0);
    }
}

TEST(FileSecurity, PathsThatCannotBeTakenAreFailures) {
    const uint32_t on = 1, off = 0;
    auto walk = [&](const std::wstring& str, const uint32_t& fFiles) {
        CZNMFileSecurity security(nullptr);
        return security.SetSecurityOnFiles(str.c_str(), fFiles, off, on, on, off, off);
    };
    AccessLists lists;
    EXPECT_EQ(walk(L"pattern", on), FALSE); // no backslash
    for (const auto& [nLength, fSuccess] : {std::pair<size_t, BOOL>{260, TRUE}, {261, FALSE}, {1023, FALSE}, {1024, FALSE}})
        EXPECT_EQ(walk(L"C:\\" + std::wstring(nLength - 3, L'x'), off), fSuccess) << nLength;

    CZNMFileSecurity tested(nullptr); // once its volume is known, a path need not be tested
    tested.DiskSupportsSecurity(L"C:\\");
    for (const auto& [nLength, fSuccess] : {std::pair<size_t, BOOL>{1023, TRUE}, {1024, FALSE}, {32767, FALSE}})
        EXPECT_EQ(tested.SetSecurityOnFiles((L"C:\\" + std::wstring(nLength - 3, L'x')).c_str(), off, off, on, on, off, off), fSuccess)
            << nLength;

    ImportHook<decltype(xcsVolumeSupportsSecurity)> none("xcsVolumeSupportsSecurity", [](auto...) { return 1; });
    EXPECT_EQ(walk(L"Q:\\x", off), TRUE); // nothing to do is no failure
    EXPECT_EQ(lists.written.size(), 2u);
}
