// SPDX-License-Identifier: MIT
#include "panel/meter_level.h"

#include <gtest/gtest.h>

#include <limits>

namespace quorel {
namespace {

TEST(MeterLevel, IsInWholeDecibelsFromTheLowestToZero)
{
    MeterLevel meter;
    EXPECT_TRUE(meter.next(-30.4, 0.1));
    EXPECT_EQ(meter.level(), -30);
    EXPECT_TRUE(meter.next(5, 0.1));
    EXPECT_EQ(meter.level(), 0);
    EXPECT_TRUE(meter.next(-120, 0.1));
    EXPECT_EQ(meter.level(), -60);
    EXPECT_EQ(meter.peak(), 0);
    MeterLevel deaf;
    EXPECT_FALSE(deaf.next(std::numeric_limits<double>::quiet_NaN(), 0.1));
    EXPECT_EQ(deaf.level(), -60);
}

TEST(MeterLevel, TellsWhetherItLooksOtherwise)
{
    MeterLevel meter;
    EXPECT_TRUE(meter.next(-30, 0.1));
    EXPECT_FALSE(meter.next(-30.2, 0.1));
    EXPECT_TRUE(meter.next(-31, 0.1)); // and the peak stays
    EXPECT_EQ(meter.peak(), -30);
    EXPECT_TRUE(meter.next(-31, 10)); // long after its hold it has fallen to the level
    EXPECT_EQ(meter.peak(), -31);
}

} // namespace
} // namespace quorel
