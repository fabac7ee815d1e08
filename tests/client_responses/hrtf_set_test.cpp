// SPDX-License-Identifier: MIT
#include "client/hrtf_set.h"

#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <numbers>
#include <vector>

namespace quorel {
namespace {

// The bins one by one, in double precision: both sums are of a few thousand terms, each rounded by 1e-16.
TEST(HrtfSet, ThirdOctavesHoldTheMeanPowerOfTheirBins)
{
    std::vector<float> taps(300);
    std::uint32_t state = 1;
    for (float& tap : taps) {
        state = state * 1664525U + 1013904223U;
        tap = static_cast<float>(static_cast<std::int32_t>(state)) * 0x1p-31F;
    }
    const auto powers = octavePowers(taps);
    constexpr double bins = 32768;
    for (std::size_t band = 0; band < powers.size(); ++band) {
        const double centre = 62.5 * std::pow(2, band) * bins / 48000;
        double sum = 0;
        int count = 0;
        for (double k = std::ceil(centre / std::cbrt(std::sqrt(2))); k < centre * std::cbrt(std::sqrt(2)); ++k, ++count) {
            std::complex<double> x = 0;
            const auto turn = std::polar(1.0, -2 * std::numbers::pi * k / bins);
            std::complex<double> place = 1;
            for (const float tap : taps) {
                x += static_cast<double>(tap) * place;
                place *= turn;
            }
            sum += std::norm(x);
        }
        EXPECT_NEAR(powers.at(band), sum / count, 1e-10 * sum / count) << band;
    }
}

// Every response is two taps: the set begins with the first one, where the second falls least into the fade at
// the end, whose value at 6 of 24 frames is 0.5 + 0.5 cos(6.5 pi / 24). A frame earlier loses more, a frame later the first tap.
TEST(HrtfSet, TheCutIsWhereTheWorstResponseLosesLeast)
{
    constexpr std::size_t first = 60000;
    constexpr float second = 0.25F;
    MeasuredSet measured;
    for (MeasuredPair& pair : measured.speakers)
        for (auto* taps : {&pair.left, &pair.right}) {
            taps->resize(65536);
            taps->at(first) = 1;
            taps->at(first + fittedTaps - 24 + 6) = second;
        }
    const FittedSet set = fitSet(measured, 0);
    EXPECT_EQ(set.skipped, first);
    const double fade = 0.5 + 0.5 * std::cos(6.5 * std::numbers::pi / 24);
    constexpr double lost = 0.0625; // the second tap's energy
    EXPECT_NEAR(set.worstCut, lost * (1 - fade * fade) / (1 + lost), 1e-12);
}

} // namespace
} // namespace quorel
