// SPDX-License-Identifier: MIT
// The capture model against closed forms, so that it can stand as the yardstick of the path.

#include "tests/model/microphone_model.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>
#include <string>

#include "tests/model/synthetic_windows.h"
#include "tests/support/failure.h"
#include "tests/support/noise.h"

namespace quorel::model {
namespace {

const Referee nobody{};
const RecordFields unchanged{};
const std::vector<double> noDoubt(16, 0.0);

std::vector<float> sine(std::size_t n, double height, double hertz, double rate)
{
    std::vector<float> x(n);
    for (std::size_t i = 0; i < n; ++i)
        x[i] = static_cast<float>(height * std::sin(2.0 * std::numbers::pi * hertz * static_cast<double>(i) / rate));
    return x;
}

double rms(const Signal& x, std::size_t from)
{
    double sum = 0.0;
    for (std::size_t i = from; i < x.size(); ++i)
        sum += x[i] * x[i];
    return std::sqrt(sum / static_cast<double>(x.size() - from));
}

double dB(double ratio)
{
    return 20.0 * std::log10(ratio);
}

RecordFields record(std::uint8_t MicNR, std::uint32_t micEq, std::uint32_t noiseGate, std::uint8_t levelsEnabled = 0)
{
    RecordFields fields;
    fields.newRecord = true;
    fields.MicNR = MicNR;
    fields.micEq = micEq;
    fields.noiseGate = noiseGate;
    fields.levelsEnabled = levelsEnabled;
    return fields;
}

double magnitudeAt(const std::vector<Section>& sections, double w)
{
    const std::complex<double> z1 = std::polar(1.0, -w);
    const std::complex<double> z2 = std::polar(1.0, -2.0 * w);
    double magnitude = 1.0;
    for (const Section& s : sections)
        magnitude *= std::abs(s.b0 + s.b1 * z1 + s.b2 * z2) / std::abs(s.a0 + s.a1 * z1 + s.a2 * z2);
    return magnitude;
}

// ---------------------------------------------------------------------------
// Transform and filter bank

TEST(MicrophoneModelBank, TheTransformIsTheSumThatDefinesIt)
{
    const std::vector<float> x = noise(128, 1, 1.0f);
    Spectrum y(64);
    for (std::size_t n = 0; n < 64; ++n)
        y[n] = {x[2 * n], x[2 * n + 1]};
    const Spectrum before = y;
    Fourier(64).transform(y);
    for (std::size_t k = 0; k < 64; ++k) {
        std::complex<double> sum = 0.0;
        for (std::size_t n = 0; n < 64; ++n)
            sum += before[n] * std::polar(1.0, 2.0 * std::numbers::pi * static_cast<double>(n * k) / 64.0);
        EXPECT_NEAR(std::abs(y[k] - sum), 0.0, 1e-12);
    }
}

TEST(MicrophoneModelBank, AnalysisIsTheForwardSpectrumAboutTheWindowsCentre)
{
    const MicrophoneWindows windows = syntheticWindows(16000);
    FilterBankModel bank(512, 80, windows);
    const std::vector<float> x = noise(800, 2, 1.0f);
    Spectrum spectrum;
    for (std::size_t f = 0; f < 10; ++f)
        spectrum = bank.analyse(
            Signal(x.begin() + static_cast<std::ptrdiff_t>(80 * f), x.begin() + static_cast<std::ptrdiff_t>(80 * f + 80)));
    // The sample m after the centre meets the window's entry 280 - m and exp(-2 pi i k m / 512).
    for (const std::size_t k : {0u, 1u, 17u, 255u, 256u, 400u}) {
        std::complex<double> sum = 0.0;
        for (int m = -280; m <= 280; ++m)
            sum += double{windows.analysis[static_cast<std::size_t>(280 - m)]} *
                   double{x[static_cast<std::size_t>(799 - 280 + m)]} *
                   std::polar(1.0, -2.0 * std::numbers::pi * static_cast<double>(k) * m / 512.0);
        EXPECT_NEAR(std::abs(spectrum[k] - sum), 0.0, 1e-12);
    }
}

class MicrophoneModelRates : public testing::TestWithParam<std::uint32_t> {};
INSTANTIATE_TEST_SUITE_P(BothRates, MicrophoneModelRates, testing::Values(16000u, 48000u));

TEST_P(MicrophoneModelRates, AnImpulseComesBackBehindTheLatencyAtEveryPlaceOfTheHop)
{
    const std::size_t rate = GetParam();
    const std::size_t hop = rate / 200;
    const std::size_t latency = rate == 16000 ? 431 : 782;
    const MicrophoneWindows windows = syntheticWindows(GetParam());
    for (std::size_t place = 0; place < hop; place += 7) {
        FilterBankModel bank(rate == 16000 ? 512 : 1024, hop, windows);
        Signal out;
        for (std::size_t f = 0; f < 16; ++f) {
            Signal in(hop, 0.0);
            if (f == 1)
                in[place] = 1.0;
            const Signal samples = bank.synthesise(bank.analyse(in));
            out.insert(out.end(), samples.begin(), samples.end());
        }
        // The windows are floats: each of the few products that make up the sample is good to
        // 1.2e-7 of itself.
        for (std::size_t i = 0; i < out.size(); ++i)
            ASSERT_NEAR(out[i], i == hop + place + latency ? 1.0 : 0.0, 1e-6);
    }
}

TEST_P(MicrophoneModelRates, TheBandsCoverHalfTheTransform)
{
    const std::size_t half = GetParam() == 16000 ? 256 : 512;
    std::size_t gains = 0;
    for (const std::size_t width : gainBands(GetParam()))
        gains += width;
    std::size_t meter = 0;
    for (const std::size_t width : meterBands(GetParam()))
        meter += width;
    EXPECT_EQ(gains, half);
    EXPECT_EQ(meter, half);
    EXPECT_EQ(gainBands(GetParam()).size(), 16u);
    EXPECT_EQ(meterBands(GetParam()).size(), 10u);
}

TEST(MicrophoneModelBands, ABandIsTheComplexMeanOfItsBins)
{
    Spectrum spectrum(512, 1.0);
    for (const auto& value : bandMeans(spectrum, {2, 1, 253}))
        EXPECT_NEAR(std::abs(value - 1.0), 0.0, 6e-8); // a float's reciprocal
    EXPECT_EQ(bandMeans(spectrum, {2, 254, 0})[2], 0.0);
    spectrum[2] = 1.0;
    spectrum[3] = -1.0;
    EXPECT_EQ(bandMeans(spectrum, {2, 2, 252})[1], 0.0);
    spectrum[3] = {0.0, 3.0};
    EXPECT_EQ(bandMeans(spectrum, {2, 2, 252})[1], std::complex<double>(0.5, 1.5));
}

// ---------------------------------------------------------------------------
// Trackers

TEST(MicrophoneModelFloor, InSilenceBandZeroGrowsToInfinityAndTheOthersReachTheirLimit)
{
    FloorTracker tracker(0);
    const std::vector<float> silence(16, 0.0f);
    std::vector<float> bottom = tracker.process(silence, noDoubt, nobody);
    EXPECT_NEAR(bottom[0], 7.9870224e-06 * 9.6 - 1.1920929e-7, 1e-11);
    EXPECT_NEAR(bottom[1], 1.57356262e-05 * 0.96 - 1.1920929e-7, 1e-11);
    EXPECT_EQ(bottom[4], 6.07967377e-06f); // its initial floor lies below the limit
    EXPECT_EQ(bottom[15], 1.40666962e-05f);
    for (int frame = 1; frame < 50; ++frame)
        bottom = tracker.process(silence, noDoubt, nobody);
    EXPECT_EQ(bottom[0], std::numeric_limits<float>::infinity());
    const float limits[] = {7.74860382e-06f, 5.60283661e-06f, 5.00679016e-06f};
    for (std::size_t b = 1; b <= 3; ++b)
        EXPECT_EQ(bottom[b], limits[b - 1]);
}

TEST(MicrophoneModelFloor, AnOnsetFreezesTheFloorUntilItHasLastedAndThenTheFloorClimbs)
{
    FloorTracker tracker(0);
    const std::vector<float> loud(16, 1.0f);
    // 1 - 0.9394^n passes 0.7 between n = 19 and n = 20.
    std::vector<float> bottom;
    for (int frame = 1; frame <= 19; ++frame)
        bottom = tracker.process(loud, noDoubt, nobody);
    EXPECT_EQ(bottom[5], 2.62260437e-06f);
    EXPECT_EQ(bottom[0], 7.9870224e-06f); // an onset before band 0 got to grow
    double expected = 2.62260437e-06;
    for (int frame = 20; frame <= 119; ++frame) {
        bottom = tracker.process(loud, noDoubt, nobody);
        // Where the step is smaller than epsilon, the floor rises by epsilon.
        expected += std::max(expected * 0.00499999523, 1.1920929e-7);
        // 100 steps of single precision, each good to half a last place or so of 6e-8.
        EXPECT_NEAR(bottom[5], expected, 1e-5 * expected);
    }
}

TEST(MicrophoneModelFloor, TheArmedFactorComesIntoUseWithASteadyFrame)
{
    // Follow band 15, which climbs by a tenth per frame from a magnitude of 1: it reaches the
    // smoothed value 1 after ln(1 / 2.4e-7) / ln 1.1 = 160 frames or so, then swings about it.
    FloorTracker tracker(0);
    const std::vector<float> loud(16, 1.0f);
    float last = 0.0f;
    std::vector<float> ratios;
    for (int frame = 0; frame < 400; ++frame) {
        const float now = tracker.process(loud, noDoubt, nobody)[15];
        if (frame > 300)
            ratios.push_back(now / last);
        last = now;
    }
    // The onset at the start armed the fast fall, the first steady frame took it into use; the
    // first fall armed the slow one, and the next rise took that into use.
    for (const float ratio : ratios)
        EXPECT_TRUE(std::fabs(ratio - 0.97f) < 1e-5f || std::fabs(ratio - 1.1f) < 1e-5f) << ratio;
}

TEST(MicrophoneModelLevel, AStepIsHalvedUntilTheEstimateIsNearAndThenHeld)
{
    LevelTracker tracker(Decision::Tracker::Signal, 0, 1, signalRates());
    const double expected[] = {0.5, 0.75, 0.875, 0.9375};
    for (const double level : expected)
        EXPECT_EQ(tracker.process({1.0f}, noDoubt, nobody)[0], level);
    // 0.9 is below 0.9375: held, creeping by 7.6e-6 of the distance.
    EXPECT_NEAR(tracker.process({1.0f}, noDoubt, nobody)[0], 0.9375 + 7.62939453e-06 * 0.0625, 6e-8);
}

TEST(MicrophoneModelLevel, ADropIsFollowedWhenTheEnvelopeHasPassedTheLowerRatio)
{
    LevelTracker tracker(Decision::Tracker::Signal, 0, 1, signalRates());
    double estimate = 0.0;
    for (int frame = 0; frame < 4; ++frame)
        estimate = tracker.process({1.0f}, noDoubt, nobody)[0];
    // The envelope falls by a quarter of its distance to 0.5: 0.875, 0.78125, 0.7109, 0.658,
    // 0.6187. 0.7 * 0.9375 = 0.65625 is passed by the fifth.
    for (int frame = 0; frame < 4; ++frame)
        EXPECT_NEAR(tracker.process({0.5f}, noDoubt, nobody)[0], estimate, 1e-5);
    const double envelope = 0.5 + 0.5 * std::pow(0.75, 5);
    EXPECT_NEAR(tracker.process({0.5f}, noDoubt, nobody)[0], estimate + 0.125 * (envelope - estimate), 1e-5);
}

TEST(MicrophoneModelLevel, SilenceEndsNearTheFloorAndNeverAtZero)
{
    LevelTracker tracker(Decision::Tracker::Signal, 0, 1, signalRates());
    float level = 0.0f;
    for (int frame = 0; frame < 100; ++frame) {
        level = tracker.process({0.0f}, noDoubt, nobody)[0];
        EXPECT_GT(level, 0.0f);
    }
    EXPECT_NEAR(level, 0.9375 * 1.1920929e-06, 1e-9);
}

TEST(MicrophoneModelLevel, TheMeterAt48000TakesItsRatesCutToOne)
{
    LevelTracker tracker(Decision::Tracker::Level, 0, 1, meterRates(48000));
    EXPECT_EQ(tracker.process({0.5f}, noDoubt, nobody)[0], 0.5f);
    EXPECT_EQ(tracker.process({1.0f}, noDoubt, nobody)[0], 1.0f);
    // Down: the envelope falls by 0.75 of the way, the estimate by 0.375.
    EXPECT_NEAR(tracker.process({0.2f}, noDoubt, nobody)[0], 1.0 + 0.375 * (0.4 - 1.0), 1e-6);
}

TEST(MicrophoneModelGain, TheTargetIsClampedBetweenZeroAndTenDecibels)
{
    EXPECT_EQ(suppressionTarget(1e-5, 1e-5 / 0.14), 0.0);
    EXPECT_NEAR(suppressionTarget(1e-5, 1e-5 / 0.25), 0.5 - 0.3 + 1e-5, 1e-7);
    EXPECT_EQ(suppressionTarget(1e-5, 1e-5 / 0.5), 0.683772206f);
    EXPECT_EQ(suppressionTarget(std::numeric_limits<double>::infinity(), 1.0), 0.683772206f);
    EXPECT_NEAR(dB(1.0 - suppressionTarget(1.0, 0.0)), -10.0, 1e-6);
}

TEST(MicrophoneModelReferee, IsAskedAboutCloseComparisonsAlone)
{
    LevelTracker tracker(Decision::Tracker::Signal, 3, 1, signalRates());
    int asked = 0;
    const Referee turns{1e-6, [&](const Decision& decision) {
                            ++asked;
                            EXPECT_EQ(decision.channel, 3u);
                            EXPECT_EQ(decision.kind, Decision::Kind::ClearlyAbove);
                            return !decision.holds;
                        }};
    for (int frame = 0; frame < 4; ++frame)
        tracker.process({1.0f}, noDoubt, turns);
    EXPECT_EQ(asked, 0);

    // The estimate stands at 0.9375. An envelope of 0.9375 / 0.9 is within a rounding of being
    // clearly above it: one answer holds the estimate, the other halves the distance.
    const auto close = static_cast<float>(0.9375 / 0.9);
    LevelTracker turned = tracker;
    const double halved = 0.9375 + 0.5 * (close - 0.9375);
    const double own = tracker.process({close}, noDoubt, nobody)[0];
    const double other = turned.process({close}, noDoubt, turns)[0];
    EXPECT_EQ(asked, 1);
    EXPECT_NEAR(std::min(own, other), 0.9375, 1e-6);
    EXPECT_NEAR(std::max(own, other), halved, 1e-6);
}

TEST(MicrophoneModelReferee, ABandBesideALoudSpectrumIsInMoreDoubt)
{
    LevelTracker tracker(Decision::Tracker::Signal, 0, 1, signalRates());
    int asked = 0;
    const Referee counts{1e-6, [&](const Decision& decision) {
                             ++asked;
                             return decision.holds;
                         }};
    tracker.process({1e-4f}, {1.0}, counts);
    EXPECT_EQ(asked, 0); // 0.9e-4 against 0
    tracker.process({1e-4f}, {100.0}, counts);
    EXPECT_EQ(asked, 2); // 0.9e-4 against 0.5e-4, and 0.35e-4 against 1e-4
}

// ---------------------------------------------------------------------------
// Curves and gate

TEST(MicrophoneModelCurves, HaveTheResponsesThatTheyAreKnownBy)
{
    for (const std::uint32_t rate : {16000u, 48000u}) {
        const auto at = [&](std::size_t curve, double hertz) {
            return dB(magnitudeAt(microphoneCurve(rate, curve), 2.0 * std::numbers::pi * hertz / rate));
        };
        for (const double hertz : {20.0, 500.0, 7000.0})
            EXPECT_EQ(at(0, hertz), 0.0);
        EXPECT_NEAR(at(1, 100.0), 13.0, 0.5);
        EXPECT_NEAR(at(1, 1200.0), -3.0, 0.5);
        EXPECT_NEAR(at(1, 6000.0), 3.7, 0.5);
        // The poles are so near the circle that float taps are 0.1 dB away from unity at 0 Hz.
        EXPECT_NEAR(at(2, 0.0), 0.0, 0.2);
        EXPECT_NEAR(at(2, rate / 2.0), 0.0, 0.001);
        EXPECT_LT(at(2, 30.0), -14.0);
        EXPECT_LT(at(2, 75.0), -14.0);
    }
}

TEST(MicrophoneModelGate, ThePreGainGoesFrom20To20DecibelsDownInEqualSteps)
{
    EXPECT_EQ(gatePreGain(1), 10.0f);
    EXPECT_EQ(gatePreGain(128), 1.0f);
    EXPECT_EQ(gatePreGain(255), 0.1f);
    EXPECT_EQ(gatePreGain(300), 0.1f);
    EXPECT_EQ(gatePreGain(0xFFFFFFFF), 0.1f);
    EXPECT_NEAR(dB(gatePreGain(77) / gatePreGain(78)), 40.0 / 254.0, 1e-5);
}

TEST(MicrophoneModelGate, TheCurveIsARampBetweenMinus30AndMinus24)
{
    const GainRider gate = microphoneGate(1, 48000);
    EXPECT_NEAR(dB(gate.gainFor(0.0)), -50.0, 1e-5);
    EXPECT_NEAR(dB(gate.gainFor(0.0316)), -50.0, 1e-5);
    EXPECT_EQ(gate.gainFor(0.0631), 1.0);
    EXPECT_NEAR(gate.gainFor((0.0316227749 + 0.0630957335) / 2), (0.00316227763 + 1.0) / 2, 1e-6);
}

TEST(MicrophoneModelGate, TheSettingMovesTheLevelAtWhichTheGateOpens)
{
    const MicrophoneWindows windows = syntheticWindows(16000);
    for (const auto& [setting, expected] : {std::pair{1u, 0.0}, std::pair{128u, -50.0}}) {
        MicrophoneModel model(1, 160, 16000, windows);
        const std::vector<float> in = sine(16000 * 6, 0.01, 1000.0, 16000.0); // -40 dB
        Signal out;
        for (std::size_t i = 0; i < in.size(); i += 160) {
            const Signal y = model.process(i == 0 ? record(0, 0, setting) : unchanged, in.data() + i, 160);
            out.insert(out.end(), y.begin(), y.end());
        }
        EXPECT_NEAR(dB(rms(out, 16000 * 5) / (0.01 / std::sqrt(2.0))), expected, 0.01);
    }
}

// ---------------------------------------------------------------------------
// The path

TEST_P(MicrophoneModelRates, WithEverythingOffABlockLeavesAsItCame)
{
    MicrophoneModel model(2, 960, GetParam(), syntheticWindows(GetParam()));
    const std::vector<float> in = noise(960 * 2, 3, 2.0f);
    EXPECT_EQ(model.process(unchanged, in.data(), 960), Signal(in.begin(), in.end()));
    EXPECT_EQ(model.process(record(0, 0, 0), in.data(), 480), Signal(in.begin(), in.begin() + 960));
}

TEST_P(MicrophoneModelRates, ABlockOfPartHopsPassesUntouchedAndIsNotMeasured)
{
    MicrophoneModel model(1, 960, GetParam(), syntheticWindows(GetParam()));
    const std::vector<float> in = noise(960, 4, 1.0f);
    EXPECT_EQ(model.process(record(1, 0, 0, 1), in.data(), 100), Signal(in.begin(), in.begin() + 100));
    for (const double level : model.levels())
        EXPECT_EQ(level, -60.0);
}

TEST_P(MicrophoneModelRates, TheFirstFramesAreSilentAndRise)
{
    const std::size_t hop = GetParam() / 200;
    const std::size_t latency = GetParam() == 16000 ? 431 : 782;
    MicrophoneModel model(1, 960, GetParam(), syntheticWindows(GetParam()));
    const std::vector<float> in = sine(hop * 400, 0.5, 1000.0, GetParam());
    Signal out;
    for (std::size_t f = 0; f < 400; ++f) {
        const Signal y = model.process(f == 0 ? record(1, 0, 0) : unchanged, in.data() + f * hop, hop);
        out.insert(out.end(), y.begin(), y.end());
    }
    // A tone far above the floor asks for no suppression: the gain is 1 - exp(-frames / 8), and
    // what comes out is the tone, late. What leaks into the bands around it is taken down,
    // for less than 0.01 dB.
    // The tenth hop is made of frames about three hops earlier: 1 - exp(-8 / 8) or so is 0.63.
    const Signal tenth(out.begin() + static_cast<std::ptrdiff_t>(hop * 10), out.begin() + static_cast<std::ptrdiff_t>(hop * 11));
    EXPECT_NEAR(rms(tenth, 0) / (0.5 / std::sqrt(2.0)), 0.63, 0.1);
    for (std::size_t i = hop * 150; i < hop * 160; ++i)
        EXPECT_NEAR(out[i], in[i - latency], 5.8e-4);
}

TEST_P(MicrophoneModelRates, TheBinAtHalfTheRateIsAlwaysCut)
{
    const std::size_t hop = GetParam() / 200;
    const std::size_t fftLength = GetParam() == 16000 ? 512 : 1024;
    MicrophoneModel model(1, 960, GetParam(), syntheticWindows(GetParam()));
    FilterBankModel bank(fftLength, hop, syntheticWindows(GetParam()));
    FilterBankModel whole(fftLength, hop, syntheticWindows(GetParam()));
    std::vector<float> in(hop);
    for (std::size_t i = 0; i < hop; ++i)
        in[i] = i % 2 == 0 ? 0.5f : -0.5f;
    double taken = 0.0;
    for (int f = 0; f < 300; ++f) {
        const Signal y = model.process(f == 0 ? record(1, 0, 0) : unchanged, in.data(), hop);
        Spectrum spectrum = bank.analyse(Signal(in.begin(), in.end()));
        spectrum[fftLength / 2] = 0.0;
        const Signal expected = bank.synthesise(spectrum);
        const Signal uncut = whole.synthesise(whole.analyse(Signal(in.begin(), in.end())));
        for (std::size_t i = 0; f > 200 && i < hop; ++i) {
            // By then the tone counts as noise, and its band is 10 dB down.
            ASSERT_NEAR(y[i], expected[i] * std::pow(10.0, -0.5), 1e-4);
            taken = std::max(taken, std::fabs(uncut[i] - expected[i]));
        }
    }
    EXPECT_GT(taken, 0.05);
}

TEST_P(MicrophoneModelRates, SteadyNoiseComesOutTenDecibelsDown)
{
    const std::size_t hop = GetParam() / 200;
    MicrophoneModel model(1, 960, GetParam(), syntheticWindows(GetParam()));
    const std::vector<float> in = noise(hop * 4000, 5, 0.1f);
    Signal out;
    for (std::size_t f = 0; f < 4000; ++f) {
        const Signal y = model.process(f == 0 ? record(1, 0, 0) : unchanged, in.data() + f * hop, hop);
        out.insert(out.end(), y.begin(), y.end());
    }
    EXPECT_NEAR(dB(rms(out, hop * 3000) / (0.1 / std::sqrt(3.0))), -10.0, 0.7);
}

TEST(MicrophoneModel, TheMeterReadsAToneByTheWindowsSum)
{
    // 93.75 Hz is bin 2 at 48000, alone in the level band behind the first one. A tone of height
    // 0.05 stands there with 0.025 times the sum of the window; its image is four bins away.
    const MicrophoneWindows windows = syntheticWindows(48000);
    double sum = 0.0;
    for (const float w : windows.analysis)
        sum += double{w};
    const std::vector<float> in = sine(24000, 0.05, 93.75, 48000.0);
    std::array<double, 9> mono{};
    for (const std::size_t channels : {1u, 8u}) {
        MicrophoneModel model(channels, 480, 48000, windows);
        std::vector<float> wide;
        for (const float sample : in)
            wide.insert(wide.end(), channels, sample);
        for (std::size_t i = 0; i < in.size(); i += 480)
            model.process(i == 0 ? record(0, 0, 0, 1) : unchanged, wide.data() + i * channels, 480);
        EXPECT_NEAR(model.levels()[0], dB(0.025 * sum) + 32.5, 0.05);
        if (channels == 1)
            mono = model.levels();
        for (std::size_t k = 0; k < 9; ++k) {
            EXPECT_NEAR(model.levels()[k], mono[k], 1e-6);
            EXPECT_GE(model.levels()[k], -60.0);
            EXPECT_LE(model.levels()[k], 0.0);
        }
    }
}

TEST_P(MicrophoneModelRates, TheMeterReadsMinus60InSilenceAndAlwaysInABandWithoutBins)
{
    MicrophoneModel model(1, 960, GetParam(), syntheticWindows(GetParam()));
    model.process(record(0, 0, 0, 1), std::vector<float>(480).data(), 480);
    for (const double level : model.levels())
        EXPECT_EQ(level, -60.0);
    for (std::uint32_t block = 0; block < 20; ++block)
        model.process(unchanged, noise(480, block, 4.0f).data(), 480);
    EXPECT_GT(model.levels()[4], -60.0);
    if (GetParam() == 16000) {
        EXPECT_EQ(model.levels()[8], -60.0);
    } else {
        EXPECT_GT(model.levels()[8], -60.0);
    }
}

TEST(MicrophoneModel, AnyRecordRestartsTheCurvesFilters)
{
    const MicrophoneWindows windows = syntheticWindows(48000);
    MicrophoneModel model(1, 480, 48000, windows);
    const std::vector<float> in = noise(480, 6, 0.5f);
    Cascade fresh;
    fresh.design(microphoneCurve(48000, 2));
    const Signal first = fresh.process(Signal(in.begin(), in.end()));
    const Signal second = fresh.process(Signal(in.begin(), in.end()));

    const auto near = [](const Signal& a, const Signal& b) {
        for (std::size_t i = 0; i < a.size(); ++i)
            ASSERT_NEAR(a[i], b[i], 1e-7); // a crossfade's ramps add up to 1 within 6e-8
    };
    near(model.process(record(0, 2, 0), in.data(), 480), first);
    EXPECT_FALSE(model.curvePending());
    near(model.process(unchanged, in.data(), 480), second);
    near(model.process(record(0, 2, 0), in.data(), 480), first);
    near(model.process(record(0, 0, 0), in.data(), 480), Signal(in.begin(), in.end()));
    near(model.process(record(0, 2, 0), in.data(), 480), first);
}

TEST(MicrophoneModel, ACurveThatThereIsNotFailsAtEveryBlockBehindTheGate)
{
    const MicrophoneWindows windows = syntheticWindows(16000);
    MicrophoneModel model(1, 160, 16000, windows);
    const std::vector<float> in(160, 0.001f);
    model.process(record(0, 0, 0), in.data(), 160);
    const std::string text = "MicrophonePath: EQ select index is out of bounds";
    EXPECT_EQ(failureText<Failure>([&] { model.process(record(0, 3, 128), in.data(), 160); }), text);
    EXPECT_EQ(failureText<Failure>([&] { model.process(unchanged, in.data(), 160); }), text);
    // The mended record leaves the gate off: the path passes again.
    EXPECT_EQ(model.process(record(0, 0, 0), in.data(), 160)[0], in[0]);
}

TEST(MicrophoneModel, BlockLengthsHaveTheirLimits)
{
    const MicrophoneWindows windows = syntheticWindows(16000);
    MicrophoneModel model(1, 150, 16000, windows);
    const std::vector<float> in = noise(200, 7, 0.5f);
    EXPECT_EQ(failureText<Failure>([&] { model.process(unchanged, in.data(), 160); }), "");
    EXPECT_EQ(failureText<Failure>([&] { model.process(unchanged, in.data(), 161); }), "PassThrough: out buffer too small");
    EXPECT_EQ(failureText<Failure>([&] { model.process(unchanged, in.data(), 160, 159); }), "PassThrough: out buffer too small");
    EXPECT_EQ(failureText<Failure>([&] { model.process(unchanged, in.data(), 0); }), "ippStsSizeErr");
    EXPECT_EQ(failureText<Failure>([&] { MicrophoneModel(1, 160, 44100, windows); }), "Unknown sampleRate in MicEqualizer");
}

} // namespace
} // namespace quorel::model
