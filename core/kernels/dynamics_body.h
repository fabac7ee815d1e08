// SPDX-License-Identifier: MIT
// The compressor's arithmetic. The envelopes alone are serial in time: each waits for the one before, for a difference, a product
// and a sum. Everything else finds room while they wait: samples enter with a lane for each channel, the loudest envelopes of a
// vector of frames leave for the curve, and its gains for the products. Two compressors side by side wait in the same time.
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

// Where the mask is true: a; elsewhere b. Where all lanes of a are alike, and all of b, AVX chooses by the mask's last two bits
// in one instruction; AVX-512 has one for any lanes.
template <bool alike>
QUOREL_INLINE Quad choose(Bits mask, Quad a, Quad b)
{
#if defined(__AVX__) && !defined(__AVX512F__)
    if constexpr (alike)
        return __builtin_ia32_vpermilvarps(shuffleInQuads<0, 0, 4, 4>(b, a), mask);
#endif
    return reinterpret_cast<Quad>(bits(b) ^ (mask & (bits(a) ^ bits(b))));
}

// One frame of four envelopes: what lies above the sample falls, by the share `falling`; the rest rises. Levels are never
// negative, so their bits are in the order of the levels. Whole numbers compare and choose sooner than the difference is ready.
template <bool alike>
QUOREL_INLINE Quad follow(Quad held, Quad level, Quad rising, Quad falling)
{
    const Bits above = inRegister(bits(held) > bits(level));
    const Quad way = inRegister(choose<alike>(above, falling, rising) * (level - held)); // rounded also where it could fuse
    return held + way;
}

// Four frames of four envelopes a group, of which `used` may have a channel. The loudest envelope of each frame, for each
// compressor among its own channels; those that are not-a-number count for none.
template <size_t used, size_t groups, size_t units>
QUOREL_INLINE void followQuad(const float* const* row, size_t at, Quad rising, Quad falling, Quad (&held)[groups],
                              Quad (&loudest)[units])
{
    Quad x[groups][4]; // of channels first, of frames once they have changed places
    for (size_t g = 0; g < groups; ++g) {
        for (size_t k = 0; k < 4; ++k) // magnitudes
            x[g][k] = reinterpret_cast<Quad>(k < used ? bits(load<Quad>(row[4 * g + k] + at)) & 0x7FFFFFFF : Bits{});
        transpose4x4(x[g]);
    }
    for (size_t k = 0; k < 4; ++k)
        for (size_t g = 0; g < groups; ++g)
            x[g][k] = held[g] = follow<units == 1>(held[g], x[g][k], rising, falling);
    for (size_t u = 0; u < units; ++u)
        loudest[u] = Quad{};
    for (size_t g = 0; g < groups; ++g) {
        transpose4x4(x[g]);
        for (size_t k = 0; k < used; ++k) {
            Quad& most = loudest[units == 1 ? 0 : k / 2];
            most = select(x[g][k] > most, x[g][k], most);
        }
    }
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

// One compressor of all channels, or two of two channels each.
template <size_t used, size_t groups, size_t units>
void compressRows(const Dynamics* const (&set)[units], float* envelope, const float* const* in, float* const* out,
                  size_t channels, size_t n)
{
    static_assert(units == 1 || (units == 2 && groups == 1));
    const auto unitOf = [](size_t c) { return units == 1 ? 0 : c / 2; }; // which compressor channel c is one of
    Quad rising{}, falling{};
    for (size_t k = 0; k < 4; ++k) {
        rising[k] = set[unitOf(k)]->attack;
        falling[k] = set[unitOf(k)]->release;
    }
    const float silence[floats] = {};
    const float* row[4 * groups];
    float first[4 * groups] = {};
    for (size_t c = 0; c < channels; ++c)
        first[c] = envelope[c];
    Quad held[groups];
    for (size_t g = 0; g < groups; ++g)
        held[g] = load<Quad>(first + 4 * g);

    Place place[units];
    for (size_t u = 0; u < units; ++u)
        place[u] = {0, -__builtin_inff(), set[u]->segments > 1 ? set[u]->curve[1].level : __builtin_nanf("")};
    size_t at = 0;
    for (; at + floats <= n; at += floats) {
        for (size_t c = 0; c < 4 * groups; ++c)
            row[c] = c < channels ? in[c] + at : silence;
        Quad low[units], high[units];
        followQuad<used>(row, 0, rising, falling, held, low);
        if constexpr (floats == 8)
            followQuad<used>(row, 4, rising, falling, held, high);
        else
            high[0] = low[0], high[units - 1] = low[units - 1];
        V gain[units];
        for (size_t u = 0; u < units; ++u)
            gain[u] = gains(*set[u], place[u], join<V>(low[u], high[u]));
        for (size_t c = 0; c < channels; ++c)
            store(gain[unitOf(c)] * load<V>(in[c] + at), out[c] + at);
    }
    for (; at < n; ++at) {
        float loudest[units] = {};
        for (size_t g = 0; g < groups; ++g) {
            Quad x{};
            for (size_t k = 0; k < 4 && 4 * g + k < channels; ++k)
                x[k] = __builtin_fabsf(in[4 * g + k][at]);
            held[g] = follow<units == 1>(held[g], x, rising, falling);
            for (size_t k = 0; k < 4; ++k) {
                float& most = loudest[unitOf(k)];
                most = held[g][k] > most ? held[g][k] : most;
            }
        }
        for (size_t u = 0; u < units; ++u)
            loudest[u] = gains(*set[u], place[u], V{} + loudest[u])[0];
        for (size_t c = 0; c < channels; ++c)
            out[c][at] = loudest[unitOf(c)] * in[c][at];
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
    const auto rows = channels <= 2 ? compressRows<2, 1, 1> : channels <= 4 ? compressRows<4, 1, 1> : compressRows<4, 2, 1>;
    rows({dynamics}, envelope, in, out, channels, n);
}

void compressTwo(const Dynamics* first, const Dynamics* second, float* envelope, const float* const* in, float* const* out,
                 size_t n)
{
    compressRows<4, 1, 2>({first, second}, envelope, in, out, 4, n);
}

} // namespace
} // namespace quorel::kernels::QUOREL_VARIANT::dynamics
