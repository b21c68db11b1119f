#include <windows.h>
#include <sddl.h>

#include <deque>
#include <map>

#include "tracecapture.h"
#include "tempdir.h"
#include "tovmflse.h"

using testing::ElementsAre;

namespace
{
// Access lists instead of the file system's: the test platform keeps only permission bits of those. Steps
// fail as the test says.
struct AccessLists
{
    std::string strList;     // of every object, as text; empty: none
    std::string strSet = ""; // "account:permissions/mode/inheritance ", + if merged
    std::vector<std::wstring> written = {}, owned = {}; // paths
    // Of the next calls; a step without results succeeds.
    std::map<std::string, std::deque<DWORD>> results = {};

    DWORD Next(const std::string& strStep)
    {
        std::deque<DWORD>& left = results[strStep];
        left.push_back(0);
        const DWORD nResult = left.front();
        left.pop_front();
        return SetLastError(nResult), nResult;
    }

    const Hooks hooks = {
        Hook(GetNamedSecurityInfoW,
             [this](auto, auto eType, DWORD nInfo, auto, auto, PACL* ppDacl, auto, auto ppsd) -> DWORD {
                 EXPECT_TRUE(eType == SE_FILE_OBJECT && nInfo == DACL_SECURITY_INFORMATION);
                 if (const DWORD nResult = Next("read"); nResult != 0 || strList.empty())
                     return nResult;
                 BOOL fPresent, fDefaulted;
                 ConvertStringSecurityDescriptorToSecurityDescriptorA(strList.c_str(), 1, ppsd, nullptr);
                 return !GetSecurityDescriptorDacl(*ppsd, &fPresent, ppDacl, &fDefaulted);
             }),
        Hook(SetEntriesInAclW,
             [this](ULONG nCount, PEXPLICIT_ACCESSW pEntries, PACL pOld, PACL* ppNew) {
                 std::ostringstream text;
                 text << (pOld != nullptr ? "+ " : "");
                 for (auto* p = pEntries; p < pEntries + nCount; ++p)
                 {
                     const BYTE nLast = *GetSidSubAuthorityCount(p->Trustee.ptstrName) - 1;
                     text << *GetSidSubAuthority(p->Trustee.ptstrName, nLast) << ":" << std::hex
                          << p->grfAccessPermissions << std::dec << "/" << p->grfAccessMode << "/"
                          << p->grfInheritance << " ";
                 }
                 strSet = text.str();
                 const DWORD nResult = Next("merge");
                 return nResult != 0 ? nResult : SetEntriesInAclW(nCount, pEntries, pOld, ppNew);
             }),
        Hook(SetNamedSecurityInfoW,
             [this](LPCWSTR psz, auto eType, DWORD nInfo, PSID pOwner, auto, PACL pDacl, auto) {
                 EXPECT_TRUE(eType == SE_FILE_OBJECT && nInfo == (pOwner != nullptr ? 1 : 4) &&
                             !pOwner == !!pDacl);
                 (pOwner != nullptr ? owned : written).push_back(psz);
                 return pOwner != nullptr ? 0 : Next("write");
             }),
        // The group znm is S-1-5-9 ("ED"), any other account S-1-5-7 ("AN").
        Hook(LookupAccountNameW,
             [this](auto, LPCWSTR psz, PSID pSid, DWORD* pnSize, auto...) {
                 const bool fZnm = psz[0] == L'z';
                 const auto eSid = fZnm ? WinEnterpriseControllersSid : WinAnonymousSid;
                 return Next(fZnm ? "znm" : "u") == 0 && CreateWellKnownSid(eSid, nullptr, pSid, pnSize);
             }),
        Hook(GetAce,
             [this](PACL pAcl, DWORD nIndex, void** ppAce) {
                 const BOOL fDone = GetAce(pAcl, nIndex, ppAce);
                 static_cast<ACE_HEADER*>(*ppAce)->AceType += Next("type");
                 return fDone && Next("ace") == 0;
             }),
        Hook(IsValidSid, [this](PSID pSid) { return Next("sid") == 0 && IsValidSid(pSid); })};
};

// A directory is changed as the last step of a walk.
BOOL Change(bool fDirectory, bool fDiscard, const wchar_t* pszUser, uint32_t nWorldMode)
{
    CZNMFileSecurity security(pszUser);
    return fDirectory ? security.SetSecurityOnFiles(L"C:\\x", 0, 0, fDiscard, nWorldMode, GENERIC_READ, 3)
                      : security.ChangeFileSecurity(L"C:\\x", fDiscard, nWorldMode, GENERIC_READ);
}
} // namespace

TEST(FileSecurity, AccessListsAreMergedOrReplaced)
{
    const std::string F = "544:10000000/2/0 9:10000000/2/0 18:10000000/2/0 ", USER = "7:10000000/2/3 ",
                      R = "544:10000000/2/3 9:10000000/2/3 18:10000000/2/3 ", WORLD = "D:(A;;GA;;;WD)",
                      ALL = "D:(A;;FR;;;SY)(A;ID;FR;;;BA)(A;;FR;;;ED)";
    const std::tuple<bool, bool, const wchar_t*, uint32_t, std::string, std::string> cases[] = {
        // directory, discard, user, Everyone's mode; old list, entries set (none: nothing is changed)
        // An account that has an entry has access enough, whatever the entry allows. A denial does not count.
        {false, false, nullptr, 2, ALL, ""},
        {true, false, nullptr, 2, ALL + "(D;;GA;;;BU)", ""},
        {false, false, L"u", 2, ALL + "(A;;FR;;;AN)", ""},
        {false, false, L"u", 2, ALL + "(D;;GR;;;AN)", "+ " + F + USER},
        {false, false, nullptr, 2, "D:(A;;FR;;;BA)(A;;FR;;;ED)", "+ " + F},
        {false, false, nullptr, 2, "D:(A;;FR;;;SY)(A;;FR;;;ED)", "+ " + F},
        {false, false, nullptr, 2, "D:(A;;FR;;;SY)(A;;FR;;;BA)", "+ " + F},
        // Everyone's entry is set again, never added.
        {false, false, nullptr, 2, WORLD, "+ " + F + "0:80000000/2/0 "},
        {true, false, L"u", 1, WORLD, "+ " + R + "0:80000000/1/3 " + USER},
        {true, false, nullptr, 0, WORLD, "+ " + R},
        {true, false, nullptr, 2, "D:(A;;GR;;;BU)", "+ " + R},
        {false, true, L"u", 2, WORLD, F + USER},
        {true, true, nullptr, 2, ALL, R},
        {false, false, nullptr, 2, "D:", "+ " + F},
        {true, false, nullptr, 2, "", R},
    };
    for (const auto& [fDirectory, fDiscard, pszUser, nWorldMode, strOld, strSet] : cases)
    {
        AccessLists lists{strOld};
        EXPECT_EQ(Change(fDirectory, fDiscard, pszUser, nWorldMode), TRUE);
        EXPECT_EQ(lists.strSet, strSet) << strOld;
        EXPECT_EQ(lists.written.size(), strSet.empty() ? 0 : 1) << strOld;
    }
}

TEST(FileSecurity, EveryFailingStepIsReportedAsRequired)
{
    const std::string NOT = " Create SID error, ", SET = " Error 32 setting ", ON = " security on 'C:\\x'";
    const std::tuple<const char*, std::deque<DWORD>, BOOL, size_t, std::string, std::string, std::string>
        cases[] = {
            // step, its results; result, writes; beginning of what is reported of a file and of a directory
            {"znm", {1332}, FALSE, 0, "! 33/4" + NOT + "file", "! 34/11" + NOT + "directory", ": C:\\x"},
            {"u", {1332}, FALSE, 0, "! 33/4" + NOT + "file", "! 34/11" + NOT + "directory", ": C:\\x"},
            {"read", {5}, FALSE, 0, "! 33/5 E", "# 34 E", "rror 5 getting security info 'C:\\x'"},
            {"read", {2}, TRUE, 1, "# 33 Set file", "# 34 Set directory", " security 'C:\\x'"},
            {"read", {3}, TRUE, 1, "# 33 Set file", "# 34 Set directory", " security 'C:\\x'"},
            {"ace", {0, 0, 1}, TRUE, 1, "! 33/6", "! 34/12", " Unable to retrieve ACE in ACL!"},
            {"type", {0, 0, 5}, TRUE, 1, "! 33/7", "! 34/13", " Incorrect ACE type specified!"},
            {"sid", {0, 0, 1}, TRUE, 1, "! 33/8", "! 34/14", " Invalid SID specified in ACE!"},
            {"merge", {8}, FALSE, 0, "! 33/9 E", "! 34/15 Dir security: e", "rror 8 merging ACLs on 'C:\\x'"},
            {"write", {87}, TRUE, 2, "# 33 Set file", "# 34 Set directory", " security 'C:\\x'"},
            {"write", {5, 32}, FALSE, 2, "! 33/10" + SET + "file", "! 34/16" + SET + "directory", ON},
        };
    for (const auto& [pszStep, results, fSuccess, nWritten, strFile, strDirectory, strRest] : cases)
        for (const bool fDirectory : {false, true})
        {
            SCOPED_TRACE(strFile + strRest);
            Capture capture;
            const bool fStops = results.size() == 3; // the scan, at the third entry
            AccessLists lists{
                fStops ? "D:(A;;GR;;;BA)(A;;GR;;;WD)(A;;GR;;;BU)(A;;GR;;;SY)(A;;GR;;;ED)(A;;GR;;;AN)"
                       : "D:(A;;GR;;;BA)(A;;GR;;;SY)(A;;GR;;;WD)(A;;GR;;;AN)"};
            lists.results[pszStep] = results;
            EXPECT_EQ(Change(fDirectory, false, L"u", 2), fSuccess);
            EXPECT_TRUE(capture.Has((fDirectory ? strDirectory : strFile) + strRest));
            EXPECT_EQ(lists.written, std::vector<std::wstring>(nWritten, L"C:\\x"));
            EXPECT_EQ(lists.owned,
                      std::vector<std::wstring>(nWritten / 2, L"C:\\x")); // before the second try
            if (fStops) // what was found before counts, what stands behind does not
                EXPECT_NE(lists.strSet.find("0:8"), std::string::npos);
        }
}

TEST(FileSecurity, VolumeIsTestedOnceForEachFirstCharacter)
{
    struct Object : CZNMFileSecurity
    {
        using CZNMFileSecurity::CZNMFileSecurity, CZNMFileSecurity::m_szRootPath;
    } first{nullptr}, second{nullptr};
    std::string strTested;
    int nAnswer = 0; // of the library, with the length of the volume's root
    uint32_t nRootLength = 3;
    const auto volume = Hook(xcsVolumeSupportsSecurity, [&](const char* psz, uint32_t* pn) {
        strTested = psz;
        return std::exchange(*pn, nRootLength) == 0 ? nAnswer : -1;
    });
    const std::tuple<Object&, const wchar_t*, int, bool, const char*> steps[] = {
        // object, path, answer; result, tested path
        {first, L"E:\\a\\b*c\\*", 0, true, "E:\\a"},
        {first, L"e:\\other", 1, true, "none"},
        {first, L"F:\\x", XCS_RC_NO_VOLUME_SECURITY, false, "F:\\x"},
        {first, L"F:\\y", 0, false, "none"},
        // The answer is shared, the root is each object's.
        {second, L"\\\\srv\\s", 0, true, "\\\\srv\\s"},
        {first, L"F:\\y", 1, true, "none"},
        // Without a root nothing is remembered.
        {first, L"G:\\", 7, false, "G:\\"},
        {first, L"G:\\", 7, false, "G:\\"},
        {first, L"*", 7, false, ""},
    };
    for (const auto& [object, pszPath, nResult, fSupported, pszTested] : steps)
    {
        strTested = "none";
        nAnswer = nResult;
        nRootLength = nResult == 7 ? 0 : 3;
        EXPECT_EQ(object.DiskSupportsSecurity(pszPath), fSupported) << pszPath;
        EXPECT_EQ(strTested, pszTested);
    }
    nRootLength = 0xFFFFFFFF; // a library that reports nonsense, and a path that does not fit
    first.DiskSupportsSecurity((L"H:\\" + std::wstring(3000, L'x')).c_str());
    EXPECT_EQ(std::wcslen(first.m_szRootPath), std::size(first.m_szRootPath) - 1);
    EXPECT_EQ(strTested, "H:\\" + std::string(257, 'x'));
}

TEST(FileSecurity, WalkVisitsFilesThenSubdirectoriesThenTheDirectory)
{
    const TempDir tree;
    const std::wstring strRoot = tree.root;
    for (const char* psz : {"b", "a", "s\\t\\u\\deep", "s\\f"})
        WriteAll(tree.root / psz, "content");
    fs::create_directory(tree.root / "z");
    const std::tuple<const wchar_t*, uint32_t, uint32_t, uint32_t, DWORD, BOOL, std::wstring> cases[] = {
        // path, files, subdirectories, discard, error; result, written. The error is that of the searches
        // below s, or for 1 of the first write. It does not stop the walk. A search that finds nothing does
        // not fail.
        {L"\\*", 1, 1, 1, 0, TRUE, L"\\a \\b \\s\\f \\s\\t\\u\\deep "},
        {L"\\*", 1, 0, 0, 0, TRUE, L"\\a \\b "},
        {L"\\d*", 1, 1, 1, 0, TRUE, L"\\s\\t\\u\\deep "},
        {L"", 0, 1, 1, 0, TRUE, L"\\s\\t\\u \\s\\t \\s \\z  "},
        {L"", 0, 0, 0, 0, TRUE, L" "},
        {L"\\z\\*", 1, 1, 1, 0, TRUE, L""},
        {L"\\*", 1, 1, 1, 1, FALSE, L"\\a \\a \\b \\s\\f \\s\\t\\u\\deep "},
        {L"\\*", 1, 1, 1, 2, TRUE, L"\\a \\b "},
        {L"\\*", 1, 1, 1, 3, TRUE, L"\\a \\b "},
        {L"\\*", 1, 1, 1, 123, TRUE, L"\\a \\b "},
        {L"\\*", 1, 1, 1, 5, FALSE, L"\\a \\b "},
    };
    Capture capture;
    for (const auto& [pszPath, fFiles, fSubdirs, fDiscard, nError, fSuccess, strExpected] : cases)
    {
        AccessLists lists{"D:(A;;GA;;;WD)"};
        lists.results["write"] = std::deque<DWORD>(nError == 1 ? 2 : 0, 5);
        const auto find = Hook(FindFirstFileExW, [n = nError](LPCWSTR psz, auto eLevel, auto... args) {
            return n > 1 && wcsstr(psz, L"\\s\\") != nullptr ? (SetLastError(n), INVALID_HANDLE_VALUE)
                                                             : FindFirstFileExW(psz, eLevel, args...);
        });
        EXPECT_EQ(CZNMFileSecurity(nullptr).SetSecurityOnFiles((strRoot + pszPath).c_str(), fFiles, fSubdirs,
                                                               fDiscard, 2, GENERIC_READ, 3),
                  fSuccess);
        std::wstring strWritten;
        for (const std::wstring& strPath : lists.written)
            strWritten += strPath.substr(strRoot.size()) + L" ";
        EXPECT_EQ(strWritten, strExpected) << nError;
        EXPECT_EQ(lists.strSet.find("0:80000000/2/") != std::string::npos, fDiscard == 0);
    }
    const std::string strError5 = " error 5, path '" + tree.root.string() + "\\s\\*'";
    EXPECT_THAT(capture.Only("!", 31), ElementsAre("! 31/1 FindFirstFileEx(1)" + strError5,
                                                   "! 31/2 FindFirstFileEx(2)" + strError5));
}

TEST(FileSecurity, PathsThatCannotBeTakenAreFailures)
{
    AccessLists lists;
    const auto walk = [](CZNMFileSecurity& security, const std::wstring& str, uint32_t fFiles = 0) {
        return security.SetSecurityOnFiles(str.c_str(), fFiles, 0, 1, 1, 0, 0);
    };
    CZNMFileSecurity fresh(nullptr);
    EXPECT_EQ(walk(fresh, L"pattern", 1), FALSE); // no backslash
    // The limit is that of the volume test and, on a tested volume, that of the walk.
    for (const auto& [nLength, fUntested, fTested] :
         {std::tuple{260, TRUE, TRUE}, {261, FALSE, TRUE}, {1023, FALSE, TRUE}, {1024, FALSE, FALSE}})
    {
        const std::wstring strPath = L"C:\\" + std::wstring(nLength - 3, L'x');
        CZNMFileSecurity tested(nullptr), untested(nullptr);
        tested.DiskSupportsSecurity(L"C:\\");
        EXPECT_EQ(walk(untested, strPath), fUntested) << nLength;
        EXPECT_EQ(walk(tested, strPath), fTested) << nLength;
    }
    const auto none = Fails(xcsVolumeSupportsSecurity, 1, 0); // nothing to do is no failure
    EXPECT_TRUE(walk(fresh, L"Q:\\x") && fresh.ChangeDirSecurity(L"Q:\\x", 1, 2, 0, 3));
    EXPECT_EQ(lists.written.size(), 4u);
}
