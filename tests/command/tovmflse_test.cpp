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
// Access lists by path instead of the file system's: the test platform keeps only permission bits of those.
// Steps fail as the test says.
struct AccessLists
{
    std::map<std::string, std::string> lists;          // in the system's text form
    std::vector<std::string> written;                  // paths, in order; an owner as "owner <path>"
    std::map<std::string, std::vector<DWORD>> results; // of the next calls; a step without results succeeds

    static std::string Narrow(LPCWSTR psz) { return static_cast<const char*>(CW2A(psz)); }
    DWORD Next(const std::string& strStep)
    {
        std::vector<DWORD>& left = results[strStep];
        const DWORD nResult = left.empty() ? 0 : left.front();
        if (!left.empty())
            left.erase(left.begin());
        SetLastError(nResult);
        return nResult;
    }

    ImportHook<decltype(GetNamedSecurityInfoW)> get{
        "GetNamedSecurityInfoW",
        [this](LPCWSTR psz, auto eType, auto nInfo, auto ppOwner, auto ppGroup, PACL* ppDacl, auto ppSacl,
               auto ppDescriptor) -> DWORD {
            EXPECT_TRUE(eType == SE_FILE_OBJECT && nInfo == 4 && !ppOwner && !ppGroup && !ppSacl);
            if (const DWORD nResult = Next("read"); nResult != 0 || !lists.contains(Narrow(psz)))
                return nResult != 0 ? nResult : ERROR_FILE_NOT_FOUND;
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
            if (const DWORD nResult = Next("write"))
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
        "LookupAccountNameW", [this](LPCWSTR, LPCWSTR psz, PSID pSid, DWORD* pnSize, auto...) -> BOOL {
            return Next(Narrow(psz)) == 0 &&
                   CreateWellKnownSid(wcscmp(psz, L"znm") == 0 ? WinEnterpriseControllersSid
                                                               : WinAnonymousSid,
                                      nullptr, pSid, pnSize);
        }};
    ImportHook<decltype(SetEntriesInAclW)> merge{
        "SetEntriesInAclW", [this](ULONG n, PEXPLICIT_ACCESSW p, PACL pOld, PACL* ppNew) {
            const DWORD nResult = Next("merge");
            return nResult != 0 ? nResult : merge.Real(n, p, pOld, ppNew);
        }};
    ImportHook<decltype(GetAce)> getAce{"GetAce", [this](PACL pAcl, DWORD i, LPVOID* ppAce) -> BOOL {
                                            getAce.Real(pAcl, i, ppAce);
                                            auto* const pHeader = static_cast<ACE_HEADER*>(*ppAce);
                                            if (const DWORD nType = Next("type"))
                                                pHeader->AceType = static_cast<BYTE>(nType);
                                            return Next("ace") == 0;
                                        }};
    ImportHook<decltype(IsValidSid)> isValid{
        "IsValidSid", [this](PSID pSid) -> BOOL { return Next("sid") == 0 && isValid.Real(pSid); }};
};

BOOL Change(bool fDirectory, bool fDiscard, const wchar_t* pszUser = nullptr, uint32_t nWorldMode = 2)
{
    CZNMFileSecurity security(pszUser);
    return fDirectory ? security.ChangeDirSecurity(L"C:\\x", fDiscard, nWorldMode, GENERIC_READ, 3)
                      : security.ChangeFileSecurity(L"C:\\x", fDiscard, nWorldMode, GENERIC_READ);
}
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
        // An account that has an entry has access enough, whatever the entry allows. A denial does not count.
        {false, false, nullptr, ANY, ""},
        {true, false, nullptr, "(D;;GA;;;BU)" + ANY, ""},
        {false, false, L"u", ANY + "(A;;FR;;;AN)", ""},
        {false, false, L"u", "(A;;GR;;;SY)(A;;GR;;;BA)(A;;GR;;;ED)(D;;GR;;;AN)", F + USER},
        {false, false, nullptr, OTHER, OTHER + F},
        {false, false, nullptr, "(A;;FR;;;BA)(A;;FR;;;ED)", F},
        {false, false, nullptr, "(A;;FR;;;SY)(A;;FR;;;ED)", F},
        {false, false, nullptr, "(A;;FR;;;SY)(A;;FR;;;BA)", F},
        // Everyone's entry is set again, never added.
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
    // Entries as a set: their order, and whether a merge keeps a denial of what it allows ("D;;GR"), is the
    // system's.
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
    }
}

TEST(FileSecurity, EveryFailingStepIsReportedAsRequired)
{
    const struct
    {
        const char* pszStep;
        std::vector<DWORD> results;
        BOOL fSuccess;
        size_t nWritten;
        int nFileProbe, nDirectoryProbe; // of the failure record; 0: only traced
        std::string strText;             // KIND and ERROR stand for words that differ
    } cases[] = {
        {"none", {}, TRUE, 1, 0, 0, "Set KIND security 'C:\\x'"},
        {"znm", {1332}, FALSE, 0, 4, 11, "Create SID error, KIND: C:\\x"},
        {"u", {1332}, FALSE, 0, 4, 11, "Create SID error, KIND: C:\\x"},
        {"read", {5}, FALSE, 0, 5, 0, "Error 5 getting security info 'C:\\x'"},
        {"read", {3}, TRUE, 1, 0, 0, "Set KIND security 'C:\\x'"},
        {"ace", {0, 0, 1}, TRUE, 1, 6, 12, "Unable to retrieve ACE in ACL!"},
        {"type", {0, 0, 5}, TRUE, 1, 7, 13, "Incorrect ACE type specified!"},
        {"sid", {0, 0, 1}, TRUE, 1, 8, 14, "Invalid SID specified in ACE!"},
        {"merge", {1336}, FALSE, 0, 9, 15, "ERROR 1336 merging ACLs on 'C:\\x'"},
        {"write", {5}, TRUE, 3, 0, 0, "Set KIND security 'C:\\x'"},
        {"write", {87}, TRUE, 3, 0, 0, "Set KIND security 'C:\\x'"},
        {"write", {5, 32}, FALSE, 3, 10, 16, "Error 32 setting KIND security on 'C:\\x'"},
    };
    for (const auto& c : cases)
        for (const bool fDirectory : {false, true})
        {
            Capture capture;
            AccessLists lists;
            lists.lists["C:\\x"] = "D:(A;;GR;;;BA)(A;;GR;;;SY)(A;;GR;;;WD)(A;;GR;;;AN)";
            lists.results[c.pszStep] = c.results;
            EXPECT_EQ(Change(fDirectory, false, L"u"), c.fSuccess) << c.pszStep;
            EXPECT_EQ(lists.written.size(), c.nWritten) << c.pszStep;
            if (c.nWritten == 3)
                EXPECT_EQ(lists.written[1], "owner C:\\x");

            const std::string f = fDirectory ? "34" : "33";
            const int nProbe = fDirectory ? c.nDirectoryProbe : c.nFileProbe;
            std::string strText = c.strText;
            for (const auto& [strWord, strInstead] :
                 {std::pair<std::string, std::string>{"KIND", fDirectory ? "directory" : "file"},
                  {"ERROR", fDirectory ? "Dir security: error" : "Error"}})
                if (const size_t n = strText.find(strWord); n != std::string::npos)
                    strText.replace(n, strWord.size(), strInstead);
            EXPECT_TRUE(capture.Has((nProbe != 0 ? "! " + f + "/" + std::to_string(nProbe) : "# " + f) + " " +
                                    strText))
                << strText;
            EXPECT_EQ(capture.Has("- " + f + " Access denied! Changing ownership and retrying"),
                      c.nWritten == 3);
            if (c.results.size() == 3) // the scan stopped at the third entry, before Everyone's
            {
                EXPECT_EQ(capture.Count("# " + f + " Current SID Flags = 0003"), 1);
                EXPECT_FALSE(capture.Has("- " + f + " Added World to access list structure"));
            }
        }
}

TEST(FileSecurity, StepsAreTracedInOrder)
{
    Capture capture;
    AccessLists lists;
    lists.lists["C:\\x"] = "D:(A;;GR;;;WD)(A;;GR;;;BU)";
    Change(false, false, L"u");
    std::vector<std::string> expected;
    for (const char* psz :
         {"33 SID's retrieved successfully!", "35 Successfully retrieved security information on file!",
          "33 Retrieved named security information!", "33 Added Administrator to access list structure",
          "33 Added ZNM Group to access list structure", "33 Added System to access list structure",
          "33 Added World to access list structure", "33 Added specified user to access list structure",
          "33 Created access control lists!", "33 Successfully merged ACLs",
          "36 Successfully set security information on file!"})
        expected.push_back(std::string("- ") + psz);
    EXPECT_EQ(capture.Only("-"), expected);
    for (const char* psz :
         {"# 29 CZNMFileSecurity::CZNMFileSecurity() (pszUser = u)",
          "# 33 CZNMFileSecurity::ChangeFileSecurity() (pszPath = C:\\x)",
          "# 35 CZNMFileSecurity::GetFileSecurityInfo() (lpszObjectName = C:\\x, ...)",
          "# 36 CZNMFileSecurity::SetFileSecurityInfo() (lpszObjectName = C:\\x, ...)",
          "# 33 fSuccess = 1, fAlreadyHasAccess = 0", "> 48", "> 47", "> 45", "> 46", "> 51"})
        EXPECT_EQ(capture.Count(psz), 1) << psz;
    EXPECT_EQ(capture.Count("# 33 Current SID Flags = 0004"), 2);
}

TEST(FileSecurity, VolumeIsTestedOnceForEachFirstCharacter)
{
    Capture capture;
    std::vector<std::string> tested;
    int nResult = 0;
    uint32_t nRootLength = 0;
    ImportHook<decltype(xcsVolumeSupportsSecurity)> volume("xcsVolumeSupportsSecurity",
                                                           [&](const char* psz, uint32_t* pn) {
                                                               tested.push_back(psz);
                                                               EXPECT_EQ(std::exchange(*pn, nRootLength), 0u);
                                                               return nResult;
                                                           });
    struct : CZNMFileSecurity
    {
        using CZNMFileSecurity::CZNMFileSecurity, CZNMFileSecurity::m_szRootPath;
    } first{nullptr}, second{nullptr};
    const auto supports = [&](CZNMFileSecurity& object, const std::wstring& strPath, int nAnswer,
                              uint32_t nLength = 3) {
        nResult = nAnswer;
        nRootLength = nLength;
        return object.DiskSupportsSecurity(strPath.c_str()) == TRUE;
    };
    EXPECT_TRUE(supports(first, L"E:\\a\\b*c\\*", 0) && supports(first, L"e:\\other", 1));
    EXPECT_TRUE(capture.Has("# 32 Root path determined to be 'E:\\'"));
    EXPECT_FALSE(supports(first, L"F:\\x", 0x40806178) || supports(first, L"F:\\y", 0));
    EXPECT_EQ(first.ChangeDirSecurity(L"F:\\x", 1, 2, 0, 3), TRUE); // nothing to do is no failure
    EXPECT_FALSE(capture.Has("> 48"));
    // The answer is shared, the root is each object's.
    EXPECT_TRUE(supports(second, L"\\\\srv\\s", 0) && supports(first, L"F:\\y", 1) &&
                supports(second, L"\\\\else\\s", 1));
    for (const wchar_t* psz : {L"G:\\", L"G:\\", L"*"})
        EXPECT_FALSE(supports(first, psz, 7, 0)); // nothing is remembered
    EXPECT_THAT(tested, ElementsAre("E:\\a", "F:\\x", "\\\\srv\\s", "G:\\", "G:\\", ""));
    for (const auto& [pszText, nCount] : {std::pair{"- 32 File system supports security", 2},
                                          {"- 32 File system does not support security", 1},
                                          {"- 32 Assuming file system does not support security", 3}})
        EXPECT_EQ(capture.Count(pszText), nCount);
    EXPECT_TRUE(supports(first, L"H:\\" + std::wstring(3000, L'x'), 0,
                         0xFFFFFFFF)); // a library that reports nonsense
    EXPECT_EQ(std::wcslen(first.m_szRootPath), std::size(first.m_szRootPath) - 1);
}

TEST(FileSecurity, WalkVisitsFilesThenSubdirectoriesThenTheDirectory)
{
    const TempDir tree;
    const std::string strRoot = tree.root.string();
    for (const char* psz : {"b", "a", "s\\t\\u\\deep", "s\\f"})
        WriteAll(tree.root / psz, "content");
    fs::create_directory(tree.root / "z");
    const struct
    {
        const char* pszPath;
        uint32_t fFiles, fSubdirs, fDiscard;
        std::string strWritten;
        DWORD nSearchError = 0; // of searches below s; 1: the first write is refused instead
        BOOL fSuccess = TRUE;
        size_t nRecords = 0;
    } cases[] = {
        {"\\*", 1, 1, 1, "\\a \\b \\s\\f \\s\\t\\u\\deep "},
        {"\\*", 1, 0, 0, "\\a \\b "},
        {"\\d*", 1, 1, 1, "\\s\\t\\u\\deep "},
        {"", 0, 1, 1, "\\s\\t\\u \\s\\t \\s \\z  "},
        {"", 0, 0, 0, " "},
        {"\\z\\*", 1, 1, 1, ""},
        // A failure does not stop the walk; a search that finds nothing is none.
        {"\\*", 1, 1, 1, "\\a \\a \\b \\s\\f \\s\\t\\u\\deep ", 1, FALSE, 1},
        {"\\*", 1, 1, 1, "\\a \\b ", 2},
        {"\\*", 1, 1, 1, "\\a \\b ", 3},
        {"\\*", 1, 1, 1, "\\a \\b ", 123},
        {"\\*", 1, 1, 1, "\\a \\b ", 5, FALSE, 2},
        {"\\*", 1, 1, 1, "\\a \\b ", 18, FALSE, 2},
    };
    for (const auto& c : cases)
    {
        Capture capture;
        AccessLists lists;
        if (c.nSearchError == 1)
            lists.results["write"] = {5, 5};
        ImportHook<decltype(FindFirstFileExW)> find(
            "FindFirstFileExW", [&](LPCWSTR psz, auto eLevel, auto p, auto eOp, auto pFilter, DWORD nFlags) {
                EXPECT_TRUE(eLevel == FindExInfoStandard && pFilter == nullptr && nFlags == 0);
                const bool fFails = c.nSearchError > 1 && wcsstr(psz, L"\\s\\") != nullptr;
                const HANDLE hFind =
                    fFails ? INVALID_HANDLE_VALUE : find.Real(psz, eLevel, p, eOp, pFilter, nFlags);
                if (fFails)
                    SetLastError(c.nSearchError);
                return hFind;
            });
        CZNMFileSecurity security(nullptr);
        EXPECT_EQ(security.SetSecurityOnFiles(CString((strRoot + c.pszPath).c_str()), c.fFiles, c.fSubdirs,
                                              c.fDiscard, 2, 0, 3),
                  c.fSuccess);
        std::string strWritten;
        for (const std::string& strPath : lists.written)
            if (!strPath.starts_with("owner"))
                strWritten += strPath.substr(strRoot.size()) + " ";
        EXPECT_EQ(strWritten, c.strWritten) << &c - cases;
        EXPECT_EQ(capture.Has("# 31 Scanning path '" + strRoot + "' for files, pattern 'd*', subdirs 1"),
                  c.pszPath == std::string("\\d*"));
        EXPECT_EQ(capture.Has("# 31 Processing path '" + strRoot + "', subdirs 0"),
                  c.fFiles + c.fSubdirs == 0);
        EXPECT_EQ(capture.Has("- 31 Discarding previous security settings"), c.fDiscard == 1);
        EXPECT_EQ(capture.Has("- 31 Merging previous security settings"), c.fDiscard == 0);
        EXPECT_EQ(capture.Only("!").size(), c.nRecords) << &c - cases;
        const std::string strText =
            ") error " + std::to_string(c.nSearchError) + ", path '" + strRoot + "\\s\\*'";
        for (const std::string strSearch : {"1", "2"})
            EXPECT_EQ(capture.Has("! 31/" + strSearch + " FindFirstFileEx(" + strSearch + strText),
                      c.nRecords == 2);
    }
}

TEST(FileSecurity, PathsThatCannotBeTakenAreFailures)
{
    Capture capture;
    AccessLists lists;
    CZNMFileSecurity fresh(nullptr);
    const auto walk = [](CZNMFileSecurity& security, const std::wstring& str, uint32_t fFiles = 0) {
        return security.SetSecurityOnFiles(str.c_str(), fFiles, 0, 1, 1, 0, 0);
    };
    EXPECT_EQ(walk(fresh, L"pattern", 1), FALSE); // no backslash
    EXPECT_TRUE(capture.Has("- 31 Invalid pattern..."));
    // The limit is that of the volume test and, on a tested volume, that of the walk.
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
    EXPECT_EQ(capture.Count("- 31 Path is too long"), 6);
    const auto none = Fails(xcsVolumeSupportsSecurity, 1, 0);
    EXPECT_EQ(walk(fresh, L"Q:\\x"), TRUE); // nothing to do is no failure
    EXPECT_TRUE(capture.Has("- 31 File system does not support security"));
}
