#include "tracecapture.h"
#include "tovmsebs.h"

using testing::ElementsAre;

namespace
{
constexpr DWORD NEEDED = 1 << 20; // size of a SID that does not fit the first buffer

struct SecurityID : CZNMSecurityID
{
    using CZNMSecurityID::m_pAdminSid, CZNMSecurityID::m_pSystemSid, CZNMSecurityID::m_pUserSid,
        CZNMSecurityID::m_pWorldSid, CZNMSecurityID::m_pZnmSid;
};
} // namespace

TEST(SecurityID, AccountLookupTriesTwiceAndRecordsEachFailure)
{
    const struct
    {
        DWORD nFirst, nSecond; // results of both look-ups
        size_t nRefused;       // size of the allocation that fails
        std::string strZnm, strUser;
    } cases[] = {
        {0, 0, 0, "", ""},
        {122, 0, 0, "", ""},
        {0, 0, 64, "! 46/1 Error allocating ZNM SID buffer (1)",
         "! 51/12 Error allocating User SID buffer (1)"},
        {1332, 0, 0, "! 46/5 Error 1332 looking up ZNM account (1)",
         "! 51/16 Error 1332 looking up User account (1)"},
        {122, 1332, 0, "! 46/4 Error 1332 looking up ZNM account name (2)",
         "! 51/15 Error 1332 looking up User account name (2)"},
        {122, 122, NEEDED,
         "! 46/3 Error allocating ZNM SID buffer (2)! 46/4 Error 122 looking up ZNM account name (2)",
         "! 51/14 Error allocating User SID buffer (2)! 51/15 Error 122 looking up User account name (2)"}};
    for (const auto& c : cases)
        for (const bool fUser : {false, true})
        {
            Capture capture;
            int nCalls = 0;
            const auto lookup =
                Hook(LookupAccountNameW,
                     [&](LPCWSTR pszSystem, LPCWSTR pszName, PSID pSid, DWORD* pnSid, auto, DWORD* pnDomain,
                         auto* peUse) -> BOOL {
                         const bool fFirst = ++nCalls == 1;
                         EXPECT_STREQ(pszName, fUser ? L"someone" : L"znm");
                         EXPECT_TRUE(pszSystem == nullptr && *peUse == 8 && *pnDomain == 1024);
                         EXPECT_EQ(*pnSid, fFirst ? 64 : c.nRefused == NEEDED ? 0 : NEEDED);
                         EXPECT_EQ(pSid == nullptr, !fFirst && c.nRefused == NEEDED);
                         if ((fFirst ? c.nFirst : c.nSecond) == 0)
                             return CreateWellKnownSid(WinLocalSid, nullptr, pSid, pnSid);
                         *pnSid = NEEDED;
                         *pnDomain = 5000; // more than there is: must not come back
                         return SetLastError(fFirst ? c.nFirst : c.nSecond), FALSE;
                     });
            SecurityID id;
            {
                bool fLeft = true; // only the first: others may need a block of that size
                xihProcess = {};
                const auto memory = Hook(malloc, [&](size_t n) {
                    return n == c.nRefused && std::exchange(fLeft, false) ? nullptr : malloc(n);
                });
                fUser ? id.CreateUserSid(nullptr, L"someone") : id.CreateZnmSid(nullptr);
            }
            std::string strRecords;
            for (const std::string& str : capture.Only("!"))
                strRecords += str;
            EXPECT_EQ(strRecords, fUser ? c.strUser : c.strZnm);
            EXPECT_EQ(!(fUser ? id.m_pUserSid : id.m_pZnmSid), !strRecords.empty()) << c.nFirst;
        }
}

TEST(SecurityID, FailuresToMakeFixedSidsAreRecorded)
{
    Capture capture;
    SecurityID id;
    {
        const auto fails = Fails(AllocateAndInitializeSid, FALSE, 1337);
        id.CreateAdminSid(nullptr);
        id.CreateWorldSid(nullptr);
        id.CreateSystemSid(nullptr);
        EXPECT_EQ(id.SetOwner(L"C:\\", SE_FILE_OBJECT), TRUE); // without the SID it does nothing more
    }
    id.CreateUserSid(nullptr, L"");
    id.CreateUserSid(nullptr, nullptr);
    const std::string WORLD = "Error 1337 creating world SID", SYSTEM = "Error 1337 creating system SID";
    EXPECT_THAT(capture.Only("!"),
                ElementsAre("! 45/0 " + WORLD, "! 47/6 " + WORLD, "! 48/7 " + SYSTEM, "! 45/0 " + WORLD));
    EXPECT_TRUE(!id.m_pAdminSid && !id.m_pWorldSid && !id.m_pSystemSid && !id.m_pUserSid);
}

// The privilege is enabled once for the whole process.
TEST(SecurityID, SetOwnerEnablesThePrivilegeOnceAndReportsOnlyRealFailures)
{
    Capture capture;
    SecurityID id;
    DWORD nResult = 0, nRefused = 8; // the privilege's step that fails, by its probe
    std::vector<std::wstring> owned;
    int nLooked = 0, nAdjusted = 0;
    const auto answer = [&](DWORD nProbe) -> BOOL { return SetLastError(nRefused), nRefused != nProbe; };
    const auto set = Hook(SetNamedSecurityInfoW,
                          [&](LPWSTR psz, auto, DWORD nInfo, PSID pOwner, auto p1, auto p2, auto p3) {
                              EXPECT_TRUE(nInfo == 1 && p1 == nullptr && p2 == nullptr && p3 == nullptr &&
                                          IsWellKnownSid(pOwner, WinBuiltinAdministratorsSid));
                              return owned.push_back(psz), nResult;
                          });
    const auto look = Hook(LookupPrivilegeValueW, [&](auto, LPCWSTR psz, auto) {
        EXPECT_STREQ(psz, L"SeTakeOwnershipPrivilege");
        return ++nLooked, answer(8);
    });
    const auto open = Hook(OpenProcessToken,
                           [&](auto, DWORD nAccess, auto) { return answer(nAccess == 0x28 ? 9 : nRefused); });
    const auto adjust = Hook(AdjustTokenPrivileges, [&](auto, BOOL fAll, TOKEN_PRIVILEGES* p, auto, auto pOld,
                                                        auto) {
        EXPECT_TRUE(!fAll && pOld == nullptr && p->PrivilegeCount == 1 && p->Privileges[0].Attributes == 2);
        return ++nAdjusted, answer(10);
    });
    for (; nRefused <= 10; ++nRefused)
        EXPECT_EQ(id.SetOwner(L"C:\\a", SE_FILE_OBJECT), TRUE);
    if (nLooked == 0)
        GTEST_SKIP() << "another test of this process has enabled the privilege";
    nRefused = ERROR_NOT_ALL_ASSIGNED; // counts as enabled
    for (const DWORD n : {5, 2, 3, 0})
    {
        nResult = n;
        EXPECT_EQ(id.SetOwner(L"C:\\a%s", SE_FILE_OBJECT), TRUE);
    }
    EXPECT_EQ(nAdjusted, 2);
    EXPECT_THAT(capture.Only("!"), ElementsAre("! 50/8 LookupPrivilegeValue() failed, error: 8",
                                               "! 50/9 OpenProcessToken() failed, error: 9",
                                               "! 50/10 AdjustTokenPrivileges() failed, error: 10",
                                               "! 50/11 Error 5 setting ownership on 'C:\\a%s'"));
    owned.clear();
    for (const wchar_t* psz : {L"software\\x", L"MACHINE\\x", L"machinery", L"MACH"})
        id.SetOwner(psz, SE_REGISTRY_KEY);
    id.SetOwner(L"software", SE_FILE_OBJECT);
    EXPECT_THAT(owned, ElementsAre(L"MACHINE\\software\\x", L"MACHINE\\x", L"machinery", L"MACHINE\\MACH",
                                   L"software"));
}
