// SPDX-License-Identifier: MIT
#include "microphone/suppression_gain.h"

#include "microphone/microphone_tables.h"
#include "tests/microphone/cases.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>

namespace quorel {
namespace {

constexpr float infinity = std::numeric_limits<float>::infinity();
constexpr float notANumber = std::numeric_limits<float>::quiet_NaN();

template <std::size_t N>
Buffer<float, N> levels(float value, std::uint64_t frames = 1)
{
    Buffer<float, N> buffer(gainBandCount * frames);
    for (std::size_t c = 0; c < N; ++c)
        std::fill_n(buffer.channel(c), gainBandCount * frames, value);
    buffer.setSize(gainBandCount * frames);
    return buffer;
}

// The gain of one band after `frames` frames of steady levels.
float settled(float noise, float signal, std::uint64_t frames = 400)
{
    SuppressionGain<1> law(suppressionTables());
    SpectrumBuffer<1> gains(gainBandCount * frames);
    law.process(levels<1>(noise, frames), levels<1>(signal, frames), gains);
    return gains.channel(0)[gainBandCount * frames - 1].real();
}

TEST(SuppressionGain, AStreamStartsSilentAndRisesWithATimeConstantOfEightFrames)
{
    forChannelCounts([]<std::size_t N>() {
        SuppressionGain<N> law(suppressionTables());
        SpectrumBuffer<N> gains(gainBandCount);
        for (int frame = 1; frame <= 40; ++frame) {
            law.process(levels<N>(0.0F), levels<N>(1.0F), gains);
            EXPECT_EQ(gains.size(), gainBandCount);
            for (std::size_t c = 0; c < N; ++c) {
                // 40 frames of two roundings each.
                EXPECT_NEAR(gains.channel(c)[0].real(), 1.0 - std::exp(-frame / 8.0), 40 * 1.2e-7) << frame;
                EXPECT_EQ(gains.channel(c)[0].imag(), 0.0F);
            }
        }
    });
}

TEST(SuppressionGain, TheGainIsOneWhenTheSignalStandsFarAboveTheNoise)
{
    EXPECT_EQ(settled(1e-5F, 7e-5F), 1.0F); // 2/7 is below 0.3
    EXPECT_LT(settled(1e-5F, 6e-5F), 0.97F);
}

TEST(SuppressionGain, NoiseItselfIsLoweredByTenDecibels)
{
    const float tenDb = 1.0F - 0.683772206F;
    EXPECT_NEAR(settled(1e-4F, 1e-4F), tenDb, 1e-6F);
    EXPECT_NEAR(settled(1e-4F, 2.03e-4F), tenDb, 1e-6F); // 2 / 2.03 - 0.3 = 0.685
    EXPECT_GT(settled(1e-4F, 2.06e-4F), tenDb + 0.01F);
}

TEST(SuppressionGain, WhatTheLevelsHoldTheGainStaysFinite)
{
    // Every pair ends in full suppression but a signal that is infinite above a finite floor.
    for (const float noise : {infinity, notANumber})
        for (const float signal : {0.0F, 1.0F, infinity, notANumber})
            EXPECT_NEAR(settled(noise, signal), 1.0F - 0.683772206F, 1e-6F) << noise << ' ' << signal;
    EXPECT_NEAR(settled(1e-5F, notANumber), 1.0F - 0.683772206F, 1e-6F);
    EXPECT_EQ(settled(1e-5F, infinity), 1.0F);
    EXPECT_EQ(settled(0.0F, 0.0F), 1.0F);
    EXPECT_EQ(settled(1e-40F, 1e-40F), 1.0F);
}

TEST(SuppressionGain, AnInfiniteFloorIsForgottenWithTheSmoothingsTimeConstant)
{
    SuppressionGain<1> law(suppressionTables());
    SpectrumBuffer<1> gains(gainBandCount * 400);
    law.process(levels<1>(infinity, 400), levels<1>(1.0F, 400), gains);
    law.process(levels<1>(0.0F, 400), levels<1>(1.0F, 400), gains);
    EXPECT_EQ(gains.channel(0)[gainBandCount * 400 - 1].real(), 1.0F);
}

TEST(SuppressionGain, EveryFrameFollowsTheLawInDoublePrecision)
{
    forChannelCounts([]<std::size_t N>() {
        SuppressionGainTables tables = suppressionTables();
        for (std::size_t b = 0; b < gainBandCount; ++b) { // each band's value can be set separately
            tables.ratioScale[b] += 0.1F * static_cast<float>(b);
            tables.offset[b] -= 0.01F * static_cast<float>(b);
            tables.noiseScale[b] += static_cast<float>(b);
            tables.smoothing[b] += 0.01F * static_cast<float>(b);
            tables.maxSuppression[b] -= 0.01F * static_cast<float>(b);
        }
        SuppressionGain<N> law(tables);
        constexpr std::uint64_t frames = 500;
        std::mt19937 random(13);
        std::uniform_real_distribution<float> decades(-8.0F, 0.0F);
        Buffer<float, N> noise(gainBandCount * frames);
        Buffer<float, N> signal(gainBandCount * frames);
        for (std::size_t c = 0; c < N; ++c)
            for (std::uint64_t k = 0; k < gainBandCount * frames; ++k) {
                noise.channel(c)[k] = std::pow(10.0F, decades(random));
                signal.channel(c)[k] = noise.channel(c)[k] * std::pow(10.0F, 0.3F * (decades(random) + 6.0F));
            }
        noise.setSize(gainBandCount * frames);
        signal.setSize(gainBandCount * frames);
        SpectrumBuffer<N> gains(gainBandCount * frames);
        law.process(noise, signal, gains);
        EXPECT_EQ(gains.size(), gainBandCount * frames);
        for (std::size_t c = 0; c < N; ++c) {
            for (std::size_t b = 0; b < gainBandCount; ++b) {
                double held = 1.0;
                for (std::uint64_t f = 0; f < frames; ++f) {
                    const double nz = noise.channel(c)[f * gainBandCount + b];
                    const double s = std::max(double{signal.channel(c)[f * gainBandCount + b]}, double{tables.epsilon});
                    const double target = std::clamp(double{tables.ratioScale[b]} * nz / s + double{tables.noiseScale[b]} * nz +
                                                         double{tables.offset[b]},
                                                     0.0, double{tables.maxSuppression[b]});
                    held += double{tables.smoothing[b]} * (target - held);
                    // A target's roundings are those of a ratio near 1; the smoothing averages a few of 2^-24 each.
                    ASSERT_NEAR(gains.channel(c)[f * gainBandCount + b].real(), 1.0 - held, 1e-6) << "frame " << f;
                }
            }
        }
    });
}

TEST(SuppressionGain, NoFrameEmptiesTheGains)
{
    SuppressionGain<2> law(suppressionTables());
    Buffer<float, 2> noise(gainBandCount);
    Buffer<float, 2> signal(gainBandCount);
    SpectrumBuffer<2> gains(gainBandCount);
    gains.setSize(gainBandCount);
    law.process(noise, signal, gains);
    EXPECT_EQ(gains.size(), 0U);
}

} // namespace
} // namespace quorel
