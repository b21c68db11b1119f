#include <windows.h>
#include <sddl.h>

#include "tempdir.h"
#include "tovmflse.h"
#include "tracecapture.h"

using testing::ElementsAre;

namespace
{
// Access lists instead of the file system's: the test platform keeps only permission bits of those.
struct AccessLists
{
    std::string strList;           // of every object, as text; empty: none
    int nDamaged = -1;             // the byte of the third entry that is damaged
    std::string strSet = "";       // "account:permissions/mode/inheritance ", + if merged
    std::wstring strWritten = L""; // last names

    const Hooks hooks = {
        Hook(GetNamedSecurityInfoW,
             [this](auto, auto, auto, auto, auto, PACL* ppDacl, auto, auto ppsd) -> DWORD {
                 BOOL fPresent, fDefaulted;
                 void* pAce = nullptr;
                 ConvertStringSecurityDescriptorToSecurityDescriptorA(strList.c_str(), 1, ppsd, nullptr);
                 if (!strList.empty() && GetSecurityDescriptorDacl(*ppsd, &fPresent, ppDacl, &fDefaulted) &&
                     nDamaged >= 0 && GetAce(*ppDacl, 2, &pAce))
                     static_cast<BYTE*>(pAce)[nDamaged] = 5;
                 return 0;
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
                 return SetEntriesInAclW(nCount, pEntries, pOld, ppNew);
             }),
        Hook(SetNamedSecurityInfoW,
             [this](LPCWSTR psz, auto...) {
                 return strWritten += fs::path(psz).filename().wstring() + L" ", DWORD{0};
             }),
        // The group znm is S-1-5-9 ("ED"), any other account S-1-5-7 ("AN").
        Hook(LookupAccountNameW, [](auto, LPCWSTR psz, PSID pSid, DWORD* pnSize, auto...) {
            const auto eSid = psz[0] == L'z' ? WinEnterpriseControllersSid : WinAnonymousSid;
            return CreateWellKnownSid(eSid, nullptr, pSid, pnSize);
        })};
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
        {false, true, L"u", 2, WORLD, F + USER},
        {true, false, nullptr, 2, "", R},
    };
    for (const auto& [fDirectory, fDiscard, pszUser, nWorldMode, strOld, strSet] : cases)
    {
        AccessLists lists{strOld};
        EXPECT_EQ(Change(fDirectory, fDiscard, pszUser, nWorldMode), TRUE);
        EXPECT_EQ(lists.strSet, strSet) << strOld;
        EXPECT_EQ(lists.strWritten, strSet.empty() ? L"" : L"x ") << strOld;
    }
}

// What was found before the entry counts, what stands behind it does not.
TEST(FileSecurity, EntryThatCannotBeJudgedEndsTheScan)
{
    for (const auto& [nDamaged, fDirectory, pszRecord] :
         {std::tuple{0, false, "! 33/7 Incorrect ACE type specified!"},
          {0, true, "! 34/13 Incorrect ACE type specified!"},
          {8, false, "! 33/8 Invalid SID specified in ACE!"}})
    {
        Capture capture;
        AccessLists lists{"D:(A;;GR;;;BA)(A;;GR;;;WD)(A;;GR;;;BU)(A;;GR;;;SY)(A;;GR;;;ED)", nDamaged};
        EXPECT_EQ(Change(fDirectory, false, nullptr, 2), TRUE);
        EXPECT_THAT(capture.Only("!"), ElementsAre(pszRecord));
        EXPECT_NE(lists.strSet.find("0:8"), std::string::npos);
    }
    Capture capture;
    AccessLists lists;
    const auto unreadable = Fails(GetNamedSecurityInfoW, 5, 0);
    EXPECT_EQ(Change(false, false, nullptr, 2), FALSE);
    const auto unknown = Hook(LookupAccountNameW, [](auto p, LPCWSTR psz, auto... args) {
        return psz[0] == L'z' && LookupAccountNameW(p, psz, args...);
    });
    EXPECT_EQ(Change(false, false, L"u", 2), FALSE);
    EXPECT_THAT(capture.Only("! 33"), ElementsAre("! 33/5 Error 5 getting security info 'C:\\x'",
                                                  "! 33/4 Create SID error, file: C:\\x"));
}

TEST(FileSecurity, VolumeIsTestedOnceForEachFirstCharacter)
{
    AccessLists lists;
    CZNMFileSecurity first(nullptr), second(nullptr);
    uint32_t nRootLength = 3;
    std::string strTested;
    const auto volume = Hook(xcsVolumeSupportsSecurity, [&](auto psz, auto pn) {
        return strTested = psz, *pn = nRootLength, psz[0] == 'F' || psz[0] == 'G';
    });
    // What is tested, behind whether security is supported.
    const auto test = [&](CZNMFileSecurity& object, const std::wstring& strPath) {
        strTested = "";
        return std::to_string(object.DiskSupportsSecurity(strPath.c_str())) + strTested;
    };
    EXPECT_EQ(test(first, L"E:\\a\\b*c\\*"), "1E:\\a");
    EXPECT_EQ(test(first, L"e:\\other"), "1");
    EXPECT_EQ(test(first, L"F:\\x"), "0F:\\x");
    EXPECT_EQ(test(second, L"\\\\srv\\s"), "1\\\\srv\\s");
    EXPECT_EQ(test(first, L"F:\\y"), "1"); // the answer is shared, the root is each object's
    nRootLength = 0;
    for (const int nTime : {1, 2}) // without a root nothing is remembered
        EXPECT_EQ(test(first, L"G:\\"), "0G:\\") << nTime;
    nRootLength = 0xFFFFFFFF; // nonsense
    EXPECT_EQ(test(first, L"H:\\" + std::wstring(3000, L'x')), "1H:\\" + std::string(257, 'x'));
    EXPECT_EQ(test(first, L"H:\\y"), "1");
    // The limit is that of the volume test and, on a tested volume, that of the walk.
    for (const auto& [pszRoot, nLength, fTaken] : {std::tuple{L"K:\\", 261, FALSE},
                                                   {L"H:\\", 1023, TRUE},
                                                   {L"H:\\", 1024, FALSE},
                                                   {L"I:\\", 260, TRUE}})
    {
        const std::wstring strPath = pszRoot + std::wstring(nLength - 3, L'x');
        EXPECT_EQ(first.SetSecurityOnFiles(strPath.c_str(), 0, 0, 1, 1, 0, 0), fTaken) << nLength;
    }
    EXPECT_EQ(first.SetSecurityOnFiles(L"I:pattern", 1, 0, 1, 1, 0, 0), FALSE); // no backslash
    EXPECT_EQ(std::ranges::count(lists.strWritten, L' '), 2);
}

TEST(FileSecurity, WalkTakesPatternsAndGoesOnAfterFailingSearches)
{
    const TempDir temp;
    for (const char* psz : {"b", "a", "s\\t\\u\\deep", "s\\f", "z\\"})
        WriteAll(temp.root / "tree" / psz, "content");
    const std::tuple<const wchar_t*, uint32_t, uint32_t, DWORD, BOOL, std::wstring> cases[] = {
        // path, files, subdirectories, error of the searches below s; result, written. A search that finds
        // nothing does not fail.
        {L"\\*", 1, 0, 0, TRUE, L"a b "},       {L"\\d*", 1, 1, 0, TRUE, L"deep "},
        {L"", 0, 1, 0, TRUE, L"u t s z tree "}, {L"", 0, 0, 0, TRUE, L"tree "},
        {L"\\*", 1, 1, 2, TRUE, L"a b "},       {L"\\*", 1, 1, 3, TRUE, L"a b "},
        {L"\\*", 1, 1, 123, TRUE, L"a b "},     {L"\\*", 1, 1, 5, FALSE, L"a b "},
    };
    Capture capture;
    for (const auto& [pszPath, fFiles, fSubdirs, nError, fSuccess, strExpected] : cases)
    {
        AccessLists lists;
        const auto find = Hook(FindFirstFileExW, [n = nError](LPCWSTR psz, auto eLevel, auto... args) {
            return n != 0 && wcsstr(psz, L"\\s\\") != nullptr ? (SetLastError(n), INVALID_HANDLE_VALUE)
                                                              : FindFirstFileExW(psz, eLevel, args...);
        });
        const std::wstring strPath = (temp.root / "tree").wstring() + pszPath;
        EXPECT_EQ(CZNMFileSecurity(nullptr).SetSecurityOnFiles(strPath.c_str(), fFiles, fSubdirs, 1, 1, 0, 0),
                  fSuccess);
        EXPECT_EQ(lists.strWritten, strExpected) << nError;
    }
    const std::string strError5 = " error 5, path '" + temp.root.string() + "\\tree\\s\\*'";
    EXPECT_THAT(capture.Only("! 31/"), ElementsAre("! 31/1 FindFirstFileEx(1)" + strError5,
                                                   "! 31/2 FindFirstFileEx(2)" + strError5));
}
