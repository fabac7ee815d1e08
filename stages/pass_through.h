// SPDX-License-Identifier: MIT
// PassThrough copies a block: from a path's interleaved input, and between buffers with a gain.
#pragma once

#include "core/buffer.h"

#include <array>

namespace quorel::PassThrough {

// Four samples side by side, at any address. Of an alias in the other form clang forgets the alignment.
typedef float Quad __attribute__((vector_size(16), aligned(4), may_alias));
static_assert(alignof(Quad) == alignof(float));

// A block of C samples a frame, channel by channel: out[c][first + i] = in[i * C + c]. Ahead of `first` the rows stay.
template <std::size_t C>
void deinterleave(const InterleavedView& in, Buffer<float, C>& out, std::uint64_t first)
{
    const auto n = in.frames;
    if (n > out.capacity() - first)
        throw std::invalid_argument("PassThrough: out buffer too small");

    std::size_t c = 0;
    for (; c + 4 <= C; c += 4) { // squares of four channels by four frames
        const std::array<float*, 4> y = {out.channel(c) + first, out.channel(c + 1) + first, out.channel(c + 2) + first,
                                         out.channel(c + 3) + first};
        std::uint64_t i = 0;
        for (; i + 4 <= n; i += 4) {
            const auto frame = [&](std::uint64_t k) { return *reinterpret_cast<const Quad*>(in.data + (i + k) * C + c); };
            const auto put = [&](std::size_t k, Quad samples) { *reinterpret_cast<Quad*>(y[k] + i) = samples; };
            const Quad front01 = __builtin_shufflevector(frame(0), frame(1), 0, 4, 1, 5);
            const Quad front23 = __builtin_shufflevector(frame(2), frame(3), 0, 4, 1, 5);
            const Quad back01 = __builtin_shufflevector(frame(0), frame(1), 2, 6, 3, 7);
            const Quad back23 = __builtin_shufflevector(frame(2), frame(3), 2, 6, 3, 7);
            put(0, __builtin_shufflevector(front01, front23, 0, 1, 4, 5));
            put(1, __builtin_shufflevector(front01, front23, 2, 3, 6, 7));
            put(2, __builtin_shufflevector(back01, back23, 0, 1, 4, 5));
            put(3, __builtin_shufflevector(back01, back23, 2, 3, 6, 7));
        }
        for (; i < n; ++i)
            for (std::size_t k = 0; k < 4; ++k)
                y[k][i] = in.data[i * C + c + k];
    }
    for (; c < C; ++c) {
        float* y = out.channel(c) + first;
        for (std::uint64_t i = 0; i < n; ++i)
            y[i] = in.data[i * C + c];
    }
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
