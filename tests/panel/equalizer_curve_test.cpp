// SPDX-License-Identifier: MIT
#include "panel/equalizer_curve.h"

#include "speaker/built_in_equalizer.h"

#include <gtest/gtest.h>

#include <cmath>
#include <complex>

namespace quorel {
namespace {

// The level at which the effect's own filter passes a tone: the transform, at one frequency, of what it makes of an impulse.
double passedDb(Equalizer& equalizer, double hz)
{
    constexpr std::size_t n = 48000;
    std::vector<float> impulse(n);
    impulse[0] = 1;
    std::vector<float> answer(n);
    std::vector<float> other(n);
    equalizer.process({impulse.data(), impulse.data()}, {answer.data(), other.data()}, n);
    std::complex<double> sum = 0;
    for (std::size_t i = 0; i < n; ++i)
        sum += static_cast<double>(answer[i]) * std::polar(1.0, -2 * std::numbers::pi * hz * static_cast<double>(i) / 48000);
    return 20 * std::log10(std::abs(sum));
}

// The impulse's answer is rounded to floats: each of its values is off by 2^-25 of itself at most, the sum by some 1e-7 of it, and
// what the answer still holds after a second is none of a float's. 1e-4 dB is ten times that.
TEST(EqualizerCurve, IsWhatTheEffectsOwnFilterDoesToATone)
{
    const std::array<std::int64_t, 9> settings = {127, -40, 0, 90, -127, 20, 64, -64, 100};
    EqualizerCurve curve;
    curve.design(settings);
    for (const double hz : {31.0, 63.0, 200.0, 1000.0, 1414.0, 9000.0, 16000.0, 20000.0}) {
        Equalizer equalizer = builtInEqualizer();
        Equalizer::Gains gains{};
        for (std::size_t r = 0; r < gains.size(); ++r)
            gains.at(r) = static_cast<double>(settings.at(r)) / 127.0 * 6.0;
        equalizer.design(gains);
        EXPECT_NEAR(curve.curveDb(hz), passedDb(equalizer, hz), 1e-4) << hz;
    }
}

// Sections of equal numerator and denominator.
TEST(EqualizerCurve, IsFlatAtFirst)
{
    const EqualizerCurve curve;
    for (double hz = 20; hz < 24000; hz *= 1.3)
        EXPECT_NEAR(curve.curveDb(hz), 0, 1e-12);
}

// A band alone gets its own gain times the correction's diagonal, and its neighbours the entries beside it: with band 5 at 6 dB
// and the median 0, peak r reaches 6 * interaction(r, 4) decibels at its own centre, whatever alpha is, since there
// |H| = (1 + A alpha - (1 - A alpha)) / (1 + alpha / A - (1 - alpha / A)) = A^2.
TEST(EqualizerCurve, HasEachBandsOwnPart)
{
    EqualizerCurve curve;
    curve.design({0, 0, 0, 0, 127, 0, 0, 0, 0});
    const auto matrix = equalizerInteraction();
    for (std::size_t r = 1; r <= 7; ++r)
        EXPECT_NEAR(curve.partDb(r, equalizerCentres.at(r)), 6 * matrix(4, r), 1e-9) << r;
}

} // namespace
} // namespace quorel
