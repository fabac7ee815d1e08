// SPDX-License-Identifier: MIT
// What the tests of both models share.
#pragma once

#include "tests/model/parts.h"
#include "tests/model/settings.h"

#include <cmath>
#include <complex>
#include <vector>

namespace quorel::model {

inline const RecordFields unchanged{};

inline double dB(double ratio)
{
    return 20.0 * std::log10(ratio);
}

// The magnitude of sections in series at an angle, from their transfer functions.
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
