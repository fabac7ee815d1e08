// SPDX-License-Identifier: MIT
#include "panel/taken_away.h"

#include <gtest/gtest.h>

namespace quorel {
namespace {

std::optional<LiveSide> sideWith(double in, double out, std::uint64_t frames)
{
    LiveSide side;
    side.channels = 1;
    side.inEnergy = in;
    side.outEnergy = out;
    side.frames = frames;
    return side;
}

// 100 samples with an energy of 1 are at 10 log10(1 / 100) = -20 dB, with one of 0.01 at -40 dB.
TEST(TakenAway, IsTheLevelsOfTheTimeBetweenTwoAnswers)
{
    TakenAway taken;
    EXPECT_FALSE(taken.next(sideWith(7, 3, 1000)));
    const auto levels = taken.next(sideWith(8, 3.01, 1100));
    ASSERT_TRUE(levels);
    EXPECT_NEAR(levels->inDb, -20, 1e-9);
    EXPECT_NEAR(levels->outDb, -40, 1e-9);
}

TEST(TakenAway, OfSilenceIsTheLowestLevel)
{
    TakenAway taken;
    taken.next(sideWith(1, 1, 1000));
    const auto levels = taken.next(sideWith(1, 1, 2000));
    ASSERT_TRUE(levels);
    EXPECT_EQ(levels->inDb, TakenAway::silenceDb);
    EXPECT_EQ(levels->outDb, TakenAway::silenceDb);
}

// One that stands counts no frames, one that began anew counts fewer, one that is gone tells nothing.
TEST(TakenAway, IsNothingOfAMicrophoneThatStands)
{
    TakenAway taken;
    taken.next(sideWith(5, 5, 1000));
    EXPECT_FALSE(taken.next(sideWith(5, 5, 1000)));
    EXPECT_FALSE(taken.next(sideWith(0.1, 0.1, 10)));
    EXPECT_TRUE(taken.next(sideWith(0.2, 0.2, 20)));
    EXPECT_FALSE(taken.next(std::nullopt));
    EXPECT_FALSE(taken.next(sideWith(0.3, 0.3, 30)));
}

} // namespace
} // namespace quorel
