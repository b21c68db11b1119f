#include <gtest/gtest.h>

#include <cstring>

#include "hook.h"
#include "tempdir.h"
#include "znmidentity.h"

// On file systems with usable identifiers, with old ones only, and with none.
TEST(Identity, TellsDirectoriesApartWhateverPathLeadsToThem)
{
    const TempDir temp;
    fs::create_directory(temp.root / "One");
    fs::create_directory(temp.root / "Two");
    MakeLink(temp.root / "link", temp.root / "One");
    constexpr int KEPT = -1, MISSING = -2;
    for (const int nByte : {KEPT, MISSING, 0x00, 0xFF})
    {
        const auto information = Hook(GetFileInformationByHandleEx, [&](auto h, auto e, void* p, auto n) {
            const BOOL fDone = nByte != MISSING && GetFileInformationByHandleEx(h, e, p, n);
            if (nByte >= 0)
                std::memset(&static_cast<FILE_ID_INFO*>(p)->FileId, nByte, sizeof(FILE_ID_128));
            return fDone;
        });
        const auto one = CZNIdentity::Of(temp.root / "One"), two = CZNIdentity::Of(temp.root / "Two");
        EXPECT_FALSE(one->IsSame(*two)) << nByte;
        for (const char* psz : {"ONE", "link", "Two\\..\\One"})
            EXPECT_TRUE(one->IsSame(*CZNIdentity::Of(temp.root / psz))) << nByte << psz;
    }
}
