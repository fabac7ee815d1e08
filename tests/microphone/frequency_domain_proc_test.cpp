// SPDX-License-Identifier: MIT
#include "microphone/frequency_domain_proc.h"

#include "tests/microphone/cases.h"
#include "tests/support/noise.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>

namespace quorel {
namespace {

constexpr float infinity = std::numeric_limits<float>::infinity();
constexpr float notANumber = std::numeric_limits<float>::quiet_NaN();
const float tenDbDown = std::pow(10.0F, -0.5F);

std::uint64_t hopOf(std::uint32_t rate)
{
    return microphoneRate(rate)->hop;
}

std::uint64_t latencyOf(std::uint32_t rate)
{
    return rate == 16000 ? 431 : 782;
}

std::vector<float> sine(std::size_t length, double hertz, std::uint32_t rate, double amplitude = 1.0)
{
    std::vector<float> samples(length);
    for (std::size_t i = 0; i < length; ++i)
        samples[i] = static_cast<float>(amplitude * std::sin(2.0 * std::numbers::pi * hertz * static_cast<double>(i) / rate));
    return samples;
}

double rms(const std::vector<float>& x, std::size_t from, std::size_t to)
{
    double sum = 0.0;
    for (std::size_t i = from; i < to; ++i)
        sum += double{x[i]} * double{x[i]};
    return std::sqrt(sum / static_cast<double>(to - from));
}

// A stage with its levels and a block in which it works in place, the same samples in every channel.
template <std::size_t N>
struct Stage {
    explicit Stage(std::uint32_t rate) : hop(hopOf(rate)), block(8 * hop), stage(rate, levels.data()) {}

    // In blocks of `frames` samples. The last channel is handed back.
    std::vector<float> run(const std::vector<float>& x, std::size_t frames)
    {
        std::vector<float> y;
        for (std::size_t i = 0; i < x.size(); i += frames) {
            for (std::size_t c = 0; c < N; ++c)
                std::copy_n(x.begin() + static_cast<std::ptrdiff_t>(i), frames, block.channel(c));
            block.setSize(frames);
            stage.process(block, block, writeBack, measureLevels, levels.data());
            EXPECT_EQ(block.size(), frames);
            y.insert(y.end(), block.channel(N - 1), block.channel(N - 1) + frames);
        }
        return y;
    }
    std::vector<float> run(const std::vector<float>& x) { return run(x, hop); }

    std::uint64_t hop;
    Buffer<float, N> block;
    std::array<float, 10> levels{5, 5, 5, 5, 5, 5, 5, 5, 5, 5};
    FrequencyDomainProc<N> stage;
    bool writeBack = true;
    bool measureLevels = true;
};

TEST(FrequencyDomainProc, ARateOtherThan16000And48000Fails)
{
    std::array<float, 10> levels{};
    for (const std::uint32_t rate : {0U, 8000U, 44100U, 96000U})
        EXPECT_EQ(failureText<std::runtime_error>([&] { FrequencyDomainProc<1>(rate, levels.data()); }),
                  "Unknown sampleRate in FrequencyDomainProc");
}

TEST(FrequencyDomainProc, TheNineLevelsStartAtMinus60)
{
    forRatesAndChannelCounts([]<std::size_t N>(std::uint32_t rate) {
        Stage<N> s(rate);
        for (std::size_t k = 0; k < 9; ++k)
            EXPECT_EQ(s.levels[k], -60.0F);
        EXPECT_EQ(s.levels[9], 5.0F);
    });
}

TEST(FrequencyDomainProc, ABlockThatIsNoWholeNumberOfHopsPassesUntouchedAndNothingAdvances)
{
    forRatesAndChannelCounts([]<std::size_t N>(std::uint32_t rate) {
        for (const bool writeBack : {false, true}) {
            Stage<N> s(rate);
            Stage<N> twin(rate);
            s.writeBack = twin.writeBack = writeBack;
            const std::vector<float> x = normalNoise(s.hop * 12);
            EXPECT_EQ(s.run(x), twin.run(x));
            const auto levels = s.levels;
            const std::vector<float> odd = normalNoise(100);
            EXPECT_EQ(s.run(odd, 100), odd);
            EXPECT_EQ(s.levels, levels);
            EXPECT_EQ(s.run(x), twin.run(x));
            EXPECT_EQ(s.levels, twin.levels);
        }
    });
}

TEST(FrequencyDomainProc, AnOddBlockIsCopiedToAnotherBuffer)
{
    Stage<2> s(16000);
    const std::vector<float> x = normalNoise(100);
    for (std::size_t c = 0; c < 2; ++c)
        std::copy(x.begin(), x.end(), s.block.channel(c));
    s.block.setSize(100);
    Buffer<float, 2> out(112);
    s.stage.process(s.block, out, true, true, s.levels.data());
    EXPECT_EQ(out.size(), 100U);
    EXPECT_TRUE(std::equal(x.begin(), x.end(), out.channel(1)));
    Buffer<float, 2> small(96);
    EXPECT_EQ(failureText<std::invalid_argument>([&] { s.stage.process(s.block, small, true, true, s.levels.data()); }),
              "PassThrough: out buffer too small");
}

TEST(FrequencyDomainProc, TwoHopsAreTwoFrames)
{
    forRatesAndChannelCounts([]<std::size_t N>(std::uint32_t rate) {
        Stage<N> once(rate);
        Stage<N> twice(rate);
        once.measureLevels = twice.measureLevels = false;
        const std::vector<float> x = normalNoise(once.hop * 24);
        EXPECT_EQ(once.run(x), twice.run(x, 2 * once.hop));
    });
}

TEST(FrequencyDomainProc, AnEmptyBlockIsAWholeNumberOfHopsAndRunsNoFrame)
{
    forRatesAndChannelCounts([]<std::size_t N>(std::uint32_t rate) {
        Stage<N> s(rate);
        Stage<N> twin(rate);
        s.measureLevels = twin.measureLevels = false;
        const std::vector<float> x = normalNoise(s.hop * 4);
        s.run(x);
        twin.run(x);
        s.block.setSize(0);
        Buffer<float, N> out(16);
        out.setSize(7);
        s.stage.process(s.block, out, true, false, s.levels.data());
        EXPECT_EQ(out.size(), 0U);
        EXPECT_EQ(s.run(x), twin.run(x));
    });
}

TEST(FrequencyDomainProc, ASteadyBandSettlesTenDecibelsDown)
{
    forRatesAndChannelCounts([]<std::size_t N>(std::uint32_t rate) {
        Stage<N> s(rate);
        // The floor of the band around 1 kHz climbs by 1 percent a frame: 0.05 / 6e-7 takes 1140 frames.
        const std::vector<float> x = sine(s.hop * 1600, 1000.0, rate, 0.1);
        const std::vector<float> y = s.run(x, 8 * s.hop);
        const std::size_t half = y.size() - s.hop * 200;
        // The floor swings around the tone by a step of 1 percent, which full suppression covers.
        EXPECT_NEAR(rms(y, half, y.size()) / rms(x, half, x.size()), tenDbDown, 1e-3 * double{tenDbDown});
    });
}

TEST(FrequencyDomainProc, SteadyNoiseIsLoweredAndNoLowerThanByTenDecibels)
{
    for (const std::uint32_t rate : bothRates) {
        Stage<1> s(rate);
        const std::vector<float> x = normalNoise(s.hop * 4000, 0.01F);
        const std::vector<float> y = s.run(x, 8 * s.hop);
        const std::size_t late = s.hop * 2000;
        const double gain = rms(y, late, y.size()) / rms(x, late, x.size());
        EXPECT_LT(gain, 0.75) << rate;
        EXPECT_GT(gain, double{tenDbDown}) << rate;
    }
}

TEST(FrequencyDomainProc, WithoutWritingBackTheSignalStaysButTheTrackersAdvance)
{
    forRatesAndChannelCounts([]<std::size_t N>(std::uint32_t rate) {
        Stage<N> on(rate);
        Stage<N> off(rate);
        off.writeBack = false;
        const std::vector<float> x = normalNoise(on.hop * 60);
        on.run(x);
        EXPECT_EQ(off.run(x), x);
        EXPECT_EQ(off.levels, on.levels);
        off.writeBack = true;
        EXPECT_EQ(off.run(x), on.run(x)); // settled gains, and no gap, from the first sample on
    });
}

TEST(FrequencyDomainProc, AStreamStartsSilentAndRisesOverTheFirstHundredMilliseconds)
{
    for (const std::uint32_t rate : bothRates) {
        Stage<1> s(rate);
        const std::vector<float> x = sine(s.hop * 60, 1000.0, rate, 0.1);
        const std::vector<float> y = s.run(x);
        const auto gainOf = [&](std::size_t frame) {
            const std::size_t from = frame * s.hop;
            return rms(y, from, from + s.hop) / 0.0707;
        };
        EXPECT_LT(gainOf(0), 0.02) << rate; // most of the first frames is the bank's latency, besides
        // Behind the latency of 4 to 6 frames the gain is that of overlapping frames on the exponential 1 - exp(-n/8).
        const auto late = static_cast<double>(latencyOf(rate)) / static_cast<double>(s.hop);
        for (const std::size_t frame : {12U, 20U, 30U}) {
            const double n = static_cast<double>(frame) + 0.5;
            EXPECT_GT(gainOf(frame), 1.0 - std::exp(-(n - late) / 8.0) - 0.03) << rate;
            EXPECT_LT(gainOf(frame), 1.0 - std::exp(-(n + 1.0) / 8.0) + 0.03) << rate;
        }
        EXPECT_GT(gainOf(50), 0.99) << rate;
    }
}

TEST(FrequencyDomainProc, AFullScaleSineInANarrowLevelBandReadsZeroDecibelsAndTheOthersLieInTheRange)
{
    // The bins of a band are averaged as complex values, so that wide bands read less than full scale.
    struct Case {
        std::uint32_t rate;
        double hertz;
        std::size_t level;
    };
    for (const auto& [rate, hertz, level] :
         {Case{16000, 78.0, 0}, {16000, 140.0, 1}, {16000, 265.0, 2}, {48000, 117.0, 0}, {48000, 164.0, 1}, {48000, 281.0, 2}}) {
        Stage<1> s(rate);
        s.run(sine(s.hop * 100, hertz, rate));
        EXPECT_EQ(s.levels[level], 0.0F) << rate << ' ' << hertz;
        for (std::size_t k = 0; k < 9; ++k) {
            EXPECT_GE(s.levels[k], -60.0F);
            EXPECT_LE(s.levels[k], 0.0F);
        }
        EXPECT_LT(s.levels[7], -20.0F);
    }
}

TEST(FrequencyDomainProc, TheSameSignalInEveryChannelReadsTheSameForAnyChannelCount)
{
    for (const std::uint32_t rate : bothRates) {
        const std::vector<float> x = normalNoise(hopOf(rate) * 80, 1e-3F);
        Stage<1> one(rate);
        Stage<2> two(rate);
        Stage<8> eight(rate);
        one.run(x);
        two.run(x);
        eight.run(x);
        for (std::size_t k = 0; k < 9; ++k) {
            // Seven roundings of the sum of eight, and the logarithm's, at 2^-24 of 60 dB.
            EXPECT_NEAR(one.levels[k], two.levels[k], 3e-5F);
            EXPECT_NEAR(one.levels[k], eight.levels[k], 3e-5F);
        }
    }
}

TEST(FrequencyDomainProc, TheLevelsAreTheTrackedBandsBehindTheFirstInDecibels)
{
    // 20 log10 of the mean over channels, plus 32.5 dB, of the meter's own stages run beside it.
    forRatesAndChannelCounts([]<std::size_t N>(std::uint32_t rate) {
        const MicrophoneRateRow& row = *microphoneRate(rate);
        Stage<N> s(rate);
        FilterBank<1> analysis(row.fftLength, row.hop, row.analysisWindow);
        BandSum<1> bands(row.levelWidths, true);
        Ogle<1> tracker(levelTrackerTables(rate));
        Buffer<float, 1> frame(row.hop);
        SpectrumBuffer<1> spectrum(row.fftLength);
        SpectrumBuffer<1> sums(row.levelWidths.size());
        Buffer<float, 1> envelope(row.levelWidths.size());
        for (unsigned f = 0; f < 60; ++f) {
            const std::vector<float> x = normalNoise(s.hop, 0.03F, f);
            s.run(x);
            std::copy(x.begin(), x.end(), frame.channel(0));
            frame.setSize(s.hop);
            sums.setSize(row.levelWidths.size());
            envelope.setSize(row.levelWidths.size());
            analysis.process(frame, spectrum);
            bands.process(spectrum, sums);
            tracker.process(sums, envelope);
            for (std::size_t k = 0; k < 9; ++k) {
                const double wanted = 20.0 * std::log10(double{envelope.channel(0)[k + 1]}) + 32.5;
                // The sum's, the logarithm's and the offset's roundings, of values up to 120 dB.
                ASSERT_NEAR(s.levels[k], std::clamp(wanted, -60.0, 0.0), 8 * 120 * 0x1p-24) << f << ' ' << k;
            }
        }
    });
}

TEST(FrequencyDomainProc, TheMeterEndsAtMinus60AndAt0)
{
    // The reading of a steady tone goes with its amplitude, decibel by decibel, up to either end and no further.
    forRatesAndChannelCounts([]<std::size_t N>(std::uint32_t rate) {
        const auto reading = [rate](double amplitude) {
            Stage<N> s(rate);
            s.run(sine(s.hop * 200, 300.0, rate, amplitude));
            return double{s.levels[2]};
        };
        constexpr double known = 0.01;
        const double there = reading(known);
        ASSERT_GT(there, -50.0);
        ASSERT_LT(there, -10.0);
        const auto at = [&](double decibels) { return reading(known * std::pow(10.0, (decibels - there) / 20.0)); };
        EXPECT_NEAR(at(-59.9), -59.9, 0.01);
        EXPECT_EQ(at(-60.1), -60.0);
        EXPECT_NEAR(at(-0.1), -0.1, 0.01);
        EXPECT_EQ(at(0.1), 0.0);
    });
}

TEST(FrequencyDomainProc, TheNinthLevelRestsAt16000AndMeasuresTheTopAt48000)
{
    // Required: the tenth level band has no bins at 16000; its floor of -118 dB reads below the range.
    Stage<1> narrow(16000);
    narrow.run(normalNoise(narrow.hop * 100, 1.0F));
    EXPECT_EQ(narrow.levels[8], -60.0F);
    EXPECT_GT(narrow.levels[7], -40.0F);
    Stage<1> wide(48000);
    wide.run(sine(wide.hop * 100, 15000.0, 48000));
    EXPECT_GT(wide.levels[8], -40.0F);
    EXPECT_LT(wide.levels[6], -50.0F);
}

TEST(FrequencyDomainProc, ATenthValueOfZeroLandsBehindTheNine)
{
    // Required: the ninth sum's neighbour is never written but by its clearing.
    forRatesAndChannelCounts([]<std::size_t N>(std::uint32_t rate) {
        Stage<N> s(rate);
        for (const float deviation : {0.0F, 1e-4F, 1.0F}) {
            s.levels[9] = 5.0F;
            s.run(normalNoise(s.hop, deviation));
            EXPECT_EQ(s.levels[9], 0.0F);
        }
    });
}

TEST(FrequencyDomainProc, TheMeterReadsTheLastFrameOfABlockAlone)
{
    // Required: the frames before it advance the filter bank, not the meter.
    forRatesAndChannelCounts([]<std::size_t N>(std::uint32_t rate) {
        Stage<N> blocks(rate);
        Stage<N> hops(rate);
        Stage<N> every(rate);
        const std::vector<float> x = normalNoise(blocks.hop * 40);
        for (std::size_t i = 0; i < x.size(); i += 4 * blocks.hop) {
            const auto from = x.begin() + static_cast<std::ptrdiff_t>(i);
            const auto hop = static_cast<std::ptrdiff_t>(blocks.hop);
            blocks.run({from, from + 4 * hop}, 4 * blocks.hop);
            every.run({from, from + 4 * hop});
            hops.measureLevels = false;
            hops.run({from, from + 3 * hop});
            hops.measureLevels = true;
            hops.run({from + 3 * hop, from + 4 * hop});
            EXPECT_EQ(blocks.levels, hops.levels);
        }
        EXPECT_NE(blocks.levels, every.levels);
    });
}

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

TEST(FrequencyDomainProc, ASampleThatIsNotANumberIsGoneWithTheBanksMemoryButFreezesEveryFloor)
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

TEST(FrequencyDomainProc, ChannelsDoNotMix)
{
    for (const std::uint32_t rate : bothRates) {
        const std::uint64_t hop = hopOf(rate);
        std::array<float, 10> levels{};
        FrequencyDomainProc<2> pair(rate, levels.data());
        FrequencyDomainProc<1> alone(rate, levels.data());
        Buffer<float, 2> both(hop);
        Buffer<float, 1> one(hop);
        both.setSize(hop);
        one.setSize(hop);
        for (unsigned f = 0; f < 50; ++f) {
            const std::vector<float> left = normalNoise(hop, 0.3F, 2 * f);
            const std::vector<float> right = normalNoise(hop, 0.01F, 2 * f + 1);
            std::copy(left.begin(), left.end(), both.channel(0));
            std::copy(right.begin(), right.end(), both.channel(1));
            std::copy(right.begin(), right.end(), one.channel(0));
            pair.process(both, both, true, false, levels.data());
            alone.process(one, one, true, false, levels.data());
            EXPECT_TRUE(std::equal(one.channel(0), one.channel(0) + hop, both.channel(1)));
        }
    }
}

} // namespace
} // namespace quorel
