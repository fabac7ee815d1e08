// SPDX-License-Identifier: MIT
// What leaves the render effect: frames of eight slots whatever the path's channel count, left, right and six zeros.
#pragma once

#include "stages/pass_through.h"

namespace quorel {

constexpr std::size_t outputSlots = 8; // samples in a frame

// Left and right times gain. An empty block writes nothing.
void writeFrames(const Buffer<float, 2>& in, InterleavedView& out, float gain);

// ---------------------------------------------------------------------------------------------------------------------

inline void writeFrames(const Buffer<float, 2>& in, InterleavedView& out, float gain)
{
    const auto n = in.size();
    if (n > out.frames)
        throw std::invalid_argument("PassThrough: out buffer too small");

    const float* left = in.channel(0);
    const float* right = in.channel(1);
    for (std::uint64_t i = 0; i < n; ++i) {
        auto* frame = reinterpret_cast<PassThrough::Quad*>(out.data + i * outputSlots);
        frame[0] = PassThrough::Quad{gain * left[i], gain * right[i]};
        frame[1] = PassThrough::Quad{};
    }
    out.frames = n;
}

} // namespace quorel
