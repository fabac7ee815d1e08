// SPDX-License-Identifier: MIT
// EqualizerCurve is what the nine bands do to the sound, by the effect's own design of its filter:
//
//   part of band r at f Hz  =  20 log10 |(b0 + b1 z + b2 z^2) / (a0 + a1 z + a2 z^2)|,  z = e^(-2 pi i f / 48000)
//
// The nine parts, of sections one behind the other, add up to the curve.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace quorel {

class EqualizerCurve {
public:
    static constexpr std::size_t bands = 9;

    EqualizerCurve(); // flat

    void design(const std::array<std::int64_t, bands>& settings); // -127 to 127 each

    double partDb(std::size_t band, double hz) const;
    double curveDb(double hz) const;

private:
    std::vector<double> coefficients; // b0, b1, b2, a0, a1, a2 of each band
};

} // namespace quorel
