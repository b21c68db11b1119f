#include <gtest/gtest.h>

#include <thread>

#include "znmmark.h"

TEST(Mark, BelongsToOneMoveAndMayBeLookedAt)
{
    const std::wstring strName = L"Local\\ZN.Test.Mark." + std::to_wstring(GetCurrentProcessId());
    const KernelHandle look(CreateMutexW(nullptr, FALSE, strName.c_str())); // as tarvelcheck has it open
    CZNMark mark;
    EXPECT_TRUE(mark.Set(strName));
    bool fSetAgain = true;
    std::jthread([&] { fSetAgain = CZNMark().Set(strName); }).join();
    EXPECT_FALSE(fSetAgain);
}
