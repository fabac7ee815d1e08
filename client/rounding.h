// SPDX-License-Identifier: MIT
// Rounding turns floats into integers of so many bits:  y = round(2^(bits-1) * x + d), held between the ends of the integers
//
// d is dither, the sum of two numbers that lie evenly between -1/2 and 1/2, so that what rounding adds is noise of one strength
// whatever the sound, instead of distortion of its quiet parts. It comes from a generator with a fixed seed: equal sounds give
// equal integers, also when they are cut into other portions.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <random>

namespace quorel {

class Rounding {
public:
    // bits: 16 or 24. Without dither only the nearest integer is taken.
    Rounding(int bits, bool dithered) : bits(bits), dithered(dithered) {}

    // The integers stand in the upper bits of y.
    void process(const float* x, std::int32_t* y, std::size_t count);

private:
    int bits;
    bool dithered;
    std::mt19937 generator; // its default seed, and its numbers, are those of the C++ standard
};

// ---------------------------------------------------------------------------------------------------------------------

inline void Rounding::process(const float* x, std::int32_t* y, std::size_t count)
{
    const double scale = std::ldexp(1.0, bits - 1);
    for (std::size_t i = 0; i < count; ++i) {
        double value = scale * static_cast<double>(x[i]);
        if (dithered) {
            const double sum = static_cast<double>(generator()) + static_cast<double>(generator());
            value += std::ldexp(sum, -32) - 1;
        }
        const double rounded = std::clamp(std::nearbyint(value), -scale, scale - 1);
        y[i] = static_cast<std::int32_t>(static_cast<std::int64_t>(rounded) * (std::int64_t{1} << (32 - bits)));
    }
}

} // namespace quorel
