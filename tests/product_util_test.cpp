// The utility library, as a program that is linked to it gets it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tovxzu.h"

namespace {
TEST(Utilities, NoFailureMapsToZero) {
    const std::pair<int32_t, int32_t> cases[] = {{0, 0}, {1, 1}, {0x40806178, 0x78}, {0x100, 255}, {-1, 255}, {INT32_MIN, 255}};
    for (auto [nCode, nMapped] : cases) {
        zutMapRCTo8bit(&nCode);
        EXPECT_EQ(nCode, nMapped);
    }
    zutMapRCTo8bit(nullptr);
}
} // namespace
