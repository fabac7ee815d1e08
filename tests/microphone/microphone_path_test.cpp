// SPDX-License-Identifier: MIT
#include "microphone/microphone_path.h"

#include "tests/microphone/microphone_path_runs.h"
#include "tests/support/noise.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace quorel {
namespace {

// --- The front -------------------------------------------------------------------------------------------------------

TEST(MicrophonePath, TheFrontBuildsOneOfEveryChannelCount)
{
    for (const std::uint32_t rate : bothRates) {
        for (std::int32_t channels = 1; channels <= 8; ++channels) {
            SignalPath path(SignalPath::Microphone{}, channels, 0, maxFrames, rate);
            ASSERT_NE(path.get(), nullptr);
            EXPECT_NE(path->levels(), nullptr);
            for (int k = 0; k < 9; ++k)
                EXPECT_EQ(path->levels()[k], -60.0F);
            EXPECT_EQ(path->settings(), path->settings());
            EXPECT_EQ(path->settings()->applied, 0);
            EXPECT_EQ(path->settings()->generation, 0U);
            // With everything off the samples of exactly `channels` slots a frame come back.
            const auto samples = static_cast<std::size_t>(channels) * maxFrames;
            std::vector<float> in = normalNoise(samples);
            std::vector<float> out(samples + 1, 77.0F);
            EXPECT_EQ(path->process(in.data(), maxFrames, out.data(), maxFrames), maxFrames);
            EXPECT_TRUE(std::equal(in.begin(), in.end(), out.begin()));
            EXPECT_EQ(out.back(), 77.0F);
            EXPECT_EQ(path->settings()->applied, 1);
        }
    }
}

TEST(MicrophonePath, TheFrontRefusesNoneAndNineChannelsAndLeavesThePreviousPath)
{
    SignalPath path(SignalPath::Microphone{}, 2, 0, maxFrames, 16000);
    SignalPath::Interface* before = path.get();
    for (const std::int32_t channels : {0, 9, -1})
        EXPECT_EQ(failureText<std::invalid_argument>(
                      [&] { path = SignalPath(SignalPath::Microphone{}, channels, 0, maxFrames, 16000); }),
                  "SignalPath: Illegal channel count");
    EXPECT_EQ(path.get(), before);
}

TEST(MicrophonePath, TheFrontReturnsTheOutputsFrameCountWhateverTheInputs)
{
    SignalPath path(SignalPath::Microphone{}, 1, 0, maxFrames, 16000);
    std::vector<float> in(80);
    std::vector<float> out(200);
    EXPECT_EQ(path->process(in.data(), 80, out.data(), 200), 200U);
}

TEST(MicrophonePath, TheChannelMaskIsIgnored)
{
    for (const std::uint32_t mask : {0U, 0x3U, 0xFFFFFFFFU})
        EXPECT_NO_THROW(SignalPath(SignalPath::Microphone{}, 1, mask, maxFrames, 48000));
}

TEST(MicrophonePath, ABadRateIsReportedByTheEqualiserTheFirstToLookAtIt)
{
    for (const std::uint32_t rate : {0U, 8000U, 44100U, 96000U})
        EXPECT_EQ(failureText<std::runtime_error>([&] { SignalPath(SignalPath::Microphone{}, 1, 0, maxFrames, rate); }),
                  "Unknown sampleRate in MicEqualizer");
}

TEST(MicrophonePath, NoFramesAtAllCannotBeBuilt)
{
    EXPECT_THROW(SignalPath(SignalPath::Microphone{}, 1, 0, 0, 16000), UninitializedBuffer);
}

TEST(MicrophonePath, AMovedPathCarriesTheStreamOn)
{
    forRatesAndChannelCounts([]<std::size_t N>(std::uint32_t rate) {
        const auto everything = [](SettingsRecord& record) {
            record.MicNR = 1;
            record.micEq = 2;
            record.noiseGate = 30;
            record.levelsEnabled = 1;
        };
        Path<N> whole(0, maxFrames, rate);
        Path<N> first(0, maxFrames, rate);
        set(whole, everything);
        set(first, everything);
        const std::vector<float> x = normalNoise(maxFrames * 8);
        EXPECT_EQ(run(first, x), run(whole, x));
        Path<N> second(std::move(first));
        EXPECT_TRUE(std::equal(second.levels(), second.levels() + 9, whole.levels()));
        EXPECT_EQ(run(second, x), run(whole, x));
        EXPECT_TRUE(std::equal(second.levels(), second.levels() + 9, whole.levels()));
    });
}

// --- Blocks ----------------------------------------------------------------------------------------------------------

TEST(MicrophonePath, WithAllSwitchesOffWholeHopsComeOutAsTheyWentIn)
{
    forRatesAndChannelCounts([]<std::size_t N>(std::uint32_t rate) {
        Path<N> path(0, maxFrames, rate);
        for (const std::size_t frames : {240U, 480U}) {
            const std::vector<float> in = normalNoise(frames * N);
            EXPECT_EQ(block(path, in), in);
        }
    });
}

TEST(MicrophonePath, WithNoiseReductionTheBlockComesOutLateByTheBanksLatency)
{
    forRatesAndChannelCounts([]<std::size_t N>(std::uint32_t rate) {
        Path<N> path(0, maxFrames, rate);
        set(path, [](SettingsRecord& record) { record.MicNR = 1; });
        const std::size_t length = rate / 2;
        std::vector<float> x = sine(length, 1000.0, rate, 0.1);
        const std::vector<float> other = sine(length, 1370.0, rate, 0.1);
        std::transform(x.begin(), x.end(), other.begin(), x.begin(), std::plus<>());
        const std::vector<float> y = run(path, x);
        const auto distance = [&](std::uint64_t lag) {
            double sum = 0.0;
            for (std::size_t i = rate / 4; i < length / maxFrames * maxFrames; ++i)
                sum += std::pow(double{y[i]} - double{x[i - lag]}, 2.0);
            return sum;
        };
        const std::uint64_t latency = latencyOf(rate);
        // Both tones stand far above the floors, so that the gain is 1 after a quarter of a second but for e^-6.
        EXPECT_LT(distance(latency), 1e-4 * distance(latency + rate / 4000));
        EXPECT_LT(distance(latency), distance(latency - 1));
        EXPECT_LT(distance(latency), distance(latency + 1));
    });
}

TEST(MicrophonePath, BlocksOfNoWholeNumberOfHopsPassTheNoiseReductionUntouched)
{
    forRatesAndChannelCounts([]<std::size_t N>(std::uint32_t rate) {
        Path<N> path(0, maxFrames, rate);
        set(path, [](SettingsRecord& record) { record.MicNR = 1, record.levelsEnabled = 1; });
        const std::vector<float> in = normalNoise(N * 100);
        EXPECT_EQ(block(path, in), in);
        EXPECT_EQ(path.levels()[3], -60.0F);
    });
}

TEST(MicrophonePath, ABlockOfTheInputsCapacityIsTakenAndOneFrameMoreFails)
{
    forRatesAndChannelCounts([]<std::size_t N>(std::uint32_t rate) {
        Path<N> path(0, maxFrames - 7, rate); // rounded up to whole lines of 16
        const std::vector<float> in = normalNoise(maxFrames * N);
        EXPECT_EQ(block(path, in), in);
        set(path, [](SettingsRecord& record) { record.noiseGate = 1; });
        EXPECT_EQ(failureText<std::invalid_argument>([&] { block(path, std::vector<float>((maxFrames + 1) * N)); }),
                  "PassThrough: out buffer too small");
        EXPECT_EQ(path.settings().applied, 1); // the record alone has been taken over
        EXPECT_EQ(path.appliedGateGain(), 10.0F);
    });
}

TEST(MicrophonePath, TooShortAnOutputFailsOnlyAfterAllStagesHaveRun)
{
    forRatesAndChannelCounts([]<std::size_t N>(std::uint32_t rate) {
        const auto everything = [](SettingsRecord& record) { record.MicNR = 1, record.micEq = 1, record.noiseGate = 50; };
        Path<N> path(0, maxFrames, rate);
        Path<N> twin(0, maxFrames, rate);
        set(path, everything);
        set(twin, everything);
        std::vector<float> in = normalNoise(maxFrames * N);
        std::vector<float> out(maxFrames * N, 77.0F);
        EXPECT_EQ(failureText<std::invalid_argument>([&] {
                      path.process({in.data(), maxFrames}, {out.data(), maxFrames - 1});
                  }),
                  "PassThrough: out buffer too small");
        EXPECT_EQ(std::count(out.begin(), out.end(), 77.0F), static_cast<std::ptrdiff_t>(out.size()));
        block(twin, in);
        EXPECT_EQ(block(path, in), block(twin, in));
    });
}

TEST(MicrophonePath, FramesOfTheOutputBeyondTheBlockAreNotTouched)
{
    Path<2> path(0, maxFrames, 16000);
    std::vector<float> in = normalNoise(160);
    std::vector<float> out(200, 77.0F);
    path.process({in.data(), 80}, {out.data(), 100});
    EXPECT_TRUE(std::equal(in.begin(), in.end(), out.begin()));
    EXPECT_EQ(std::count(out.begin() + 160, out.end(), 77.0F), 40);
}

TEST(MicrophonePath, InputAndOutputMayBeOneArray)
{
    forRatesAndChannelCounts([]<std::size_t N>(std::uint32_t rate) {
        const auto everything = [](SettingsRecord& record) { record.MicNR = 1, record.micEq = 1, record.noiseGate = 50; };
        Path<N> path(0, maxFrames, rate);
        Path<N> twin(0, maxFrames, rate);
        set(path, everything);
        set(twin, everything);
        for (unsigned k = 0; k < 10; ++k) {
            std::vector<float> samples = normalNoise(maxFrames * N, 0.1F, k);
            const std::vector<float> expected = block(twin, samples);
            path.process({samples.data(), maxFrames}, {samples.data(), maxFrames});
            EXPECT_EQ(samples, expected);
        }
    });
}

TEST(MicrophonePath, AnEmptyBlockFailsInTheFirstStageThatTakesNone)
{
    forRatesAndChannelCounts([]<std::size_t N>(std::uint32_t rate) {
        for (const std::uint32_t curve : {0U, 1U}) {
            Path<N> path(0, maxFrames, rate);
            set(path, [&](SettingsRecord& record) { record.micEq = curve; });
            EXPECT_EQ(failureText<ipps::Error>([&] { block(path, {}); }), "ippStsSizeErr");
        }
    });
}

TEST(MicrophonePath, ChannelsDoNotMix)
{
    for (const std::uint32_t rate : bothRates) {
        const auto settings = [](SettingsRecord& record) { record.MicNR = 1, record.micEq = 2; };
        Path<8> all(0, maxFrames, rate);
        std::vector<Path<1>> alone;
        set(all, settings);
        for (int c = 0; c < 8; ++c) {
            alone.emplace_back(0, maxFrames, rate);
            set(alone.back(), settings);
        }
        for (unsigned k = 0; k < 12; ++k) {
            const std::vector<float> in = normalNoise(maxFrames * 8, 0.1F, k);
            const std::vector<float> out = block(all, in);
            for (std::size_t c = 0; c < 8; ++c) {
                std::vector<float> one(maxFrames);
                for (std::size_t i = 0; i < maxFrames; ++i)
                    one[i] = in[i * 8 + c];
                const std::vector<float> y = block(alone[c], one);
                for (std::size_t i = 0; i < maxFrames; ++i)
                    ASSERT_EQ(out[i * 8 + c], y[i]) << "channel " << c;
            }
        }
    }
}

// --- What is not finite ----------------------------------------------------------------------------------------------

TEST(MicrophonePath, WithAllSwitchesOffEveryBitOfTheInputComesBack)
{
    // The frequency-domain stage runs all the same, and writes nothing back.
    for (const float bad : {infinity, -infinity, notANumber, 1e-42F, -0.0F, std::numeric_limits<float>::max()}) {
        Path<2> path(0, maxFrames, 16000);
        std::vector<float> in = normalNoise(maxFrames * 2);
        in[123] = bad;
        const std::vector<float> out = block(path, in);
        for (std::size_t k = 0; k < in.size(); ++k)
            EXPECT_EQ(std::bit_cast<std::uint32_t>(out[k]), std::bit_cast<std::uint32_t>(in[k]));
        const std::vector<float> x = normalNoise(maxFrames * 4);
        EXPECT_EQ(run(path, x), x);
    }
}

TEST(MicrophonePath, NoiseReductionIsCleanOnceTheBanksMemoryHasPassed)
{
    forRatesAndChannelCounts([]<std::size_t N>(std::uint32_t rate) {
        for (const float bad : {infinity, -infinity, notANumber, std::numeric_limits<float>::max()}) {
            Path<N> path(0, maxFrames, rate);
            set(path, [](SettingsRecord& record) { record.MicNR = 1; });
            std::vector<float> x = normalNoise(maxFrames * 40);
            const std::size_t position = maxFrames * 3 + 7;
            x[position] = bad;
            const std::vector<float> y = run(path, x);
            const MicrophoneRateRow& row = *microphoneRate(rate);
            for (std::size_t i = 0; i < maxFrames * 3; ++i)
                ASSERT_TRUE(std::isfinite(y[i]));
            for (std::size_t i = position + row.analysisWindow.size() + row.synthesisWindow.size(); i < y.size(); ++i)
                ASSERT_TRUE(std::isfinite(y[i])) << i;
        }
    });
}

TEST(MicrophonePath, ACurveStaysNotANumberUntilTheNextRecord)
{
    // Required: a recursive filter keeps what is not finite for good; each record starts it from silence.
    forRatesAndChannelCounts([]<std::size_t N>(std::uint32_t rate) {
        for (const float bad : {infinity, notANumber}) {
            Path<N> path(0, maxFrames, rate);
            set(path, [](SettingsRecord& record) { record.micEq = 1; });
            std::vector<float> x = normalNoise(maxFrames * 20);
            x[maxFrames * 2 + 7] = bad;
            EXPECT_FALSE(std::isfinite(run(path, x).back()));
            set(path, [](SettingsRecord&) {});
            for (const float sample : run(path, normalNoise(maxFrames * 4)))
                ASSERT_TRUE(std::isfinite(sample));
        }
    });
}

TEST(MicrophonePath, TheGateShutsForGoodOnASampleThatIsNotFinite)
{
    // Required: an envelope never leaves not-a-number, which counts as silence: 50 dB down, until the path is rebuilt.
    for (const std::uint32_t rate : bothRates) {
        for (const float bad : {infinity, notANumber}) {
            Path<1> path(0, maxFrames, rate);
            set(path, [](SettingsRecord& record) { record.noiseGate = 128; });
            std::vector<float> x = normalNoise(maxFrames * 40, 0.3F);
            const std::size_t position = maxFrames * 20 + 7;
            x[position] = bad;
            const std::vector<float> y = run(path, x);
            EXPECT_FALSE(std::isfinite(y[position]));
            for (std::size_t i = position + 1; i < y.size(); ++i)
                ASSERT_EQ(y[i], 0.00316227763F * x[i]);
        }
    }
}

TEST(MicrophonePath, AnotherChannelOpensTheGateStill)
{
    Path<2> path(0, maxFrames, 16000);
    set(path, [](SettingsRecord& record) { record.noiseGate = 128; });
    std::vector<float> in = normalNoise(maxFrames * 2, 0.3F);
    in[0] = notANumber;
    block(path, in);
    std::vector<float> out;
    for (int k = 0; k < 10; ++k)
        out = block(path, in = normalNoise(maxFrames * 2, 0.3F));
    EXPECT_TRUE(std::equal(in.begin(), in.end(), out.begin()));
}

TEST(MicrophonePath, AllStagesTogetherAreCleanAgainInTimeAndWithTheNextRecord)
{
    // The bank's memory lets not-a-number through to the curve, which keeps it until a record comes.
    for (const std::uint32_t rate : bothRates) {
        Path<1> path(0, maxFrames, rate);
        set(path, [](SettingsRecord& record) { record.MicNR = 1, record.micEq = 2, record.levelsEnabled = 1; });
        std::vector<float> x = normalNoise(maxFrames * 20);
        x[maxFrames * 2] = notANumber;
        EXPECT_TRUE(std::isnan(run(path, x).back()));
        set(path, [](SettingsRecord&) {});
        for (const float sample : run(path, normalNoise(maxFrames * 20)))
            ASSERT_TRUE(std::isfinite(sample));
        for (int k = 0; k < 9; ++k)
            EXPECT_TRUE(std::isfinite(path.levels()[k]));
    }
}

TEST(MicrophonePath, SubnormalSamplesStayTiny)
{
    forRatesAndChannelCounts([]<std::size_t N>(std::uint32_t rate) {
        Path<N> path(0, maxFrames, rate);
        set(path,
            [](SettingsRecord& record) { record.MicNR = 1, record.micEq = 1, record.noiseGate = 128, record.levelsEnabled = 1; });
        std::vector<float> x = normalNoise(maxFrames * 20);
        for (float& sample : x)
            sample *= 1e-39F;
        for (const float sample : run(path, x))
            ASSERT_LE(std::abs(sample), 1e-37F);
        for (int k = 0; k < 9; ++k)
            EXPECT_EQ(path.levels()[k], -60.0F);
    });
}

} // namespace
} // namespace quorel
