// SPDX-License-Identifier: MIT
// The compressor's arithmetic. The envelopes alone are serial in time: each waits for the one before, for a difference, a product
// and a sum. So they go first, through a stretch of samples with a lane for each channel, and leave nothing but the loudest one of
// each frame; the curve's gains and the products follow for whole vectors of frames, while the next stretch is under way.
#pragma once

#include "core/kernels/simd.h"
#include "core/kernels/states.h"

namespace quorel::kernels::QUOREL_VARIANT::dynamics {
namespace {

constexpr size_t stretch = 64; // frames; their levels stay in the nearest cache

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

// The envelopes of four rows a group through n frames of `level`, the loudest of each frame into `peak`. Envelopes that are
// not-a-number count for none. Rows and peaks have room for whole quads of frames; behind the last one its peak is repeated.
template <size_t groups>
inline void followRows(const Dynamics& set, float* envelope, const float (*level)[stretch], float* peak, size_t n)
{
    const Quad rising = Quad{} + set.attack, falling = Quad{} + set.release;
    Quad held[groups];
    for (size_t g = 0; g < groups; ++g)
        held[g] = load<Quad>(envelope + 4 * g);
    for (size_t i = 0; i < n; i += 4) {
        Quad row[groups][4]; // of channels first, of frames once they have changed places
        for (size_t g = 0; g < groups; ++g) {
            for (size_t k = 0; k < 4; ++k)
                row[g][k] = load<Quad>(level[4 * g + k] + i);
            transpose4x4(row[g]);
        }
        for (size_t k = 0; k < 4; ++k)
            for (size_t g = 0; g < groups; ++g) {
                if (k < n - i)
                    held[g] = follow(held[g], row[g][k], rising, falling);
                row[g][k] = held[g];
            }
        Quad loudest{};
        for (size_t g = 0; g < groups; ++g) {
            transpose4x4(row[g]);
            for (size_t k = 0; k < 4; ++k)
                loudest = select(row[g][k] > loudest, row[g][k], loudest);
        }
        store(loudest, peak + i);
    }
    for (size_t g = 0; g < groups; ++g)
        store(held[g], envelope + 4 * g);
}

// Gains of peaks that lie between `lowest` and `highest`. Levels move slowly: mostly one segment serves them all.
inline void gainsOf(const Dynamics& set, const float* peak, float lowest, float highest, float* gain, size_t n)
{
    size_t from = 0;
    while (from + 1 < set.segments && set.curve[from + 1].level <= lowest)
        ++from;
    size_t to = from;
    while (to + 1 < set.segments && set.curve[to + 1].level <= highest)
        ++to;
    for (size_t i = 0; i < n; i += floats) {
        const V p = load<V>(peak + i);
        V level = V{} + set.curve[from].level, start = V{} + set.curve[from].gain, slope = V{} + set.curve[from].slope;
        for (size_t s = from + 1; s <= to; ++s) {
            const auto above = p >= V{} + set.curve[s].level;
            level = select(above, V{} + set.curve[s].level, level);
            start = select(above, V{} + set.curve[s].gain, start);
            slope = select(above, V{} + set.curve[s].slope, slope);
        }
        const V sloping = inRegister((p - level) * slope) + start;
        store(select(slope == V{}, start, sloping), gain + i); // a level part also holds at infinity
    }
}

void compress(const Dynamics* dynamics, float* envelope, const float* const* in, float* const* out, size_t channels, size_t n)
{
    constexpr size_t most = Dynamics::maxChannels;
    float level[most][stretch] = {}; // zeros where there is no channel
    float peak[stretch] = {};
    float gain[stretch];
    float held[most] = {};
    for (size_t c = 0; c < channels; ++c)
        held[c] = envelope[c];
    for (size_t at = 0, m = 0; at < n; at += m) {
        m = n - at < stretch ? n - at : stretch;
        for (size_t c = 0; c < channels; ++c)
            for (size_t i = 0; i < m; ++i)
                level[c][i] = __builtin_fabsf(in[c][at + i]);
        if (channels <= 4)
            followRows<1>(*dynamics, held, level, peak, m);
        else
            followRows<2>(*dynamics, held, level, peak, m);
        Quad low = load<Quad>(peak), high = low;
        for (size_t i = 4; i < m; i += 4) {
            const Quad next = load<Quad>(peak + i);
            low = select(next < low, next, low);
            high = select(next > high, next, high);
        }
        float lowest = low[0], highest = high[0];
        for (size_t k = 1; k < 4; ++k) {
            lowest = low[k] < lowest ? low[k] : lowest;
            highest = high[k] > highest ? high[k] : highest;
        }
        gainsOf(*dynamics, peak, lowest, highest, gain, m);
        for (size_t c = 0; c < channels; ++c)
            for (size_t i = 0; i < m; ++i)
                out[c][at + i] = gain[i] * in[c][at + i];
    }
    // In silence an envelope would stay among the subnormal numbers for ever, which some processors take a hundred times longer
    // to add and multiply.
    for (size_t c = 0; c < channels; ++c)
        envelope[c] = held[c] < quiet ? 0.0F : held[c];
}

} // namespace
} // namespace quorel::kernels::QUOREL_VARIANT::dynamics
