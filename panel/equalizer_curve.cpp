// SPDX-License-Identifier: MIT
#include "panel/equalizer_curve.h"

#include "client/settings_fields.h"
#include "panel/values.h"
#include "speaker/built_in_equalizer.h"

#include <complex>

namespace quorel {

static_assert(EqualizerCurve::bands == Equalizer::bands);

EqualizerCurve::EqualizerCurve() : coefficients(builtInEqualizer().coefficients()) {}

void EqualizerCurve::design(const std::array<std::int64_t, bands>& settings)
{
    const SettingsField& band = *settingsField("EQBand1"); // all nine have one scale
    Equalizer::Gains gains{};
    for (std::size_t r = 0; r < gains.size(); ++r)
        gains.at(r) = decibelsAt(band, settings.at(r)).value();
    Equalizer equalizer = builtInEqualizer();
    equalizer.design(gains);
    coefficients = equalizer.coefficients();
}

double EqualizerCurve::partDb(std::size_t band, double hz) const
{
    const double* t = coefficients.data() + 6 * band;
    const auto z = std::polar(1.0, -2 * std::numbers::pi * hz / equalizerSampleRate);
    return 20 * std::log10(std::abs((t[0] + z * (t[1] + z * t[2])) / (t[3] + z * (t[4] + z * t[5]))));
}

double EqualizerCurve::curveDb(double hz) const
{
    double sum = 0;
    for (std::size_t r = 0; r < bands; ++r)
        sum += partDb(r, hz);
    return sum;
}

} // namespace quorel
