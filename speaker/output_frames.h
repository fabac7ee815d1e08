// SPDX-License-Identifier: MIT
// What leaves the render effect: frames of eight slots whatever the path's channel count, left, right and six zeros.
#pragma once

#include "core/buffer.h"
#include "core/interleaved_view.h"

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

    if (n != 0)
        check(stereoFrames(in.channel(0), in.channel(1), gain, out.data, length32(n)));
    out.frames = n;
}

} // namespace quorel
