// SPDX-License-Identifier: MIT
#include "panel/peak_hold.h"

#include <gtest/gtest.h>

#include <cmath>

namespace quorel {
namespace {

// A peak of -10 dB stays for 1.5 s; 0.5 s later it has fallen by 20 dB/s * 0.5 s. The figures are whole in binary but for sums of
// tenths: 20 of them are wrong by less than 1e-12.
TEST(PeakHold, StaysForAWhileAndThenFallsEvenly)
{
    PeakHold peak(-120);
    EXPECT_EQ(peak.next(-10, 0.1), -10);
    for (int i = 1; i <= 15; ++i)
        EXPECT_NEAR(peak.next(-60, 0.1), -10, 1e-12) << i;
    for (int i = 1; i <= 5; ++i)
        EXPECT_NEAR(peak.next(-60, 0.1), -10 - 2.0 * i, 1e-12) << i;
}

TEST(PeakHold, FallsAsFarWhateverTheTimesBetweenLooks)
{
    PeakHold peak(-120);
    peak.next(-10, 0);
    EXPECT_NEAR(peak.next(-60, 2.0), -20, 1e-12);
}

TEST(PeakHold, IsNeverBelowTheLevel)
{
    PeakHold peak(-120);
    peak.next(-10, 0);
    EXPECT_EQ(peak.next(-55, 60), -55);
    EXPECT_EQ(peak.next(-54.5, 0.1), -54.5);
    EXPECT_EQ(peak.next(-5, 0.1), -5);
}

} // namespace
} // namespace quorel
