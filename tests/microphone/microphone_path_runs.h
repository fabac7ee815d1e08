// SPDX-License-Identifier: MIT
// How the tests of the capture path run it, and their signals.
#pragma once

#include "microphone/microphone_path.h"

#include "tests/microphone/cases.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>

namespace quorel {

inline constexpr float infinity = std::numeric_limits<float>::infinity();
inline constexpr float notANumber = std::numeric_limits<float>::quiet_NaN();
inline constexpr std::uint32_t maxFrames = 480; // whole hops at both rates; rows of exactly this capacity

inline std::uint64_t latencyOf(std::uint32_t rate)
{
    return rate == 16000 ? 431 : 782;
}

inline std::vector<float> sine(std::size_t length, double hertz, std::uint32_t rate, double amplitude)
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

// A change of settings as the poll makes it: the fields, and `applied` 0.
template <class Path, class Change>
void set(Path& path, Change change)
{
    change(path.settings());
    path.settings().applied = 0;
}

// One block of interleaved samples.
template <std::size_t N>
std::vector<float> block(MicrophonePath<N, float>& path, std::vector<float> in)
{
    std::vector<float> out(in.size(), 77.0F);
    path.process({in.data(), in.size() / N}, {out.data(), out.size() / N});
    return out;
}

// The same signal in every channel, in blocks of `frames`; the last channel comes back.
template <std::size_t N>
std::vector<float> run(MicrophonePath<N, float>& path, const std::vector<float>& x, std::size_t frames = maxFrames)
{
    std::vector<float> y;
    for (std::size_t i = 0; i < x.size(); i += frames) {
        const std::size_t n = std::min(frames, x.size() - i);
        std::vector<float> in(n * N);
        for (std::size_t k = 0; k < n * N; ++k)
            in[k] = x[i + k / N];
        const std::vector<float> out = block(path, in);
        for (std::size_t k = 0; k < n; ++k)
            y.push_back(out[k * N + N - 1]);
    }
    return y;
}

template <std::size_t N>
using Path = MicrophonePath<N, float>;

// A block that is too long takes the record over and goes no further: what is pending shows.
template <std::size_t N>
void applyOnly(Path<N>& path)
{
    EXPECT_THROW(block(path, std::vector<float>((maxFrames + 1) * N)), std::invalid_argument);
}

} // namespace quorel
