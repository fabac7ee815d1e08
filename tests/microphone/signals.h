// SPDX-License-Identifier: MIT
// The signals of the tests of noise reduction and of the whole capture path, and how late these are.
#pragma once

#include "tests/microphone/cases.h"

#include <cmath>
#include <cstdint>
#include <limits>
#include <numbers>
#include <vector>

namespace quorel {

inline constexpr float infinity = std::numeric_limits<float>::infinity();
inline constexpr float notANumber = std::numeric_limits<float>::quiet_NaN();

inline std::uint64_t latencyOf(std::uint32_t rate)
{
    return rate == 16000 ? 431 : 782;
}

inline std::vector<float> sine(std::size_t length, double hertz, std::uint32_t rate, double amplitude = 1.0)
{
    std::vector<float> samples(length);
    for (std::size_t i = 0; i < length; ++i)
        samples[i] = static_cast<float>(amplitude * std::sin(2.0 * std::numbers::pi * hertz * static_cast<double>(i) / rate));
    return samples;
}

inline double rms(const std::vector<float>& x, std::size_t from, std::size_t to)
{
    double sum = 0.0;
    for (std::size_t i = from; i < to; ++i)
        sum += double{x[i]} * double{x[i]};
    return std::sqrt(sum / static_cast<double>(to - from));
}

} // namespace quorel
