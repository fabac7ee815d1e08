// SPDX-License-Identifier: MIT
// What a record of settings does to a running capture path: gate, curves, levels.
#include "microphone/microphone_path.h"

#include "tests/microphone/microphone_path_runs.h"
#include "tests/support/noise.h"

#include <algorithm>
#include <cmath>

namespace quorel {
namespace {

// --- The gate --------------------------------------------------------------------------------------------------------

TEST(MicrophonePath, AGateOf300BehavesAs255)
{
    for (const std::uint32_t value : {300U, 256U, 0xFFFFFFFFU}) {
        Path<2> path(0, maxFrames, 16000);
        Path<2> last(0, maxFrames, 16000);
        set(path, [&](SettingsRecord& record) { record.noiseGate = value; });
        set(last, [](SettingsRecord& record) { record.noiseGate = 255; });
        const std::vector<float> x = normalNoise(maxFrames * 20, 0.5F);
        EXPECT_EQ(run(path, x), run(last, x));
        EXPECT_EQ(path.appliedGateGain(), 0.1F);
    }
}

TEST(MicrophonePath, AGateOf128OpensFullyAtMinus24Decibels)
{
    for (const std::uint32_t rate : bothRates) {
        // Constant samples: the envelope reaches them from below within a second.
        const float opening = std::pow(10.0F, -24.0F / 20.0F);
        for (const float level : {opening * 1.001F, opening * 0.99F}) {
            Path<1> path(0, maxFrames, rate);
            set(path, [](SettingsRecord& record) { record.noiseGate = 128; });
            const std::vector<float> y = run(path, std::vector<float>(rate, level));
            if (level > opening)
                EXPECT_EQ(y.back(), level);
            else
                EXPECT_LT(y.back(), 0.99F * level);
        }
    }
}

TEST(MicrophonePath, ASineOfMinus40DecibelsPassesGate1AndNotGate128)
{
    forRatesAndChannelCounts([]<std::size_t N>(std::uint32_t rate) {
        const std::vector<float> x = sine(rate, 1000.0, rate, 0.01);
        const std::size_t half = rate / 2;
        Path<N> open(0, maxFrames, rate);
        set(open, [](SettingsRecord& record) { record.noiseGate = 1; });
        const std::vector<float> passed = run(open, x);
        for (std::size_t i = half; i < x.size(); ++i)
            ASSERT_NEAR(passed[i], x[i], 2.5e-9F); // two roundings of 2^-24 of 0.01
        Path<N> closed(0, maxFrames, rate);
        set(closed, [](SettingsRecord& record) { record.noiseGate = 128; });
        const double gain = 20.0 * std::log10(rms(run(closed, x), half, x.size()) / rms(x, half, x.size()));
        EXPECT_NEAR(gain, -50.0, 1e-4);
    });
}

TEST(MicrophonePath, SwitchingTheGateOffAndBackLeavesItsGain)
{
    Path<1> path(0, maxFrames, 48000);
    for (const std::uint32_t value : {100U, 0U, 100U}) {
        set(path, [&](SettingsRecord& record) { record.noiseGate = value; });
        run(path, normalNoise(maxFrames));
        EXPECT_EQ(path.appliedGateGain(), std::pow(10.0F, 28.0F / 127.0F));
    }
}

TEST(MicrophonePath, TheLoudestChannelOpensTheGateOfAll)
{
    Path<2> path(0, maxFrames, 16000);
    set(path, [](SettingsRecord& record) { record.noiseGate = 128; });
    std::vector<float> in(maxFrames * 2);
    std::vector<float> out;
    for (int k = 0; k < 40; ++k) {
        for (std::size_t i = 0; i < maxFrames; ++i)
            in[2 * i] = 0.5F, in[2 * i + 1] = 1e-4F;
        out = block(path, in);
    }
    EXPECT_EQ(out[2 * maxFrames - 1], 1e-4F);
}

TEST(MicrophonePath, TheGateHearsWhatTheCurveLeaves)
{
    // At 75 Hz curve 2 takes off 14 dB and more: -18 dB open a gate of 128, and -32 dB are below where it is shut.
    for (const std::uint32_t rate : bothRates) {
        const std::vector<float> x = sine(4 * rate, 75.0, rate, 0.12);
        const auto level = [&](std::uint32_t curve, std::uint32_t gate) {
            Path<1> path(0, maxFrames, rate);
            set(path, [&](SettingsRecord& record) { record.micEq = curve, record.noiseGate = gate; });
            return 20.0 * std::log10(rms(run(path, x), 3 * rate, x.size())); // the start has died away
        };
        EXPECT_NEAR(level(0, 128), level(0, 0), 1e-4);
        EXPECT_NEAR(level(2, 128), level(2, 0) - 50.0, 1e-4);
    }
}

// --- The curves ------------------------------------------------------------------------------------------------------

TEST(MicrophonePath, AChangeOfCurvePendsOnceUntilItsBlock)
{
    forRatesAndChannelCounts([]<std::size_t N>(std::uint32_t rate) {
        Path<N> path(0, maxFrames, rate);
        const auto select = [&](std::uint32_t curve) { set(path, [&](SettingsRecord& record) { record.micEq = curve; }); };
        select(1);
        applyOnly(path);
        EXPECT_TRUE(path.appliedCurve().changed);
        run(path, normalNoise(maxFrames));
        EXPECT_FALSE(path.appliedCurve().changed);
        select(2);
        applyOnly(path);
        EXPECT_TRUE(path.appliedCurve().changed);
        run(path, normalNoise(240));
        EXPECT_FALSE(path.appliedCurve().changed);
        select(2);
        applyOnly(path);
        EXPECT_FALSE(path.appliedCurve().changed);
        EXPECT_EQ(path.appliedCurve().value, 2U);
    });
}

TEST(MicrophonePath, ACurveThatComesBackAfterNoneIsNoChange)
{
    Path<1> path(0, maxFrames, 16000);
    for (const std::uint32_t curve : {1U, 0U}) {
        set(path, [&](SettingsRecord& record) { record.micEq = curve; });
        run(path, normalNoise(maxFrames));
    }
    EXPECT_EQ(path.appliedCurve().value, 1U);
    set(path, [](SettingsRecord& record) { record.micEq = 1; });
    applyOnly(path);
    EXPECT_FALSE(path.appliedCurve().changed);
}

TEST(MicrophonePath, AFadeThatAwaitsItsBlockOutlastsRecordsWithoutACurve)
{
    Path<1> path(0, maxFrames, 16000);
    const auto select = [&](std::uint32_t curve) { set(path, [&](SettingsRecord& record) { record.micEq = curve; }); };
    select(1);
    applyOnly(path);
    EXPECT_TRUE(path.appliedCurve().changed);
    select(0);
    const std::vector<float> x = normalNoise(maxFrames);
    EXPECT_EQ(run(path, x), x);
    EXPECT_TRUE(path.appliedCurve().changed);
    select(1);
    run(path, x);
    EXPECT_FALSE(path.appliedCurve().changed);
}

TEST(MicrophonePath, EveryRecordRestartsTheCurveFromSilenceWhateverFieldChanged)
{
    // Required: a curve is selected with each record, and a selection clears the filters.
    forRatesAndChannelCounts([]<std::size_t N>(std::uint32_t rate) {
        for (const std::uint32_t curve : {1U, 2U}) {
            const auto select = [&](SettingsRecord& record) { record.micEq = curve; };
            Path<N> used(0, maxFrames, rate);
            set(used, select);
            run(used, normalNoise(maxFrames * 5));
            Path<N> going(0, maxFrames, rate);
            set(going, select);
            run(going, normalNoise(maxFrames * 5));
            Path<N> fresh(0, maxFrames, rate);
            set(fresh, select);
            applyOnly(fresh);
            run(fresh, std::vector<float>(maxFrames)); // the crossfade's block, in silence
            set(used, [](SettingsRecord& record) { record.generation = 5; });
            const std::vector<float> x = normalNoise(maxFrames, 0.1F, 9);
            const std::vector<float> restarted = run(used, x);
            EXPECT_EQ(restarted, run(fresh, x));
            EXPECT_NE(restarted, run(going, x));
        }
    });
}

TEST(MicrophonePath, TheCrossfadeAddsTwoEqualSignalsUpToOne)
{
    // Required: the new curve is selected before the fade begins, so that nothing of the old one is heard.
    forRatesAndChannelCounts([]<std::size_t N>(std::uint32_t rate) {
        Path<N> path(0, maxFrames, rate);
        set(path, [](SettingsRecord& record) { record.micEq = 1; });
        run(path, normalNoise(maxFrames * 3));
        set(path, [](SettingsRecord& record) { record.micEq = 2; });
        const std::vector<float> x = normalNoise(maxFrames, 0.1F, 5);
        const std::vector<float> faded = run(path, x);
        Path<N> straight(0, maxFrames, rate);
        set(straight, [](SettingsRecord& record) { record.micEq = 2; });
        run(straight, std::vector<float>(maxFrames));
        const std::vector<float> expected = run(straight, x);
        for (std::size_t i = 0; i < maxFrames; ++i)
            EXPECT_NEAR(faded[i], expected[i], 3 * 0x1p-24F); // two products and a sum of samples below 1
    });
}

TEST(MicrophonePath, ACurveOf3FailsOnEveryBlockAndTheGateHasTakenEffect)
{
    forRatesAndChannelCounts([]<std::size_t N>(std::uint32_t rate) {
        for (const std::uint32_t curve : {3U, 4U, 0xFFFFFFFFU}) {
            Path<N> path(0, maxFrames, rate);
            set(path, [&](SettingsRecord& record) { record.micEq = curve, record.noiseGate = 1, record.MicNR = 1; });
            for (int k = 0; k < 3; ++k) {
                EXPECT_EQ(failureText<std::invalid_argument>([&] { block(path, std::vector<float>(maxFrames * N)); }),
                          "MicrophonePath: EQ select index is out of bounds");
                EXPECT_EQ(path.settings().applied, 0);
                EXPECT_EQ(path.appliedGateGain(), 10.0F);
            }
            set(path, [](SettingsRecord& record) { record.micEq = 0, record.noiseGate = 0, record.MicNR = 0; });
            const std::vector<float> in = normalNoise(maxFrames * N);
            EXPECT_EQ(block(path, in), in);
        }
    });
}

TEST(MicrophonePath, WithoutARecordTheSettingsStayAsLastApplied)
{
    Path<1> path(0, maxFrames, 16000);
    run(path, normalNoise(maxFrames));
    path.settings().noiseGate = 255; // `applied` stays 1: not a new record
    const std::vector<float> x = normalNoise(maxFrames);
    EXPECT_EQ(run(path, x), x);
}

// --- The levels ------------------------------------------------------------------------------------------------------

TEST(MicrophonePath, TheLevelsFollowTheInputWhileTheyAreEnabledAlone)
{
    forRatesAndChannelCounts([]<std::size_t N>(std::uint32_t rate) {
        Path<N> path(0, maxFrames, rate);
        const std::vector<float> x = normalNoise(maxFrames * 20);
        run(path, x);
        for (int k = 0; k < 9; ++k)
            EXPECT_EQ(path.levels()[k], -60.0F);
        set(path, [](SettingsRecord& record) { record.levelsEnabled = 1; });
        EXPECT_EQ(run(path, x), x);
        for (int k = 0; k < 8; ++k) {
            EXPECT_GT(path.levels()[k], -60.0F) << k;
            EXPECT_LE(path.levels()[k], 0.0F) << k;
        }
        const std::vector<float> before(path.levels(), path.levels() + 9);
        set(path, [](SettingsRecord& record) { record.levelsEnabled = 0; });
        run(path, std::vector<float>(maxFrames * 20));
        EXPECT_TRUE(std::equal(before.begin(), before.end(), path.levels()));
    });
}

} // namespace
} // namespace quorel
