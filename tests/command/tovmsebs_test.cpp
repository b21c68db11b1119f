#include <windows.h>
#include <sddl.h>

#include "tracecapture.h"
#include "tovmsebs.h"

using testing::ElementsAre;

namespace
{
struct SecurityID : CZNMSecurityID
{
    using CZNMSecurityID::m_pAdminSid, CZNMSecurityID::m_pSystemSid, CZNMSecurityID::m_pUserSid,
        CZNMSecurityID::m_pWorldSid, CZNMSecurityID::m_pZnmSid;
};

std::string SidText(PSID pSid)
{
    char* pszText = nullptr;
    if (pSid == nullptr || !ConvertSidToStringSidA(pSid, &pszText))
        return "none";
    const std::string strText = pszText;
    LocalFree(pszText);
    return strText;
}

using Lookup = ImportHook<decltype(LookupAccountNameW)>;

BOOL Fail(DWORD nError)
{
    SetLastError(nError);
    return FALSE;
}
} // namespace

TEST(SecurityID, FixedSidsAreMadeOnceAdoptedAndGivenBack)
{
    int nMade = 0, nFreed = 0;
    ImportHook<decltype(AllocateAndInitializeSid)> make(
        "AllocateAndInitializeSid", [&](auto... args) { return ++nMade, make.Real(args...); });
    ImportHook<decltype(FreeSid)> free("FreeSid", [&](PSID p) { return ++nFreed, free.Real(p); });
    {
        SecurityID id;
        for (int i = 0; i < 2; ++i)
        {
            id.CreateAdminSid(id.m_pAdminSid.get());
            id.CreateSystemSid(id.m_pSystemSid.get());
            id.CreateWorldSid(id.m_pWorldSid.get());
        }
        EXPECT_EQ(SidText(id.m_pAdminSid.get()), "S-1-5-32-544");
        EXPECT_EQ(SidText(id.m_pSystemSid.get()), "S-1-5-18");
        EXPECT_EQ(SidText(id.m_pWorldSid.get()), "S-1-1-0");
        EXPECT_EQ(nMade - nFreed, 3);
    }
    EXPECT_EQ(nFreed, 3);
}

TEST(SecurityID, AccountLookupTriesTwiceAndRecordsEachFailure)
{
    // Results of both look-ups, whether the second allocation fails; what is recorded, by the
    // probe of "znm" (a user's is 11 more).
    const std::tuple<DWORD, DWORD, bool, std::vector<std::string>> cases[] = {
        {0, 0, false, {}},
        {122, 0, false, {}},
        {1332, 0, false, {"5 Error 1332 looking up ACCOUNT account (1)"}},
        {122, 1332, false, {"4 Error 1332 looking up ACCOUNT account name (2)"}},
        {122,
         122,
         true,
         {"3 Error allocating ACCOUNT SID buffer (2)", "4 Error 122 looking up ACCOUNT account name (2)"}}};
    for (const auto& [nFirst, nSecond, fNoMemory, recorded] : cases)
        for (const bool fUser : {false, true})
        {
            Capture capture;
            int nCalls = 0;
            Lookup lookup("LookupAccountNameW",
                          [&](LPCWSTR pszSystem, LPCWSTR pszName, PSID pSid, DWORD* pnSid, LPWSTR,
                              DWORD* pnDomain, SID_NAME_USE* peUse) {
                              const bool fFirst = ++nCalls == 1;
                              EXPECT_STREQ(pszName, fUser ? L"someone" : L"znm");
                              EXPECT_TRUE(pszSystem == nullptr && *peUse == 8 && *pnDomain == 1024);
                              EXPECT_EQ(*pnSid, fFirst ? 64u : fNoMemory ? 0u : 1u << 20);
                              EXPECT_EQ(pSid == nullptr, !fFirst && fNoMemory);
                              const DWORD nError = fFirst ? nFirst : nSecond;
                              if (nError == 0)
                                  return CreateWellKnownSid(WinLocalSid, nullptr, pSid, pnSid);
                              *pnSid = fNoMemory ? 0xFFFFFFF0 : 1u << 20;
                              *pnDomain = 5000; // more than there is: must not come back
                              return Fail(nError);
                          });
            ImportHook<decltype(malloc)> memory(
                "malloc", [&](size_t n) { return fNoMemory && n == 0xFFFFFFF0 ? nullptr : memory.Real(n); });
            SecurityID id;
            fUser ? id.CreateUserSid(nullptr, L"someone") : id.CreateZnmSid(nullptr);
            std::vector<std::string> expected;
            for (std::string str : recorded)
            {
                str.replace(str.find("ACCOUNT"), 7, fUser ? "User" : "ZNM");
                expected.push_back(
                    (fUser ? "! 51/" + std::to_string(str[0] - '0' + 11) : "! 46/" + str.substr(0, 1)) +
                    str.substr(1));
            }
            EXPECT_EQ(capture.Only("!"), expected);
            EXPECT_EQ((fUser ? id.m_pUserSid : id.m_pZnmSid) != nullptr, recorded.empty())
                << nFirst << " " << nSecond;
        }
}

TEST(SecurityID, FailuresOfFixedSidsAndFirstBuffersAreRecorded)
{
    Capture capture;
    SecurityID id;
    {
        ImportHook<decltype(AllocateAndInitializeSid)> hook("AllocateAndInitializeSid",
                                                            [](auto...) { return Fail(1337); });
        id.CreateAdminSid(nullptr);
        id.CreateWorldSid(nullptr);
        id.CreateSystemSid(nullptr);
        EXPECT_EQ(id.SetOwner(L"C:\\", SE_FILE_OBJECT), TRUE); // without the SID it does nothing more
    }
    capture.area.fTraceActive = 0; // the lines themselves would take blocks of that size
    xihProcess = {};
    for (const bool fUser : {false, true})
    {
        bool fLeft = true;
        ImportHook<decltype(malloc)> memory("malloc", [&](size_t n) {
            return n == 64 && std::exchange(fLeft, false) ? nullptr : memory.Real(n);
        });
        fUser ? id.CreateUserSid(nullptr, L"someone") : id.CreateZnmSid(nullptr);
    }
    xihProcess = {1, 1, 0};
    id.CreateUserSid(nullptr, L"");
    id.CreateUserSid(nullptr, nullptr);
    EXPECT_THAT(capture.Only("!-"),
                ElementsAre("! 45/0 Error 1337 creating world SID", "! 47/6 Error 1337 creating world SID",
                            "! 48/7 Error 1337 creating system SID", "! 45/0 Error 1337 creating world SID",
                            "! 46/1 Error allocating ZNM SID buffer (1)",
                            "! 51/12 Error allocating User SID buffer (1)", "- 51 No user name specified",
                            "- 51 No user name specified"));
    EXPECT_TRUE(!id.m_pAdminSid && !id.m_pWorldSid && !id.m_pSystemSid && !id.m_pZnmSid && !id.m_pUserSid);
}

// One test, because the privilege is enabled once for the whole process.
TEST(SecurityID, SetOwnerEnablesThePrivilegeOnceAndReportsOnlyRealFailures)
{
    Capture capture;
    SecurityID id;
    DWORD nResult = 0, nRefused = 8;
    std::vector<std::wstring> owned;
    int nAdjusted = 0;
    ImportHook<decltype(SetNamedSecurityInfoW)> set(
        "SetNamedSecurityInfoW",
        [&](LPWSTR psz, auto, DWORD nInfo, PSID pOwner, PSID pGroup, PACL p1, PACL p2) {
            EXPECT_TRUE(nInfo == 1 && pGroup == nullptr && p1 == nullptr && p2 == nullptr);
            EXPECT_EQ(SidText(pOwner), "S-1-5-32-544");
            owned.push_back(psz);
            return nResult;
        });
    ImportHook<decltype(LookupPrivilegeValueW)> look(
        "LookupPrivilegeValueW", [&](auto... args) { return nRefused == 8 ? Fail(8) : look.Real(args...); });
    ImportHook<decltype(OpenProcessToken)> open("OpenProcessToken", [&](HANDLE h, DWORD nAccess, HANDLE* ph) {
        EXPECT_EQ(nAccess, 0x28u);
        return nRefused == 9 ? Fail(9) : open.Real(h, nAccess, ph);
    });
    ImportHook<decltype(AdjustTokenPrivileges)> adjust(
        "AdjustTokenPrivileges",
        [&](HANDLE, BOOL fAll, TOKEN_PRIVILEGES* p, DWORD, TOKEN_PRIVILEGES* pOld, DWORD*) -> BOOL {
            EXPECT_TRUE(!fAll && pOld == nullptr && p->PrivilegeCount == 1 &&
                        p->Privileges[0].Attributes == 2);
            ++nAdjusted;
            SetLastError(nRefused);
            return nRefused != 10;
        });
    for (; nRefused <= 10; ++nRefused)
        EXPECT_EQ(id.SetOwner(L"C:\\a", SE_FILE_OBJECT), TRUE);
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
    EXPECT_EQ(capture.Count("# 50 Set ownership on 'C:\\a%s'"), 1);

    owned.clear();
    for (const wchar_t* psz : {L"software\\x", L"MACHINE\\x", L"machinery", L"MACH"})
        id.SetOwner(psz, SE_REGISTRY_KEY);
    id.SetOwner(L"software", SE_FILE_OBJECT);
    EXPECT_THAT(owned, ElementsAre(L"MACHINE\\software\\x", L"MACHINE\\x", L"machinery", L"MACHINE\\MACH",
                                   L"software"));
}
