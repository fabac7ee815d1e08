// SPDX-License-Identifier: MIT
#include "client/rounding.h"

#include <gtest/gtest.h>

#include <array>
#include <vector>

namespace quorel {
namespace {

std::int32_t rounded(int bits, float x)
{
    std::int32_t y = 0;
    Rounding(bits, false).process(&x, &y, 1);
    return y >> (32 - bits);
}

TEST(Rounding, WithoutDitherTheNearestIntegerIsTaken)
{
    EXPECT_EQ(rounded(16, 0.6F / 32768), 1);
    EXPECT_EQ(rounded(16, -0.6F / 32768), -1);
    EXPECT_EQ(rounded(16, 0.4F / 32768), 0);
    EXPECT_EQ(rounded(24, -1000.4F / 8388608), -1000);
}

TEST(Rounding, WhatIsBeyondTheIntegersIsHeldAtTheirEnds)
{
    EXPECT_EQ(rounded(16, 1), 32767);
    EXPECT_EQ(rounded(16, -1), -32768);
    EXPECT_EQ(rounded(16, 1e6F), 32767);
    EXPECT_EQ(rounded(24, -1e6F), -8388608);
    std::array<float, 100> x{};
    x.fill(-1);
    std::array<std::int32_t, 100> y{};
    Rounding(16, true).process(x.data(), y.data(), x.size());
    for (const std::int32_t each : y)
        EXPECT_LE(each, -32767 * 65536);
}

// The sum of two even numbers of one step is within one step to either side, a step of it half as often on each side as none:
// of silence, rounded, 3/4 become 0 and 1/8 each 1 and -1. 60000 draws deviate by 0.0018; five of that.
TEST(Rounding, DitherIsTriangularAndOneStepWide)
{
    constexpr std::size_t count = 60000;
    const std::vector<float> x(count);
    std::vector<std::int32_t> y(count);
    Rounding(16, true).process(x.data(), y.data(), count);
    std::array<double, 3> share{};
    for (const std::int32_t each : y) {
        ASSERT_EQ(each % 65536, 0);
        ASSERT_LE(std::abs(each / 65536), 1);
        share.at(static_cast<std::size_t>(each / 65536 + 1)) += 1.0 / count;
    }
    EXPECT_NEAR(share[0], 0.125, 0.009);
    EXPECT_NEAR(share[1], 0.75, 0.009);
    EXPECT_NEAR(share[2], 0.125, 0.009);
}

TEST(Rounding, PortionsChangeNothing)
{
    const std::vector<float> x(1000, 0.1F);
    std::vector<std::int32_t> whole(1000);
    std::vector<std::int32_t> cut(1000);
    Rounding(24, true).process(x.data(), whole.data(), 1000);
    Rounding portions(24, true);
    portions.process(x.data(), cut.data(), 7);
    portions.process(x.data() + 7, cut.data() + 7, 993);
    EXPECT_EQ(cut, whole);
}

} // namespace
} // namespace quorel
