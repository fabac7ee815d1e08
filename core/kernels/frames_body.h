// SPDX-License-Identifier: MIT
// Interleaved frames to rows and back. Four frames or eight enter as quads and change places in registers, so that a vector holds
// one channel of all of them.
#pragma once

#include "core/kernels/simd.h"

namespace quorel::kernels::QUOREL_VARIANT::frames {
namespace {

constexpr size_t floats = lanes < 8 ? lanes : 8; // in a vector
using V = Vec<float, floats>;

// As many frames as a vector has lanes, of four to eight channels. Quads of the first four channels and of the last four: what
// both hold is the same.
template <size_t channels>
QUOREL_INLINE void loadFrames(const float* frames, V (&x)[channels])
{
    constexpr size_t behind = channels - 4; // where the second quad starts
    V first[4], second[4];
    for (size_t f = 0; f < 4; ++f) {
        const float* const frame = frames + f * channels;
        const float* const fourth = frame + (floats - 4) * channels; // of the upper half's frames, if there is one
        first[f] = join<V>(load<Quad>(frame), load<Quad>(fourth));
        second[f] = join<V>(load<Quad>(frame + behind), load<Quad>(fourth + behind));
    }
    transpose4x4(first);
    transpose4x4(second);
    for (size_t c = 0; c < channels; ++c)
        x[c] = c < 4 ? first[c] : second[c - behind];
}

template <size_t channels>
void splitFrames(const float* frames, float* const* out, size_t n)
{
    size_t i = 0;
    if constexpr (channels >= 4)
        for (; i + floats <= n; i += floats) {
            V x[channels];
            loadFrames<channels>(frames + i * channels, x);
            for (size_t c = 0; c < channels; ++c)
                store(x[c], out[c] + i);
        }
    for (; i < n; ++i)
        for (size_t c = 0; c < channels; ++c)
            out[c][i] = frames[i * channels + c];
}

template <size_t channels>
void foldFrames(const float* frames, const float* gains, float* left, float* right, size_t n)
{
    size_t i = 0;
    if constexpr (channels >= 4)
        for (; i + floats <= n; i += floats) {
            V x[channels];
            loadFrames<channels>(frames + i * channels, x);
            V l = x[0] * gains[0], r = x[0] * gains[channels];
            for (size_t c = 1; c < channels; ++c) {
                l += x[c] * gains[c];
                r += x[c] * gains[channels + c];
            }
            store(l, left + i);
            store(r, right + i);
        }
    for (; i < n; ++i) {
        const float* const frame = frames + i * channels;
        float l = frame[0] * gains[0], r = frame[0] * gains[channels];
        for (size_t c = 1; c < channels; ++c) {
            l += frame[c] * gains[c];
            r += frame[c] * gains[channels + c];
        }
        left[i] = l;
        right[i] = r;
    }
}

void deinterleave(const float* frames, size_t channels, float* const* out, size_t n)
{
    constexpr decltype(&splitFrames<1>) split[] = {splitFrames<1>, splitFrames<2>, splitFrames<3>, splitFrames<4>,
                                                   splitFrames<5>, splitFrames<6>, splitFrames<7>, splitFrames<8>};
    split[channels - 1](frames, out, n);
}

void foldToStereo(const float* frames, const float* gains, size_t channels, float* left, float* right, size_t n)
{
    constexpr decltype(&foldFrames<1>) fold[] = {foldFrames<1>, foldFrames<2>, foldFrames<3>, foldFrames<4>,
                                                 foldFrames<5>, foldFrames<6>, foldFrames<7>, foldFrames<8>};
    fold[channels - 1](frames, gains, left, right, n);
}

// Left, right and two zeros, then four more.
QUOREL_INLINE void storeFrame(Quad stereo, float* frame)
{
    store(stereo, frame);
    store(Quad{}, frame + 4);
}

void stereoFrames(const float* left, const float* right, float gain, float* frames, size_t n)
{
    size_t i = 0;
    for (; i + 4 <= n; i += 4, frames += 32) {
        const Quad l = gain * load<Quad>(left + i), r = gain * load<Quad>(right + i);
        const Quad front = shuffleInQuads<0, 4, 1, 5>(l, r), back = shuffleInQuads<2, 6, 3, 7>(l, r);
        storeFrame(shuffleInQuads<0, 1, 4, 5>(front, Quad{}), frames);
        storeFrame(shuffleInQuads<2, 3, 4, 5>(front, Quad{}), frames + 8);
        storeFrame(shuffleInQuads<0, 1, 4, 5>(back, Quad{}), frames + 16);
        storeFrame(shuffleInQuads<2, 3, 4, 5>(back, Quad{}), frames + 24);
    }
    for (; i < n; ++i, frames += 8)
        storeFrame(Quad{gain * left[i], gain * right[i], 0.0F, 0.0F}, frames);
}

} // namespace
} // namespace quorel::kernels::QUOREL_VARIANT::frames
