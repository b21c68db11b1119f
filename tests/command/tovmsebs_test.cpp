#include <numeric>

#include "tovmsebs.h"
#include "tracecapture.h"

constexpr DWORD NEEDED = 1 << 20; // size of a SID that does not fit the first buffer

TEST(SecurityID, AccountLookupTriesTwiceAndRecordsEachFailure)
{
    const std::tuple<DWORD, size_t, const char*, std::string> cases[] = {
        // error of the look-ups; size of the allocation that fails; each look-up's account and sizes
        {0, 64, "", "! 46/1 Error allocating ZNM SID buffer (1)"},
        {0, 64, "", "! 51/12 Error allocating User SID buffer (1)"},
        {1332, 0, "s64,1024 ", "! 51/16 Error 1332 looking up User account (1)"},
        {122, 0, "s64,1024 s1048576,1024 ", "! 51/15 Error 122 looking up User account name (2)"},
        {122, NEEDED, "z64,1024 z0,1024 no buffer ",
         "! 46/3 Error allocating ZNM SID buffer (2)! 46/4 Error 122 looking up ZNM account name (2)"},
        {122, NEEDED, "s64,1024 s0,1024 no buffer ",
         "! 51/14 Error allocating User SID buffer (2)! 51/15 Error 122 looking up User account name (2)"}};
    for (const auto& [nError, nRefused, pszLookups, strExpected] : cases)
    {
        Capture capture;
        std::ostringstream lookups;
        const auto lookup =
            Hook(LookupAccountNameW,
                 [&, n = nError](auto, LPCWSTR pszName, PSID pSid, auto pnSid, auto, auto pnDomain, auto...) {
                     lookups << static_cast<char>(*pszName) << *pnSid << "," << *pnDomain
                             << (pSid != nullptr ? " " : " no buffer ");
                     *pnSid = NEEDED;
                     *pnDomain = 5000; // more than there is: must not come back
                     return SetLastError(n), FALSE;
                 });
        CZNMSecurityID id;
        bool fLeft = true; // only the first: others may need a block of that size
        xihProcess = {};
        auto memory = Hook(malloc, [&, nSize = nRefused](size_t n) {
            return n == nSize && std::exchange(fLeft, false) ? nullptr : malloc(n);
        });
        strExpected.starts_with("! 51") ? id.CreateUserSid(nullptr, L"someone") : id.CreateZnmSid(nullptr);
        memory.reset();
        EXPECT_EQ(lookups.str(), pszLookups);
        const std::vector<std::string> records = capture.Only("!");
        EXPECT_EQ(std::accumulate(records.begin(), records.end(), std::string()), strExpected);
    }
}

TEST(SecurityID, RegistryKeysAreOwnedBelowTheMachine)
{
    CZNMSecurityID id;
    std::vector<std::wstring> owned;
    const auto set = Hook(SetNamedSecurityInfoW, [&](LPWSTR psz, auto, auto, PSID pOwner, auto...) -> DWORD {
        EXPECT_TRUE(IsWellKnownSid(pOwner, WinBuiltinAdministratorsSid));
        return owned.push_back(psz), 0;
    });
    const auto adjust = Hook(AdjustTokenPrivileges, [&](auto, auto, TOKEN_PRIVILEGES* p, auto...) {
        EXPECT_TRUE(p->PrivilegeCount == 1 && p->Privileges[0].Attributes == SE_PRIVILEGE_ENABLED);
        return SetLastError(ERROR_NOT_ALL_ASSIGNED), TRUE; // counts as enabled
    });
    for (const wchar_t* psz : {L"MACHINE\\x", L"machinery", L"MACH"})
        id.SetOwner(psz, SE_REGISTRY_KEY);
    EXPECT_THAT(owned, testing::ElementsAre(L"MACHINE\\x", L"machinery", L"MACHINE\\MACH"));
}
