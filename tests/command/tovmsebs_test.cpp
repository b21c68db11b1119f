#include "tracecapture.h"
#include "tovmsebs.h"

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

TEST(SecurityID, RegistryKeysAreOwnedBelowTheMachine)
{
    SecurityID id;
    std::vector<std::wstring> owned;
    const auto set = Hook(SetNamedSecurityInfoW, [&](LPWSTR psz, auto, auto, PSID pOwner, auto...) -> DWORD {
        EXPECT_TRUE(IsWellKnownSid(pOwner, WinBuiltinAdministratorsSid));
        return owned.push_back(psz), 0;
    });
    const auto adjust = Hook(AdjustTokenPrivileges, [&](auto, BOOL fAll, TOKEN_PRIVILEGES* p, auto...) {
        EXPECT_TRUE(!fAll && p->PrivilegeCount == 1 && p->Privileges[0].Attributes == SE_PRIVILEGE_ENABLED);
        return SetLastError(ERROR_NOT_ALL_ASSIGNED), TRUE; // counts as enabled
    });
    {
        const auto fails = Fails(AllocateAndInitializeSid, FALSE, 1337);
        EXPECT_EQ(id.SetOwner(L"C:\\", SE_FILE_OBJECT), TRUE); // without the SID it does nothing
    }
    for (const wchar_t* psz : {L"software\\x", L"MACHINE\\x", L"machinery", L"MACH"})
        id.SetOwner(psz, SE_REGISTRY_KEY);
    id.SetOwner(L"software", SE_FILE_OBJECT);
    EXPECT_THAT(owned, testing::ElementsAre(L"MACHINE\\software\\x", L"MACHINE\\x", L"machinery",
                                            L"MACHINE\\MACH", L"software"));
}
