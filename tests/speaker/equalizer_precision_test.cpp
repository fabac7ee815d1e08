// SPDX-License-Identifier: MIT
// How precise the equaliser is at gains of any size: a band's setting is not clamped.
#include "speaker/equalizer.h"
#include "speaker/equalizer_tables.h"
#include "tests/core/variants.h"
#include "tests/support/noise.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>

namespace quorel {
namespace {

class EqualizerPrecision : public WithVariant {};

INSTANTIATE_TEST_SUITE_P(Variant, EqualizerPrecision, testing::ValuesIn(testedVariants()), variantName);

// The sections one after the other in the direct form, in more than double precision where the machine has it.
class Definition {
public:
    explicit Definition(const std::array<double, 54>& taps) : taps(taps) {}

    long double operator()(float sample)
    {
        long double v = sample;
        for (std::size_t s = 0; s < 9; ++s) {
            const double* t = taps.data() + 6 * s;
            auto& p = past[s];
            const long double y = (t[0] * v + t[1] * p[0] + t[2] * p[1] - t[4] * p[2] - t[5] * p[3]) / t[3];
            p = {v, p[0], y, p[2]};
            v = y;
        }
        return v;
    }

private:
    std::array<double, 54> taps;
    std::array<std::array<long double, 4>, 9> past{}; // x[n-1], x[n-2], y[n-1], y[n-2]
};

// Signal to error in decibels over 0.2 s of noise.
double precisionAt(Equalizer& equalizer, const Equalizer::Gains& gains, unsigned seed)
{
    equalizer.design(gains);
    std::array<double, 54> taps{};
    std::copy_n(equalizer.coefficients().begin(), taps.size(), taps.begin());
    Definition definition(taps);
    std::vector<float> y(480);
    std::vector<float> other(480);
    long double signal = 0, error = 0;
    for (unsigned block = 0; block < 20; ++block) {
        const std::vector<float> x = normalNoise(480, 0.1F, 100 * seed + block);
        equalizer.process({x.data(), x.data()}, {other.data(), y.data()}, 480);
        for (std::size_t i = 0; i < 480; ++i) {
            const long double wanted = definition(x[i]);
            const long double off = static_cast<long double>(y[i]) - wanted;
            signal += wanted * wanted;
            error += off * off;
        }
    }
    return static_cast<double>(10 * std::log10(signal / error));
}

TEST_P(EqualizerPrecision, Is130DecibelsAtGainsOfAnySize)
{
    // Every band at its end and beyond with random signs, and every band anywhere.
    Equalizer equalizer(equalizerInteraction(), equalizerCentres, equalizerQ, equalizerSampleRate, equalizerShelfFactor);
    std::mt19937 random(61);
    for (const int setting : {127, 254, 500, 635, 1270})
        for (unsigned trial = 0; trial < 30; ++trial) {
            Equalizer::Gains ends{}, anywhere{};
            for (std::size_t band = 0; band < ends.size(); ++band) {
                ends[band] = (random() % 2 == 0 ? setting : -setting) / 127.0 * 6.0;
                anywhere[band] = (static_cast<int>(random() % static_cast<unsigned>(2 * setting + 1)) - setting) / 127.0 * 6.0;
            }
            EXPECT_GT(precisionAt(equalizer, ends, trial), 130) << "settings of " << setting << ", trial " << trial;
            EXPECT_GT(precisionAt(equalizer, anywhere, trial), 130) << "settings up to " << setting << ", trial " << trial;
        }
}

TEST_P(EqualizerPrecision, HoldsWhereBandsAtTheTenfoldEndWorkAgainstEachOther)
{
    // Signs for which groups of sections, however few in one, agree to 74 to 129 dB alone.
    Equalizer equalizer(equalizerInteraction(), equalizerCentres, equalizerQ, equalizerSampleRate, equalizerShelfFactor);
    for (const unsigned signs : {163U, 341U, 367U}) {
        Equalizer::Gains gains{};
        for (std::size_t band = 0; band < gains.size(); ++band)
            gains[band] = (signs >> band & 1U) != 0 ? 60.0 : -60.0;
        EXPECT_GT(precisionAt(equalizer, gains, signs), 130) << "signs " << signs;
    }
}

} // namespace
} // namespace quorel
