// SPDX-License-Identifier: MIT
// The capture model against closed forms, so that it can stand as the yardstick of the path.

#include "tests/model/microphone_model.h"

#include "tests/model/microphone_model_cases.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numbers>
#include <string>

#include "tests/model/synthetic_windows.h"
#include "tests/support/failure.h"
#include "tests/support/noise.h"

namespace quorel::model {
namespace {

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
