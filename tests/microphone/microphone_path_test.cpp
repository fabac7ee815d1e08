// SPDX-License-Identifier: MIT
#include "microphone/microphone_path.h"

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
constexpr std::uint32_t maxFrames = 480; // whole hops at both rates; rows of exactly this capacity

std::uint64_t latencyOf(std::uint32_t rate)
{
    return rate == 16000 ? 431 : 782;
}

std::vector<float> sine(std::size_t length, double hertz, std::uint32_t rate, double amplitude)
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

// A change of settings as the poll makes it: the fields, and `applied` 0.
template <class Path, class Change>
void set(Path& path, Change change)
{
    change(path.settings());
    path.settings().applied = 0;
}

// One block of interleaved samples.
template <std::size_t N>
std::vector<float> block(MicrophonePath<N, float>& path, std::vector<float> in)
{
    std::vector<float> out(in.size(), 77.0F);
    path.process({in.data(), in.size() / N}, {out.data(), out.size() / N});
    return out;
}

// The same signal in every channel, in blocks of `frames`; the last channel comes back.
template <std::size_t N>
std::vector<float> run(MicrophonePath<N, float>& path, const std::vector<float>& x, std::size_t frames = maxFrames)
{
    std::vector<float> y;
    for (std::size_t i = 0; i < x.size(); i += frames) {
        const std::size_t n = std::min(frames, x.size() - i);
        std::vector<float> in(n * N);
        for (std::size_t k = 0; k < n * N; ++k)
            in[k] = x[i + k / N];
        const std::vector<float> out = block(path, in);
        for (std::size_t k = 0; k < n; ++k)
            y.push_back(out[k * N + N - 1]);
    }
    return y;
}

template <std::size_t N>
using Path = MicrophonePath<N, float>;

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

// --- The curves ------------------------------------------------------------------------------------------------------

// A block that is too long takes the record over and goes no further: what is pending shows.
template <std::size_t N>
void applyOnly(Path<N>& path)
{
    EXPECT_THROW(block(path, std::vector<float>((maxFrames + 1) * N)), std::invalid_argument);
}

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
