// SPDX-License-Identifier: MIT
// How the tests of the capture path run it.
#pragma once

#include "microphone/microphone_path.h"

#include "tests/microphone/signals.h"

#include <algorithm>

namespace quorel {

inline constexpr std::uint32_t maxFrames = 480; // whole hops at both rates; rows of exactly this capacity

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
