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

// Chosen by ear, so that no formula gives them: the floors of the noise.
TEST(MicrophoneTables, TheNoiseFloorsLimitsAndStepsStandAsTuned)
{
    struct Row {
        float lowerLimit, riseStep, initialFloor;
    };
    // clang-format off
    const std::array<Row, gainBandCount> rows = {{
        {7.74860382e-06F, 0.00499999523F, 7.9870224e-06F},
        {7.74860382e-06F, 0.00499999523F, 1.57356262e-05F},
        {5.60283661e-06F, 0.00499999523F, 1.77621841e-05F},
        {5.00679016e-06F, 0.00499999523F, 1.14440918e-05F},
        {6.07967377e-06F, 0.00499999523F, 3.09944153e-06F},
        {6.07967377e-06F, 0.00499999523F, 2.62260437e-06F},
        {5.00679016e-06F, 0.00999999046F, 2.2649765e-06F},
        {5.60283661e-06F, 0.00899994373F, 1.66893005e-06F},
        {4.41074371e-06F, 0.00999999046F, 8.34465027e-07F},
        {4.41074371e-06F, 0.00999999046F, 5.96046448e-07F},
        {4.41074371e-06F, 0.00999999046F, 5.96046448e-07F},
        {3.93390656e-06F, 0.0199999809F, 4.76837158e-07F},
        {6.07967377e-06F, 0.0299999714F, 4.76837158e-07F},
        {7.74860382e-06F, 0.0499999523F, 4.76837158e-07F},
        {1.40666962e-05F, 0.100000024F, 4.76837158e-07F},
        {1.40666962e-05F, 0.100000024F, 2.38418579e-07F},
    }};
    // clang-format on
    const BottomTrackerTables tables = noiseTrackerTables();
    for (std::size_t b = 0; b < gainBandCount; ++b) {
        EXPECT_EQ(tables.lowerLimit[b], rows[b].lowerLimit) << "band " << b;
        EXPECT_EQ(tables.riseStep[b], rows[b].riseStep) << "band " << b;
        EXPECT_EQ(tables.initialFloor[b], rows[b].initialFloor) << "band " << b;
    }
    EXPECT_EQ(tables.smoothing, std::vector<float>(gainBandCount, 0.0606000423F));
    EXPECT_EQ(tables.onsetRatio, std::vector<float>(gainBandCount, 0.700000048F));
    EXPECT_EQ(tables.epsilon, 0x1p-23F);
}

TEST(MicrophoneTables, TheLevelTrackersRatesStandAsTuned)
{
    const OgleTables all[] = {signalTrackerTables(), levelTrackerTables(16000), levelTrackerTables(48000)};
    for (std::size_t k = 0; k < std::size(all); ++k) {
        const OgleTables& tables = all[k];
        const auto each = [&](float value) { return std::vector<float>(k == 0 ? gainBandCount : levelBandCount, value); };
        const bool wide = k == 2; // about three times the rates of the others, none beyond 1
        EXPECT_EQ(tables.floor, each(1.1920929e-06F)) << k;
        EXPECT_EQ(tables.rise, each(1.0F)) << k;
        EXPECT_EQ(tables.fall, each(wide ? 0.75000006F : 0.25F)) << k;
        EXPECT_EQ(tables.highRatio, each(0.9F)) << k;
        EXPECT_EQ(tables.lowRatio, each(0.7F)) << k;
        EXPECT_EQ(tables.catchUpRate, each(wide ? 1.0F : 0.5F)) << k;
        EXPECT_EQ(tables.dropRate, each(wide ? 0.37500003F : 0.125F)) << k;
        EXPECT_EQ(tables.holdRate, each(wide ? 2.28881854e-05F : 7.62939453e-06F)) << k;
    }
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
