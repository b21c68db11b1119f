#include <gtest/gtest.h>

#include <cstring>

#include "hook.h"
#include "tempdir.h"
#include "znmidentity.h"

namespace
{
auto IdentityOf(const fs::path& path)
{
    DWORD nError = 0;
    const auto identity = CZNIdentity::Of(path, nullptr, &nError);
    EXPECT_EQ(identity.has_value(), nError == 0);
    return identity;
}
} // namespace

// On file systems with usable identifiers, with old ones only, and with none.
TEST(Identity, TellsDirectoriesApartWhateverPathLeadsToThem)
{
    const TempDir temp;
    fs::create_directories(temp.root / "One");
    fs::create_directories(temp.root / "Two");
    MakeLink(temp.root / "link", temp.root / "One");
    constexpr int KEPT = -1, MISSING = -2;
    for (const int nByte : {KEPT, MISSING, 0x00, 0xFF})
    {
        const auto information =
            Hook(GetFileInformationByHandleEx, [&](auto h, auto eClass, void* p, auto nSize) {
                const BOOL fDone = nByte != MISSING && GetFileInformationByHandleEx(h, eClass, p, nSize);
                if (nByte >= 0)
                    std::memset(&static_cast<FILE_ID_INFO*>(p)->FileId, nByte, sizeof(FILE_ID_128));
                return fDone;
            });
        const auto one = IdentityOf(temp.root / "One"), two = IdentityOf(temp.root / "Two");
        ASSERT_TRUE(one && two) << nByte;
        EXPECT_FALSE(one->IsSame(*two)) << nByte;
        for (const char* psz : {"ONE", "link", "Two\\..\\One"})
            EXPECT_TRUE(one->IsSame(*IdentityOf(temp.root / psz))) << nByte << psz;
    }
    EXPECT_FALSE(IdentityOf(temp.root / "missing"));
    const auto none = Fails(GetFileInformationByHandleEx, FALSE, 87);
    const auto old = Hook(GetFileInformationByHandle, [](auto, auto* p) { return *p = {}, TRUE; });
    const auto unnamed = Fails(GetFinalPathNameByHandleW, DWORD{0}, ERROR_PATH_NOT_FOUND);
    EXPECT_FALSE(IdentityOf(temp.root));
}
