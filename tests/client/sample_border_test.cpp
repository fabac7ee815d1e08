// SPDX-License-Identifier: MIT
#include "client/sample_border.h"

#include <gtest/gtest.h>

#include <array>
#include <limits>

namespace quorel {
namespace {

constexpr float infinity = std::numeric_limits<float>::infinity();

TEST(SampleBorder, LetsPassWhatAnEffectCanTake)
{
    std::array<float, 8> x = {0, -0.0F, 1, -1, 1e-42F, 1048576, -1048576, std::numeric_limits<float>::min()};
    const auto before = x;
    SampleBorder border(2);
    border.pass(x.data(), 4);
    EXPECT_EQ(x, before);
    EXPECT_EQ(border.replaced(), 0U);
}

TEST(SampleBorder, PutsZeroForWhatItCannot)
{
    const float above = std::nextafter(1048576.0F, infinity);
    std::array<float, 7> x = {std::numeric_limits<float>::quiet_NaN(), infinity, -infinity, 1e15F, -1e15F, above, -above};
    SampleBorder border(1);
    border.pass(x.data(), x.size());
    EXPECT_EQ(x, (std::array<float, 7>{}));
    EXPECT_EQ(border.replaced(), 7U);
}

TEST(SampleBorder, TellsTheFirstPlaceInTheWholeStream)
{
    SampleBorder border(3);
    std::array<float, 6> x{};
    border.pass(x.data(), 2);
    x[4] = infinity; // frame 1 of this block, channel 1
    border.pass(x.data(), 2);
    x[0] = infinity;
    border.pass(x.data(), 2);
    EXPECT_EQ(border.replaced(), 2U);
    EXPECT_EQ(border.firstFrame(), 3U);
    EXPECT_EQ(border.firstChannel(), 1U);
}

} // namespace
} // namespace quorel
