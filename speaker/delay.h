// SPDX-License-Identifier: MIT
// Delay holds each of N channels back by a fixed number of frames:  y[c][i] = x[c][i - d[c]]
//
// Required: a requested delay takes effect rounded up to a multiple of 16, the capacity of the row that holds it: 44 frames
// delay by 48. Each row holds the last d frames of its channel, oldest first, and persists, so a stream may be cut into
// blocks of any length but one.
// Required: a block of exactly d frames fails with ippStsSizeErr, since it leaves no frame to move down, and the kernels refuse
// to move nothing. That channel's output is then written, its row is not advanced, and the channels below have advanced.
#pragma once

#include "core/buffer.h"

#include <array>
#include <span>

namespace quorel {

template <std::size_t N>
class Delay {
public:
    // The requested delays in frames, from 1.
    explicit Delay(std::span<const std::uint64_t, N> frames) : Delay(frames, std::make_index_sequence<N>()) {}

    // Takes the valid frames of `in` behind its history. An empty block is refused.
    void process(const PaddedBuffer<N>& in, Buffer<float, N>& out);

private:
    template <std::size_t... c>
    Delay(std::span<const std::uint64_t, N> frames, std::index_sequence<c...>) : rows{Buffer<float, 1>(frames[c])...}
    {
    }

    std::array<Buffer<float, 1>, N> rows; // the last frames of each channel; the capacity is the delay
};

// ---------------------------------------------------------------------------------------------------------------------

template <std::size_t N>
void Delay<N>::process(const PaddedBuffer<N>& in, Buffer<float, N>& out)
{
    const auto n = in.validFrames();
    if (n > out.capacity())
        throw std::invalid_argument("Delay: out buffer too small");
    if (n == 0)
        throw std::invalid_argument("Delay: in buffer empty");

    for (std::size_t c = 0; c < N; ++c) {
        const float* x = in.channel(c) + in.overlap();
        float* y = out.channel(c);
        float* row = rows[c].channel(0);
        const auto d = rows[c].capacity();
        if (d >= n) {
            check(ippsCopy_32f(row, y, length32(n)));
            check(ippsMove_32f(row + n, row, length32(d - n)));
            check(ippsCopy_32f(x, row + d - n, length32(n)));
        } else {
            check(ippsCopy_32f(row, y, length32(d)));
            check(ippsCopy_32f(x, y + d, length32(n - d)));
            check(ippsCopy_32f(x + n - d, row, length32(d)));
        }
    }
    out.setSize(n);
}

} // namespace quorel
