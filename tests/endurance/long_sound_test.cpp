// SPDX-License-Identifier: MIT
#include "tests/endurance/long_sound.h"

#include <gtest/gtest.h>

namespace quorel {
namespace {

// The long proof runs the same for hours, by `long_sound_run`.
TEST(LongSound, StaysFiniteAndTheSameInOtherCuts)
{
    LongSound sound(1);
    for (int second = 0; second < 20; ++second) // fourteen loud ones and six silent ones
        ASSERT_NO_THROW(sound.second());
    EXPECT_GT(sound.samples(), 10'000'000U);
    EXPECT_GT(sound.replaced(), 1000U);
}

} // namespace
} // namespace quorel
