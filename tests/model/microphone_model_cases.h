// SPDX-License-Identifier: MIT
// Signals and records for the tests of the capture model.
#pragma once

#include "tests/model/microphone_model.h"

#include <cmath>
#include <numbers>

namespace quorel::model {

inline const Referee nobody{};
inline const RecordFields unchanged{};
inline const std::vector<double> noDoubt(16, 0.0);

inline std::vector<float> sine(std::size_t n, double height, double hertz, double rate)
{
    std::vector<float> x(n);
    for (std::size_t i = 0; i < n; ++i)
        x[i] = static_cast<float>(height * std::sin(2.0 * std::numbers::pi * hertz * static_cast<double>(i) / rate));
    return x;
}

inline double rms(const Signal& x, std::size_t from)
{
    double sum = 0.0;
    for (std::size_t i = from; i < x.size(); ++i)
        sum += x[i] * x[i];
    return std::sqrt(sum / static_cast<double>(x.size() - from));
}

inline double dB(double ratio)
{
    return 20.0 * std::log10(ratio);
}

inline RecordFields record(std::uint8_t MicNR, std::uint32_t micEq, std::uint32_t noiseGate, std::uint8_t levelsEnabled = 0)
{
    RecordFields fields;
    fields.newRecord = true;
    fields.MicNR = MicNR;
    fields.micEq = micEq;
    fields.noiseGate = noiseGate;
    fields.levelsEnabled = levelsEnabled;
    return fields;
}

inline double magnitudeAt(const std::vector<Section>& sections, double w)
{
    const std::complex<double> z1 = std::polar(1.0, -w);
    const std::complex<double> z2 = std::polar(1.0, -2.0 * w);
    double magnitude = 1.0;
    for (const Section& s : sections)
        magnitude *= std::abs(s.b0 + s.b1 * z1 + s.b2 * z2) / std::abs(s.a0 + s.a1 * z1 + s.a2 * z2);
    return magnitude;
}

} // namespace quorel::model
