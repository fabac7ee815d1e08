// SPDX-License-Identifier: MIT
#include "stages/pending_value.h"

#include <gtest/gtest.h>

#include <array>
#include <limits>

namespace quorel {
namespace {

constexpr double nan = std::numeric_limits<double>::quiet_NaN();

TEST(PendingValue, IsBornZeroAndChanged)
{
    const PendingValue<float> one;
    EXPECT_EQ(one.value, 0.0F);
    EXPECT_TRUE(one.changed);
    const PendingValue<std::array<double, 9>> nine;
    EXPECT_EQ(nine.value, (std::array<double, 9>{}));
    EXPECT_TRUE(nine.changed);
}

TEST(PendingValue, ADifferentValueIsStoredAndMarked)
{
    PendingValue<float> target;
    target.changed = false;
    target.request(0.5F);
    EXPECT_EQ(target.value, 0.5F);
    EXPECT_TRUE(target.changed);
}

TEST(PendingValue, ASecondRequestBeforeTheBlockReplacesTheFirst)
{
    PendingValue<float> target;
    target.request(0.5F);
    target.request(0.25F);
    EXPECT_EQ(target.value, 0.25F);
    EXPECT_TRUE(target.changed);
}

TEST(PendingValue, AnEqualValueLeavesTheMarkAsItStands)
{
    PendingValue<float> target;
    target.request(0.0F);
    EXPECT_TRUE(target.changed);
    target.changed = false;
    target.request(0.0F);
    EXPECT_FALSE(target.changed);
}

TEST(PendingValue, OneDifferenceAmongNineStoresAllNine)
{
    for (std::size_t band = 0; band < 9; ++band) {
        PendingValue<std::array<double, 9>> target;
        target.changed = false;
        std::array<double, 9> wanted{};
        target.request(wanted);
        EXPECT_FALSE(target.changed);
        wanted[band] = -6.0;
        target.request(wanted);
        EXPECT_TRUE(target.changed);
        EXPECT_EQ(target.value, wanted);
    }
}

TEST(PendingValue, NotANumberDiffersEvenFromItself)
{
    PendingValue<float> one{std::numeric_limits<float>::quiet_NaN(), false};
    one.request(std::numeric_limits<float>::quiet_NaN());
    EXPECT_TRUE(one.changed);

    std::array<double, 9> wanted{};
    wanted[4] = nan;
    PendingValue<std::array<double, 9>> nine{wanted, false};
    nine.request(wanted);
    EXPECT_TRUE(nine.changed);
}

} // namespace
} // namespace quorel
