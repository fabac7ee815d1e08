// SPDX-License-Identifier: MIT
#include "tests/live/session/endurance_verdict.h"

#include <gtest/gtest.h>

namespace quorel {
namespace {

constexpr Stalls none{0.2, 1.0, 0.9}; // ms: nothing above one

TEST(EnduranceVerdict, PassesWhatLostNothing)
{
    EXPECT_EQ(verdictOn(0, "FIFO 88", none), Verdict::passed);
    EXPECT_EQ(verdictOn(0, "normal", {5, 5, 5}), Verdict::passed);
}

TEST(EnduranceVerdict, FailsALossInRealTimeOnAMachineThatKeepsTime)
{
    EXPECT_EQ(verdictOn(1, "FIFO 88", none), Verdict::failed);
    EXPECT_EQ(verdictOn(700, "round robin 20", none), Verdict::failed);
}

TEST(EnduranceVerdict, ExcusesALossWithoutRealTimeScheduling)
{
    EXPECT_EQ(verdictOn(1, "normal", none), Verdict::excused);
    EXPECT_EQ(verdictOn(1, "unknown", none), Verdict::excused);
}

TEST(EnduranceVerdict, ExcusesALossWhereTheMachineStoodStill)
{
    EXPECT_EQ(verdictOn(1, "FIFO 88", {1.1, 0, 0}), Verdict::excused);
    EXPECT_EQ(verdictOn(1, "FIFO 88", {0, 1.1, 0}), Verdict::excused);
    EXPECT_EQ(verdictOn(1, "FIFO 88", {0, 0, 1.1}), Verdict::excused);
}

} // namespace
} // namespace quorel
