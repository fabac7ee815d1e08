// SPDX-License-Identifier: MIT
// ScaleMixer folds N interleaved channels to a stereo buffer:  out[r][i] = sum over k of in[i * N + k] * gains[r][k]
#pragma once

#include "core/buffer.h"
#include "core/interleaved_view.h"

#include <array>

namespace quorel {

template <std::size_t N>
class ScaleMixer {
public:
    // Row 0 is left, row 1 right; linear gains.
    using Gains = std::array<std::array<float, N>, 2>;

    explicit ScaleMixer(const Gains& gains) : gains(gains) {}

    // `in` has N samples a frame. An empty block is accepted.
    void process(const InterleavedView& in, Buffer<float, 2>& out) const;

private:
    Gains gains;
};

// ---------------------------------------------------------------------------------------------------------------------

template <std::size_t N>
void ScaleMixer<N>::process(const InterleavedView& in, Buffer<float, 2>& out) const
{
    const auto n = in.frames;
    if (n > out.capacity())
        throw std::invalid_argument("ScaleMixer: out buffer too small");

    if (n != 0)
        check(foldToStereo(in.data, gains[0].data(), N, out.channel(0), out.channel(1), length32(n)));
    out.setSize(n);
}

} // namespace quorel
