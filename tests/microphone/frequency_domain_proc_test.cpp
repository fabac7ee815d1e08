// SPDX-License-Identifier: MIT
#include "microphone/frequency_domain_proc.h"

#include "tests/microphone/frequency_domain_stage.h"
#include "tests/support/noise.h"

#include <algorithm>
#include <cmath>

namespace quorel {
namespace {

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

TEST(FrequencyDomainProc, ABlockOfPartHopsPassesUntouchedAndNothingAdvances)
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

TEST(FrequencyDomainProc, AFullScaleSineReadsZeroDecibelsInItsNarrowBand)
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
