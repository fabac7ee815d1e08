// SPDX-License-Identifier: MIT
// The compressor's arithmetic. The envelopes alone are serial in time: each waits for the one before, for a difference, a product
// and a sum. Everything else finds room while they wait: samples enter with a lane for each channel, the loudest envelopes of a
// vector of frames leave for the curve, and its gains for the products.
#pragma once

#include "core/kernels/simd.h"
#include "core/kernels/states.h"

namespace quorel::kernels::QUOREL_VARIANT::dynamics {
namespace {

constexpr size_t floats = lanes < 8 ? lanes : 8; // in a vector of frames
using V = Vec<float, floats>;

using Bits = Vec<int, 4>;

inline Bits bits(Quad v)
{
    return reinterpret_cast<Bits>(v);
}

// One frame of four envelopes: what lies above the sample falls, by the share `falling`; the rest rises. Levels are never
// negative, so their bits are in the order of the levels. Whole numbers compare and choose sooner than the difference is ready.
QUOREL_INLINE Quad follow(Quad held, Quad level, Quad rising, Quad falling)
{
    const Bits above = inRegister(bits(held) > bits(level));
    const Quad share = reinterpret_cast<Quad>(bits(rising) ^ (above & (bits(rising) ^ bits(falling))));
    return held + inRegister(share * (level - held)); // two roundings also where a product and a sum could fuse
}

// Four frames of four envelopes a group. The loudest envelope of each frame; those that are not-a-number count for none.
template <size_t groups>
QUOREL_INLINE Quad followQuad(const float* const* row, size_t at, Quad rising, Quad falling, Quad (&held)[groups])
{
    Quad x[groups][4]; // of channels first, of frames once they have changed places
    for (size_t g = 0; g < groups; ++g) {
        for (size_t k = 0; k < 4; ++k)
            x[g][k] = reinterpret_cast<Quad>(bits(load<Quad>(row[4 * g + k] + at)) & 0x7FFFFFFF); // its magnitude
        transpose4x4(x[g]);
    }
    for (size_t k = 0; k < 4; ++k)
        for (size_t g = 0; g < groups; ++g)
            x[g][k] = held[g] = follow(held[g], x[g][k], rising, falling);
    Quad loudest{};
    for (size_t g = 0; g < groups; ++g) {
        transpose4x4(x[g]);
        for (size_t k = 0; k < 4; ++k)
            loudest = select(x[g][k] > loudest, x[g][k], loudest);
    }
    return loudest;
}

// Where the last gains were found on the curve.
struct Place {
    size_t segment;
    float from; // it serves levels from here
    float to;   // to below here
};

QUOREL_INLINE V gainOf(V p, V level, V start, V slope)
{
    const V sloping = inRegister((p - level) * slope) + start;
    return select(slope == V{}, start, sloping); // a level part also holds at infinity
}

// Levels move slowly: mostly the segment of the last ones serves them all.
QUOREL_INLINE V gains(const Dynamics& set, Place& place, V p)
{
    if (!any((p < V{} + place.from) | (p >= V{} + place.to))) {
        const GainSegment& one = set.curve[place.segment];
        return gainOf(p, V{} + one.level, V{} + one.gain, V{} + one.slope);
    }
    V level = V{} + set.curve[0].level, start = V{} + set.curve[0].gain, slope = V{} + set.curve[0].slope;
    for (size_t s = 1; s < set.segments; ++s) {
        const auto above = p >= V{} + set.curve[s].level;
        level = select(above, V{} + set.curve[s].level, level);
        start = select(above, V{} + set.curve[s].gain, start);
        slope = select(above, V{} + set.curve[s].slope, slope);
    }
    size_t& s = place.segment;
    for (s = 0; s + 1 < set.segments && p[floats - 1] >= set.curve[s + 1].level;)
        ++s;
    place.from = s == 0 ? -__builtin_inff() : set.curve[s].level;
    place.to = s + 1 < set.segments ? set.curve[s + 1].level : __builtin_nanf(""); // nothing lies above the last one
    return gainOf(p, level, start, slope);
}

template <size_t groups>
void compressRows(const Dynamics& set, float* envelope, const float* const* in, float* const* out, size_t channels, size_t n)
{
    const Quad rising = Quad{} + set.attack, falling = Quad{} + set.release;
    const float silence[floats] = {};
    const float* row[4 * groups];
    size_t step[4 * groups]; // where there is no channel, silence stands still
    float first[4 * groups] = {};
    for (size_t c = 0; c < 4 * groups; ++c) {
        row[c] = c < channels ? in[c] : silence;
        step[c] = c < channels ? floats : 0;
        first[c] = c < channels ? envelope[c] : 0.0F;
    }
    Quad held[groups];
    for (size_t g = 0; g < groups; ++g)
        held[g] = load<Quad>(first + 4 * g);

    Place place{0, -__builtin_inff(), set.segments > 1 ? set.curve[1].level : __builtin_nanf("")};
    size_t at = 0;
    for (; at + floats <= n; at += floats) {
        const Quad low = followQuad<groups>(row, 0, rising, falling, held);
        const Quad high = floats == 8 ? followQuad<groups>(row, floats - 4, rising, falling, held) : low;
        const V gain = gains(set, place, join<V>(low, high));
        for (size_t c = 0; c < channels; ++c)
            store(gain * load<V>(in[c] + at), out[c] + at);
        for (size_t c = 0; c < 4 * groups; ++c)
            row[c] += step[c];
    }
    for (; at < n; ++at) {
        float loudest = 0.0F;
        for (size_t g = 0; g < groups; ++g) {
            Quad x{};
            for (size_t k = 0; k < 4 && 4 * g + k < channels; ++k)
                x[k] = __builtin_fabsf(in[4 * g + k][at]);
            held[g] = follow(held[g], x, rising, falling);
            for (size_t k = 0; k < 4; ++k)
                loudest = held[g][k] > loudest ? held[g][k] : loudest;
        }
        const V gain = gains(set, place, V{} + loudest);
        for (size_t c = 0; c < channels; ++c)
            out[c][at] = gain[0] * in[c][at];
    }

    // In silence an envelope would stay among the subnormal numbers for ever, which some processors take a hundred times longer
    // to add and multiply.
    for (size_t c = 0; c < channels; ++c) {
        const float last = held[c / 4][c % 4];
        envelope[c] = last < quiet ? 0.0F : last;
    }
}

void compress(const Dynamics* dynamics, float* envelope, const float* const* in, float* const* out, size_t channels, size_t n)
{
    const auto rows = channels <= 4 ? compressRows<1> : compressRows<2>;
    rows(*dynamics, envelope, in, out, channels, n);
}

} // namespace
} // namespace quorel::kernels::QUOREL_VARIANT::dynamics
