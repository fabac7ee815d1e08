// SPDX-License-Identifier: MIT
// The sums of pairs' sums and differences, and of the channels of a frame.
#pragma once

#include "core/kernels/simd.h"
#include "core/kernels/states.h"

namespace quorel::kernels::QUOREL_VARIANT::mixing {
namespace {

constexpr size_t floats = lanes < 8 ? lanes : 8; // in a vector
using V = Vec<float, floats>;

// Stretches so short that their terms stay in the nearest cache while all rows are summed from them. A product with a sign is
// exact, so it makes no difference whether it is contracted.
void mixPairs(const float* const* in, const float* const* added, float gain, float* const* out, const PairMix* mix, size_t rows,
              size_t n)
{
    constexpr size_t pairs = PairMix::pairs, stretch = 64; // samples
    float term[2 * pairs][stretch];
    for (size_t at = 0, m = 0; at < n; at += m) {
        m = n - at < stretch ? n - at : stretch;
        const size_t whole = m - m % floats;
        for (size_t p = 0; p < pairs; ++p) {
            const float* const even = in[2 * p] + at;
            const float* const odd = in[2 * p + 1] + at;
            const float* const toEven = added[2 * p] != nullptr ? added[2 * p] + at : nullptr;
            const float* const toOdd = added[2 * p + 1] != nullptr ? added[2 * p + 1] + at : nullptr;
            float* const sum = term[PairMix::sum + p];
            float* const difference = term[PairMix::difference + p];
            // Each input is rounded before it is added to the other one, so that a pair's two terms are of the same two inputs.
            for (size_t i = 0; i < whole; i += floats) {
                V a = load<V>(even + i);
                V b = load<V>(odd + i);
                if (toEven != nullptr)
                    a += load<V>(toEven + i);
                if (toOdd != nullptr)
                    b += load<V>(toOdd + i);
                a = inRegister(a * gain);
                b = inRegister(b * gain);
                store(a + b, sum + i);
                store(a - b, difference + i);
            }
            for (size_t i = whole; i < m; ++i) {
                const float a = inRegister((toEven != nullptr ? even[i] + toEven[i] : even[i]) * gain);
                const float b = inRegister((toOdd != nullptr ? odd[i] + toOdd[i] : odd[i]) * gain);
                sum[i] = a + b;
                difference[i] = a - b;
            }
        }
        for (size_t r = 0; r < rows; ++r) {
            float* const y = out[r] + at;
            const float* from[pairs];
            float sign[pairs];
            for (size_t p = 0; p < pairs; ++p) {
                from[p] = term[mix[r].term[p]];
                sign[p] = mix[r].sign[p];
            }
            for (size_t i = 0; i < whole; i += floats) {
                V total = load<V>(from[0] + i);
                for (size_t p = 1; p < pairs; ++p)
                    total += sign[p] * load<V>(from[p] + i);
                store(total, y + i);
            }
            for (size_t i = whole; i < m; ++i) {
                float total = from[0][i];
                for (size_t p = 1; p < pairs; ++p)
                    total += sign[p] * from[p][i];
                y[i] = total;
            }
        }
    }
}

// Frames one after the other.
template <size_t channels>
void foldFrames(const float* frames, const float* gains, float* left, float* right, size_t n)
{
    for (size_t i = 0; i < n; ++i, frames += channels) {
        float l = frames[0] * gains[0], r = frames[0] * gains[channels];
        for (size_t k = 1; k < channels; ++k) {
            l += frames[k] * gains[k];
            r += frames[k] * gains[channels + k];
        }
        left[i] = l;
        right[i] = r;
    }
}

// Frames of four to eight channels, as many at a time as a vector has lanes. They enter as two quads each, the first four channels
// and the last four, and change places so that a vector holds one channel of all frames.
template <size_t channels>
void foldQuads(const float* frames, const float* gains, float* left, float* right, size_t n)
{
    constexpr size_t behind = channels - 4; // where the second quad starts; what both hold is taken from the first
    size_t i = 0;
    for (; i + floats <= n; i += floats, frames += floats * channels) {
        V first[4], second[4];
        for (size_t f = 0; f < 4; ++f) {
            const float* const frame = frames + f * channels;
            const float* const fourth = frame + (floats - 4) * channels; // of the upper half's frames, if there is one
            first[f] = join<V>(load<Quad>(frame), load<Quad>(fourth));
            second[f] = join<V>(load<Quad>(frame + behind), load<Quad>(fourth + behind));
        }
        transpose4x4(first);
        transpose4x4(second);
        V l = first[0] * gains[0], r = first[0] * gains[channels];
        for (size_t k = 1; k < channels; ++k) {
            const V x = k < 4 ? first[k] : second[k - behind];
            l += x * gains[k];
            r += x * gains[channels + k];
        }
        store(l, left + i);
        store(r, right + i);
    }
    foldFrames<channels>(frames, gains, left + i, right + i, n - i);
}

void foldToStereo(const float* frames, const float* gains, size_t channels, float* left, float* right, size_t n)
{
    constexpr decltype(&foldFrames<1>) fold[] = {foldFrames<1>, foldFrames<2>, foldFrames<3>, foldQuads<4>,
                                                 foldQuads<5>,  foldQuads<6>,  foldQuads<7>,  foldQuads<8>};
    fold[channels - 1](frames, gains, left, right, n);
}

} // namespace
} // namespace quorel::kernels::QUOREL_VARIANT::mixing
