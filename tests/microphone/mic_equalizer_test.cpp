// SPDX-License-Identifier: MIT
#include "microphone/mic_equalizer.h"

#include "tests/microphone/cases.h"
#include "tests/support/noise.h"

#include <algorithm>
#include <cmath>
#include <complex>
#include <numbers>

namespace quorel {
namespace {

// Channel c takes x delayed by c samples, so that no two are alike. The last one comes back.
template <std::size_t N>
std::vector<float> run(MicEqualizer<N>& equalizer, const std::vector<float>& x)
{
    Buffer<float, N> in(x.size());
    Buffer<float, N> out(x.size());
    for (std::size_t c = 0; c < N; ++c)
        std::copy(x.begin(), x.end() - static_cast<std::ptrdiff_t>(N - 1 - c), in.channel(c) + (N - 1 - c));
    in.setSize(x.size());
    equalizer.process(in, out);
    EXPECT_EQ(out.size(), x.size());
    return {out.channel(N - 1), out.channel(N - 1) + x.size()};
}

// The gain of some of a curve's sections at a frequency, from its taps in double precision.
double gainDb(std::uint32_t rate, std::size_t curve, double hertz, std::size_t from = 0, std::size_t to = 5)
{
    const CurveTaps& taps = microphoneRate(rate)->curves[curve];
    const auto z = std::polar(1.0, -2.0 * std::numbers::pi * hertz / rate);
    std::complex<double> h = 1.0;
    for (std::size_t s = 6 * from; s < 6 * to; s += 6)
        h *= (double{taps[s]} + double{taps[s + 1]} * z + double{taps[s + 2]} * z * z) /
             (double{taps[s + 3]} + double{taps[s + 4]} * z + double{taps[s + 5]} * z * z);
    return 20.0 * std::log10(std::abs(h));
}

TEST(MicEqualizer, ARateOtherThan16000And48000Fails)
{
    for (const std::uint32_t rate : {0U, 8000U, 44100U, 96000U})
        EXPECT_EQ(failureText<std::runtime_error>([&] { MicEqualizer<2>{rate}; }), "Unknown sampleRate in MicEqualizer");
}

TEST(MicEqualizer, Curve0PassesEverySampleExactly)
{
    forRatesAndChannelCounts([]<std::size_t N>(std::uint32_t rate) {
        MicEqualizer<N> equalizer(rate);
        const std::vector<float> x = normalNoise(1000, 0.1F, 1);
        EXPECT_EQ(run(equalizer, x), x);
        equalizer.select(2);
        run(equalizer, x);
        equalizer.select(0);
        EXPECT_EQ(run(equalizer, x), x);
    });
}

TEST(MicEqualizer, Curve2HasUnityGainAtZeroFrequencyAndAtHalfTheRate)
{
    for (const std::uint32_t rate : bothRates) {
        // At zero frequency numerator and denominator are differences of taps near 2, each rounded to eight digits.
        EXPECT_NEAR(gainDb(rate, 2, 0.0), 0.0, rate == 16000 ? 1e-3 : 1e-2);
        EXPECT_NEAR(gainDb(rate, 2, rate / 2.0), 0.0, 1e-5);
    }
}

TEST(MicEqualizer, TheCurvesLiftAndCutAsTheyAreMeantTo)
{
    for (const std::uint32_t rate : bothRates) {
        EXPECT_NEAR(gainDb(rate, 1, 100.0), 13.0, 0.5) << rate;
        EXPECT_NEAR(gainDb(rate, 1, 1200.0), -3.0, 0.5) << rate;
        EXPECT_NEAR(gainDb(rate, 1, 6000.0), 3.7, 0.5) << rate;
        for (const double hertz : {20.0, 50.0, 100.0, 150.0})
            EXPECT_LT(gainDb(rate, 2, hertz), -3.0) << rate << ' ' << hertz;
        // Each section of curve 2 reaches its gain at its centre.
        const std::array<std::pair<double, double>, 5> peaks = {{{75, -14}, {30, -16}, {190, -6}, {300, 3}, {3200, 3}}};
        for (std::size_t s = 0; s < peaks.size(); ++s)
            EXPECT_NEAR(gainDb(rate, 2, peaks[s].first, s, s + 1), peaks[s].second, 0.1) << rate << " section " << s;
    }
}

TEST(MicEqualizer, EveryCurveFiltersAsItsTapsSayInDoublePrecision)
{
    forRatesAndChannelCounts([]<std::size_t N>(std::uint32_t rate) {
        for (const std::size_t curve : {1U, 2U}) {
            MicEqualizer<N> equalizer(rate);
            equalizer.select(curve);
            const std::vector<float> x = normalNoise(8000, 0.1F, 5);
            const std::vector<float> y = run(equalizer, x);
            const CurveTaps& taps = microphoneRate(rate)->curves[curve];
            std::array<std::array<double, 4>, 5> past{}; // x1, x2, y1, y2 of each section
            double signal = 0.0;
            double error = 0.0;
            for (std::size_t i = 0; i < x.size(); ++i) {
                double v = x[i];
                for (std::size_t s = 0; s < 5; ++s) {
                    const float* t = taps.data() + 6 * s;
                    auto& [x1, x2, y1, y2] = past[s];
                    const double w =
                        double{t[0]} * v + double{t[1]} * x1 + double{t[2]} * x2 - double{t[4]} * y1 - double{t[5]} * y2;
                    x2 = x1, x1 = v, y2 = y1, y1 = w;
                    v = w;
                }
                signal += v * v;
                error += (double{y[i]} - v) * (double{y[i]} - v);
            }
            // Poles this near the unit circle raise single-precision roundings by tens of decibels.
            EXPECT_GT(10.0 * std::log10(signal / error), rate == 16000 ? 90.0 : 70.0) << "curve " << curve;
        }
    });
}

TEST(MicEqualizer, ASelectionStartsTheNextBlockWithoutMemory)
{
    forRatesAndChannelCounts([]<std::size_t N>(std::uint32_t rate) {
        for (const std::uint64_t before : {0U, 1U, 2U}) {
            MicEqualizer<N> fresh(rate);
            fresh.select(1);
            MicEqualizer<N> used(rate);
            used.select(before);
            run(used, normalNoise(500, 0.1F, 1));
            used.select(1);
            const std::vector<float> x = normalNoise(300, 0.1F, 2);
            EXPECT_EQ(run(used, x), run(fresh, x)) << "after curve " << before;
        }
    });
}

TEST(MicEqualizer, TheHistoryCarriesOverFromBlockToBlock)
{
    for (const std::uint32_t rate : bothRates) {
        MicEqualizer<1> whole(rate);
        MicEqualizer<1> cut(rate);
        whole.select(2);
        cut.select(2);
        const std::vector<float> x = normalNoise(600, 0.1F, 1);
        const std::vector<float> expected = run(whole, x);
        std::vector<float> y = run(cut, {x.begin(), x.begin() + 217});
        MicEqualizer<1> moved = std::move(cut);
        const std::vector<float> rest = run(moved, {x.begin() + 217, x.end()});
        y.insert(y.end(), rest.begin(), rest.end());
        for (std::size_t i = 0; i < x.size(); ++i)
            EXPECT_NEAR(y[i], expected[i], 1e-5F) << i; // block lengths may change the order of roundings
    }
}

TEST(MicEqualizer, ABlockOfTheOutputsCapacityIsTakenAndOneSampleMoreFails)
{
    forRatesAndChannelCounts([]<std::size_t N>(std::uint32_t rate) {
        MicEqualizer<N> equalizer(rate);
        Buffer<float, N> in(64);
        Buffer<float, N> out(48);
        in.setSize(48);
        equalizer.process(in, out);
        EXPECT_EQ(out.size(), 48U);
        in.setSize(49);
        EXPECT_EQ(failureText<std::invalid_argument>([&] { equalizer.process(in, out); }), "Biquad: out buffer too small");
    });
}

} // namespace
} // namespace quorel
