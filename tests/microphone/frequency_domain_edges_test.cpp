// SPDX-License-Identifier: MIT
// Silence, infinities, not-a-number and subnormal samples in the frequency-domain stage.
#include "microphone/frequency_domain_proc.h"

#include "tests/microphone/frequency_domain_stage.h"
#include "tests/support/noise.h"

#include <cmath>

namespace quorel {
namespace {

TEST(FrequencyDomainProc, SwitchedOffTheMeterKeepsItsLevels)
{
    Stage<1> s(48000);
    s.run(normalNoise(s.hop * 20));
    const auto levels = s.levels;
    s.measureLevels = false;
    s.run(normalNoise(s.hop * 20, 1e-3F));
    EXPECT_EQ(s.levels, levels);
}

TEST(FrequencyDomainProc, DigitalSilenceReadsMinus60AndStaysSilent)
{
    forRatesAndChannelCounts([]<std::size_t N>(std::uint32_t rate) {
        Stage<N> s(rate);
        const std::vector<float> y = s.run(std::vector<float>(s.hop * 40));
        for (const float sample : y)
            EXPECT_EQ(sample, 0.0F);
        for (std::size_t k = 0; k < 9; ++k)
            EXPECT_EQ(s.levels[k], -60.0F);
    });
}

TEST(FrequencyDomainProc, SilenceBehindASignalIsExactlyZeroOnceTheBankHasRunDry)
{
    for (const std::uint32_t rate : bothRates) {
        Stage<1> s(rate);
        std::vector<float> x = normalNoise(s.hop * 40);
        x.resize(s.hop * 80);
        const std::vector<float> y = s.run(x);
        for (std::size_t i = s.hop * 54; i < y.size(); ++i) // both windows are shorter than seven hops
            ASSERT_EQ(y[i], 0.0F) << rate << ' ' << i;
    }
}

TEST(FrequencyDomainProc, TheInfiniteFloorOfBand0StaysInsideTheGainLaw)
{
    // Required: after a second of silence that floor is infinite; its band is then held 10 dB down whatever comes, and the
    // bands beside it are not touched.
    forRatesAndChannelCounts([]<std::size_t N>(std::uint32_t rate) {
        Stage<N> s(rate);
        s.run(std::vector<float>(s.hop * 200));
        const std::size_t length = s.hop * 120;
        // A tone in the middle of band 0, another far above every floor at 1 kHz, where the gain is 1.
        const std::vector<float> x = sine(length, 15.625, rate, 0.25);
        const std::vector<float> y = s.run(x);
        for (const float sample : y)
            ASSERT_TRUE(std::isfinite(sample));
        // The window's main lobe reaches into band 1, whose gain is 1: the tone comes out between.
        const std::size_t from = length - static_cast<std::size_t>(rate) / 5; // 200 ms, three periods and more
        const double gain = rms(y, from, length) / rms(x, from, length);
        EXPECT_GT(gain, double{tenDbDown} - 0.01);
        EXPECT_LT(gain, 0.9);
        for (const float level : s.levels)
            EXPECT_TRUE(std::isfinite(level));
        const std::vector<float> high = s.run(sine(length, 1000.0, rate, 0.25));
        EXPECT_NEAR(rms(high, from, length) / 0.1768, 1.0, 0.02);
    });
}

TEST(FrequencyDomainProc, NotANumberIsGoneWithTheBanksMemoryButFreezesEveryFloor)
{
    // The spectra that hold it are not numbers in every bin. The signal trackers take them for silence and recover.
    // Required: the smoothed magnitudes under the floors never do, so that the floors stay where they stood.
    for (const std::uint32_t rate : bothRates) {
        Stage<1> s(rate);
        std::vector<float> x = sine(s.hop * 1600, 1000.0, rate, 0.1);
        s.run(x, 8 * s.hop); // the tone is now taken for noise
        const std::size_t bad = s.hop * 2 + 5;
        x[bad] = notANumber;
        const std::vector<float> y = s.run(x);
        const std::size_t clean =
            bad + microphoneRate(rate)->analysisWindow.size() + microphoneRate(rate)->synthesisWindow.size();
        for (std::size_t i = 0; i < 2 * s.hop; ++i)
            ASSERT_TRUE(std::isfinite(y[i]));
        EXPECT_TRUE(std::isnan(y[bad]));
        for (std::size_t i = clean; i < y.size(); ++i)
            ASSERT_TRUE(std::isfinite(y[i])) << rate << ' ' << i;
        for (std::size_t k = 0; k < 9; ++k)
            EXPECT_TRUE(std::isfinite(s.levels[k]));
        // The floor still stands at the tone, which would have brought it down by 60 dB within two seconds of near silence.
        s.run(normalNoise(s.hop * 400, 1e-6F));
        const std::vector<float> again = s.run(sine(s.hop * 100, 1000.0, rate, 0.1));
        const double gain = rms(again, s.hop * 60, s.hop * 100) / 0.0707;
        EXPECT_NEAR(gain, double{tenDbDown}, 0.01) << rate;
    }
}

TEST(FrequencyDomainProc, AMagnitudeThatOverflowsHoldsEveryBandTenDecibelsDownForGood)
{
    // Finite samples whose squared magnitude is infinite: the envelopes take infinity, and then infinity minus infinity.
    // Required: a signal level that is not a number is full suppression, and a level that the meter cannot tell stays so
    // until the path is rebuilt. The sound itself is clean as soon as the bank has run dry.
    forRatesAndChannelCounts([]<std::size_t N>(std::uint32_t rate) {
        Stage<N> s(rate);
        std::vector<float> x = sine(s.hop * 200, 1000.0, rate, 0.1);
        x[s.hop * 2 + 5] = 1e30F;
        const std::vector<float> y = s.run(x);
        for (const float sample : y)
            ASSERT_TRUE(std::isfinite(sample));
        for (std::size_t k = 0; k < (rate == 16000 ? 8U : 9U); ++k)
            EXPECT_TRUE(std::isnan(s.levels[k])) << k;
        for (std::size_t i = s.hop * 150; i < y.size(); ++i)
            ASSERT_NEAR(y[i], tenDbDown * x[i - latencyOf(rate)], rate == 16000 ? 1e-4F : 5e-3F) << i;
    });
}

TEST(FrequencyDomainProc, AnInfiniteSampleIsGoneWithTheBanksMemory)
{
    forRatesAndChannelCounts([]<std::size_t N>(std::uint32_t rate) {
        for (const float bad : {infinity, -infinity}) {
            Stage<N> s(rate);
            std::vector<float> x = normalNoise(s.hop * 60);
            const std::size_t position = s.hop * 20 + 5;
            x[position] = bad;
            const std::vector<float> y = s.run(x);
            const auto& row = *microphoneRate(rate);
            EXPECT_FALSE(std::isfinite(y[position]));
            for (std::size_t i = position + row.analysisWindow.size() + row.synthesisWindow.size(); i < y.size(); ++i)
                ASSERT_TRUE(std::isfinite(y[i])) << i;
        }
    });
}

TEST(FrequencyDomainProc, SubnormalSamplesComeOutAsTinyOnes)
{
    for (const std::uint32_t rate : bothRates) {
        Stage<1> s(rate);
        std::vector<float> x = normalNoise(s.hop * 100);
        for (float& sample : x)
            sample *= 1e-39F;
        for (const float sample : s.run(x))
            ASSERT_LE(std::abs(sample), 1e-38F);
        for (std::size_t k = 0; k < 9; ++k)
            EXPECT_EQ(s.levels[k], -60.0F);
    }
}

} // namespace
} // namespace quorel
