#include <windows.h>

#include <gtest/gtest.h>

#include <cstring>
#include <set>

#include "hook.h"
#include "tempdir.h"
#include "znmidentity.h"

namespace
{
using Identity = std::optional<CZNDirectoryIdentity>;
Identity IdentityOf(const fs::path& path)
{
    DWORD nError = 0;
    const Identity identity = CZNDirectoryIdentity::Of(path.c_str(), nError);
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
    const int UNUSED = -1, MISSING = -2;
    for (const int nByte : {UNUSED, MISSING, 0x00, 0xFF})
    {
        ImportHook<decltype(GetFileInformationByHandleEx)> information(
            "GetFileInformationByHandleEx", [&](HANDLE h, auto eClass, void* p, DWORD nSize) -> BOOL {
                if (nByte == MISSING)
                    return SetLastError(ERROR_INVALID_PARAMETER), FALSE;
                const BOOL fDone = information.Real(h, eClass, p, nSize);
                if (nByte != UNUSED)
                    std::memset(&static_cast<FILE_ID_INFO*>(p)->FileId, nByte, sizeof(FILE_ID_128));
                return fDone;
            });
        const Identity one = IdentityOf(temp.root / "One"), two = IdentityOf(temp.root / "Two");
        ASSERT_TRUE(one && two) << nByte;
        EXPECT_NE(*one, *two) << nByte;
        EXPECT_EQ(*one, *IdentityOf(temp.root / "ONE")) << nByte;
        EXPECT_EQ(*one, *IdentityOf(temp.root / "link")) << nByte;
        EXPECT_EQ(*one, *IdentityOf(temp.root / "Two\\..\\One")) << nByte;
        EXPECT_EQ((std::set{*one, *two, *one}.size()), 2u) << nByte;
    }
}

TEST(Identity, IsNothingWhereItCannotBeTold)
{
    const TempDir temp;
    EXPECT_FALSE(IdentityOf(temp.root / "missing"));
    ImportHook<decltype(GetFileInformationByHandleEx)> none(
        "GetFileInformationByHandleEx",
        [](auto, auto, void* p, DWORD nSize) { return std::memset(p, 0, nSize) != nullptr; });
    ImportHook<decltype(GetFinalPathNameByHandleW)> unnamed(
        "GetFinalPathNameByHandleW", [](auto...) { return SetLastError(ERROR_PATH_NOT_FOUND), DWORD{0}; });
    EXPECT_FALSE(IdentityOf(temp.root));
}
