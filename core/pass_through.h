// PassThrough copies a block: from a path's interleaved input, between buffers with a gain, and from a stereo buffer to the
// interleaved output.
#pragma once

#include "core/buffer.h"

namespace quorel::PassThrough {

// Samples in a frame of a speaker path's output, whatever the path's channel count: left, right and six zeros.
constexpr std::size_t outputStride = 8;

// A block of C samples a frame, channel by channel: out[c][first + i] = in[i * C + c]. Ahead of `first` the rows stay.
template <std::size_t C>
void deinterleave(const InterleavedView& in, Buffer<float, C>& out, std::uint64_t first)
{
    const auto n = in.frames;
    if (n > out.capacity() - first)
        throw std::invalid_argument("PassThrough: out buffer too small");

    for (std::size_t c = 0; c < C; ++c) {
        float* x = out.channel(c) + first;
        for (std::uint64_t i = 0; i < n; ++i)
            x[i] = in.data[i * C + c];
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

// Frames of eight slots: left, right and six zeros, left and right times gain. An empty block writes nothing.
inline void process(const Buffer<float, 2>& in, InterleavedView& out, float gain)
{
    const auto n = in.size();
    if (n > out.frames)
        throw std::invalid_argument("PassThrough: out buffer too small");

    const float* left = in.channel(0);
    const float* right = in.channel(1);
    for (std::uint64_t i = 0; i < n; ++i) {
        float* frame = out.data + i * outputStride;
        frame[0] = gain * left[i];
        frame[1] = gain * right[i];
        for (std::size_t slot = 2; slot < outputStride; ++slot)
            frame[slot] = 0.0F;
    }
    out.frames = n;
}

} // namespace quorel::PassThrough
