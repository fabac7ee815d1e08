// SPDX-License-Identifier: MIT
#include "panel/chart_scale.h"

#include <gtest/gtest.h>

namespace quorel {
namespace {

// 20 Hz to 20 kHz are three decades: 200 Hz stands at a third. 0 dB is half way between 15 and -15. Each figure is a few roundings
// from its own, of numbers up to 20000.
TEST(ChartScale, PutsDecadesAndDecibelsAtEvenPlaces)
{
    EXPECT_NEAR(equalizerScale.xOf(20, 301), 0, 1e-9);
    EXPECT_NEAR(equalizerScale.xOf(200, 301), 100, 1e-9);
    EXPECT_NEAR(equalizerScale.xOf(20000, 301), 300, 1e-9);
    EXPECT_EQ(equalizerScale.yOf(15, 101), 0);
    EXPECT_EQ(equalizerScale.yOf(0, 101), 50);
    EXPECT_EQ(equalizerScale.yOf(-15, 101), 100);
}

TEST(ChartScale, FindsTheFrequencyOfAPlaceAgain)
{
    for (const double hz : {100.0, 1000.0, 12345.0, 20000.0})
        EXPECT_NEAR(responseScale.hzAt(responseScale.xOf(hz, 222), 222), hz, 1e-8);
}

} // namespace
} // namespace quorel
