// SPDX-License-Identifier: MIT
#include "panel/response_curve.h"

#include "speaker/hrtf_tables.h"

#include <gtest/gtest.h>

#include <cmath>

namespace quorel {
namespace {

// One tap has its own level at each frequency. Two equal ones are 1 + e^(-i pi / 2) at a quarter of the rate, sqrt(2) in size, and
// 2 at 0 Hz. The taps are exact floats; 177 turns of z by 2^-53 each are less than 1e-13.
TEST(ResponseLevel, IsThatOfTheTransformAtOneFrequency)
{
    for (const double hz : {20.0, 440.0, 12345.0})
        EXPECT_NEAR(levelDb(std::array{0.0F, 0.0F, 0.5F}, hz), 20 * std::log10(0.5), 1e-12);
    EXPECT_NEAR(levelDb(std::array{1.0F, 1.0F}, 12000), 10 * std::log10(2.0), 1e-12);
    EXPECT_NEAR(levelDb(std::array{1.0F, 1.0F}, 0), 20 * std::log10(2.0), 1e-12);
}

TEST(BuiltInTaps, LieBehindTheirOnsets)
{
    const ResponseTaps taps = builtInTaps();
    for (std::size_t row = 0; row < taps.size(); ++row)
        for (std::size_t ear = 0; ear < 2; ++ear) {
            const auto& response = ear == 0 ? speakerResponses[row].left : speakerResponses[row].right;
            for (std::size_t i = 0; i < fittedTaps; ++i) {
                const bool within = i >= response.onset && i - response.onset < response.taps.size();
                EXPECT_EQ(taps.at(row).at(ear).at(i), within ? response.taps.at(i - response.onset) : 0.0F) << row << ' ' << i;
            }
        }
}

// The first tap above a tenth of the largest, at 48 frames a millisecond.
TEST(Arrival, IsThatOfTheFirstTapAboveATenthOfTheLargest)
{
    EXPECT_DOUBLE_EQ(arrivalMs(std::array{0.0F, 0.05F, -0.2F, 1.0F}), 2.0 / 48);
    EXPECT_DOUBLE_EQ(arrivalMs(std::array{1.0F, 0.0F}), 0);
}

} // namespace
} // namespace quorel
