// The record of a queue manager: what is written is what is read, or it is refused.
#include <gtest/gtest.h>

#include <random>

#include "znmrecord.h"

TEST(Record, KeepsEveryNameAndRefusesDamage)
{
    ZNRecord record;
    record.strQueueManager = record.aTrees[ZN_DATA].strDir = record.aTrees[ZN_LOG].strDir =
        record.aNew[ZN_DATA] = record.aNew[ZN_LOG] = L"C:\\50%\\\u00e9\xD83D\xDE00\xD800\tx";
    ZNEntry entry;
    entry.nSize = 1ull << 40;
    entry.strSha256 = std::string(64, 'a');
    entry.strSddl = L"O:BAG:SYD:(A;;FA;;;WD)";
    record.aTrees[ZN_DATA].entries[L"s\\\u65e5\u672c"] = record.aTrees[ZN_LOG].entries[L"qm.ini"] = entry;
    record.aTrees[ZN_DATA].entries[L"s"].fDirectory = true;
    const std::string strText = record.ToText(L"two\r\nlines\t");
    size_t nLine = 0;
    const auto read = ZNRecord::FromText(strText, nLine);
    ASSERT_TRUE(read) << nLine;
    EXPECT_EQ(read->ToText(L"two\r\nlines\t"), strText);
    EXPECT_EQ(read->aTrees[ZN_LOG].strDir, record.strQueueManager);
    EXPECT_EQ(read->aTrees[ZN_LOG].entries, record.aTrees[ZN_LOG].entries);

    std::mt19937 random(1);
    const std::string strBody = strText.substr(0, strText.rfind("sha256"));
    for (int i = 0; i < 10'000; ++i)
    {
        const bool fSealed = i % 2 == 0; // by somebody who changed it by hand
        std::string strDamaged = fSealed ? strBody : strText;
        strDamaged.replace(random() % strDamaged.size(), random() % 3, strDamaged,
                           random() % strDamaged.size(), random() % (i % 4 < 2 ? 3 : 90));
        const auto damaged = ZNRecord::FromText(fSealed ? ZNSealRecord(strDamaged) : strDamaged, nLine);
        if (!fSealed && strDamaged != strText)
            EXPECT_FALSE(damaged);
        if (damaged)
            for (const CZNInventory& tree : damaged->aTrees)
                for (const auto& [strPath, known] : tree.entries)
                    EXPECT_EQ(known.strSha256.size(), known.fDirectory ? 0 : 64);
    }
}
