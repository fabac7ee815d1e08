// SPDX-License-Identifier: MIT
// PassThrough copies a block: from a path's interleaved input, and between buffers with a gain.
#pragma once

#include "core/buffer.h"
#include "core/interleaved_view.h"

namespace quorel::PassThrough {

// A block of C samples a frame, channel by channel: out[c][first + i] = in[i * C + c]. Ahead of `first` the rows stay.
template <std::size_t C>
void deinterleave(const InterleavedView& in, Buffer<float, C>& out, std::uint64_t first)
{
    const auto n = in.frames;
    if (n > out.capacity() - first)
        throw std::invalid_argument("PassThrough: out buffer too small");

    if (n != 0)
        check(quorel::deinterleave(in.data, C, rows(out, first).data(), length32(n)));
    out.setSize(first + n);
}

// out[c] = gain * in[c].
// Required: a channel whose input and output are one row is skipped, and its gain then not applied: this stage is meant for
// copies. Any other empty block fails with the kernel's ippStsSizeErr.
template <std::size_t C>
void process(const Buffer<float, C>& in, Buffer<float, C>& out, float gain)
{
    const auto n = in.size();
    if (n > out.capacity())
        throw std::invalid_argument("PassThrough: out buffer too small");

    for (std::size_t c = 0; c < C; ++c) {
        const float* x = in.channel(c);
        float* y = out.channel(c);
        if (x != y)
            check(ippsMulC_32f(x, gain, y, length32(n)));
    }
    out.setSize(n);
}

} // namespace quorel::PassThrough
