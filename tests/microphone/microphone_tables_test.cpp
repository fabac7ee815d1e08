// SPDX-License-Identifier: MIT
#include "microphone/microphone_tables.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <numeric>

namespace quorel {
namespace {

using Widths = std::span<const std::uint64_t>;

TEST(MicrophoneTables, TwoRatesAreKnown)
{
    ASSERT_NE(microphoneRate(16000), nullptr);
    ASSERT_NE(microphoneRate(48000), nullptr);
    for (const std::uint32_t rate : {0U, 8000U, 44100U, 47999U, 96000U})
        EXPECT_EQ(microphoneRate(rate), nullptr) << rate;
}

TEST(MicrophoneTables, AFrameIsFiveMillisecondsAtBothRates)
{
    EXPECT_EQ(microphoneRate(16000)->hop, 16000U / 200);
    EXPECT_EQ(microphoneRate(48000)->hop, 48000U / 200);
    EXPECT_EQ(microphoneRate(16000)->fftLength, 512U);
    EXPECT_EQ(microphoneRate(48000)->fftLength, 1024U);
}

TEST(MicrophoneTables, TheLatencyFollowsFromTheWindowsAndTheHop)
{
    for (const std::uint32_t rate : {16000U, 48000U}) {
        const MicrophoneRateRow& row = *microphoneRate(rate);
        EXPECT_EQ(row.latency, (row.analysisWindow.size() - 1) / 2 + row.synthesisWindow.size() / 2 - row.hop + 1);
    }
}

TEST(MicrophoneTables, TheBandsCoverHalfTheSpectrum)
{
    for (const std::uint32_t rate : {16000U, 48000U}) {
        const MicrophoneRateRow& row = *microphoneRate(rate);
        EXPECT_EQ(row.gainWidths.size(), gainBandCount);
        EXPECT_EQ(row.levelWidths.size(), levelBandCount);
        for (const Widths widths : {Widths(row.gainWidths), Widths(row.levelWidths)})
            EXPECT_EQ(std::accumulate(widths.begin(), widths.end(), std::uint64_t{0}), row.fftLength / 2);
    }
}

TEST(MicrophoneTables, TheGainBandsEndAtTheirFrequencies)
{
    // Half a bin at either rate decides the nearest edge; in the lowest bands the edges are a bin apart.
    const std::array<double, gainBandCount> edges = {62.5, 125,  187.5, 250,  375,  500,  625,  750,
                                                     1000, 1250, 1500,  2000, 3000, 4000, 6000, 0};
    for (const std::uint32_t rate : {16000U, 48000U}) {
        const MicrophoneRateRow& row = *microphoneRate(rate);
        const double bin = static_cast<double>(rate) / static_cast<double>(row.fftLength);
        double edge = 0.0;
        for (std::size_t j = 0; j + 1 < gainBandCount; ++j) {
            edge += bin * static_cast<double>(row.gainWidths[j]);
            EXPECT_NEAR(edge, edges[j], rate == 16000 ? 0.0 : bin) << "band " << j;
        }
    }
}

TEST(MicrophoneTables, TheGatesCoefficientsFollowFromItsTimeConstants)
{
    for (const std::uint32_t rate : {16000U, 48000U}) {
        const auto coefficient = [&](double tau) { return static_cast<float>(1.0 - std::exp(-1.0 / (rate * tau))); };
        EXPECT_EQ(microphoneRate(rate)->gateAttack, coefficient(0.003));
        EXPECT_EQ(microphoneRate(rate)->gateRelease, coefficient(1.2));
    }
}

TEST(MicrophoneTables, TheGatesCurveFollowsFromItsDecibels)
{
    const auto linear = [](double db) { return static_cast<float>(std::pow(10.0, db / 20.0)); };
    EXPECT_EQ(gateCurve[0].level, linear(-30.0));
    EXPECT_EQ(gateCurve[0].gain, linear(-50.0));
    EXPECT_EQ(gateCurve[1].level, linear(-24.0));
    EXPECT_EQ(gateCurve[1].gain, 1.0F);
}

TEST(MicrophoneTables, TheGateGainsFollowFromTheirFormula)
{
    EXPECT_EQ(gateGainTable[0], 0.0F);
    for (int i = 1; i < 256; ++i)
        EXPECT_EQ(std::bit_cast<std::uint32_t>(gateGainTable[static_cast<std::size_t>(i)]),
                  std::bit_cast<std::uint32_t>(static_cast<float>(std::pow(10.0, (128.0 - i) / 127.0))))
            << i;
    EXPECT_EQ(gateGainTable[1], 10.0F);
    EXPECT_EQ(gateGainTable[128], 1.0F);
    EXPECT_EQ(gateGainTable[255], 0.1F);
}

TEST(MicrophoneTables, TheSuppressionFollowsFromItsDecibelsAndFrames)
{
    const SuppressionGainTables tables = suppressionTables();
    for (std::size_t b = 0; b < gainBandCount; ++b) {
        EXPECT_EQ(tables.maxSuppression[b], static_cast<float>(1.0 - std::pow(10.0, -0.5)));
        EXPECT_EQ(tables.smoothing[b], static_cast<float>(1.0 - std::exp(-0.125)));
    }
}

TEST(MicrophoneTables, TheLevelCoefficientsNeverPassTheWholeDistance)
{
    const OgleTables narrow = levelTrackerTables(16000);
    const OgleTables wide = levelTrackerTables(48000);
    EXPECT_EQ(narrow.rise, std::vector<float>(levelBandCount, 1.0F));
    EXPECT_EQ(narrow.catchUpRate, std::vector<float>(levelBandCount, 0.5F));
    EXPECT_EQ(wide.rise, std::vector<float>(levelBandCount, 1.0F));
    EXPECT_EQ(wide.catchUpRate, std::vector<float>(levelBandCount, 1.0F));
    EXPECT_EQ(wide.fall, std::vector<float>(levelBandCount, 0.75000006F));
    EXPECT_EQ(wide.dropRate, std::vector<float>(levelBandCount, 0.37500003F));
}

TEST(MicrophoneTables, TheFastFactorOfBand0AloneIsAboveOne)
{
    // Required: the floor of that band climbs to infinity.
    const BottomTrackerTables tables = noiseTrackerTables();
    EXPECT_EQ(tables.fastFall[0], 9.60000038F);
    for (std::size_t b = 1; b < gainBandCount; ++b)
        EXPECT_EQ(tables.fastFall[b], 0.960000038F);
    EXPECT_EQ(tables.slowFall, std::vector<float>(gainBandCount, 0.970000029F));
}

} // namespace
} // namespace quorel
