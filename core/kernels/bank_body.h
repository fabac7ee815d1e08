// SPDX-License-Identifier: MIT
// A cascade of two sections on each of the reverberator's lines, side by side.
//
// Here the lanes are channels, and every step is the plain recursion in the transposed direct form II (A. V. Oppenheim and
// R. W. Schafer, "Discrete-Time Signal Processing", the chapter on structures):
//
//   y = b0*x + s1;  s1 = b1*x - a1*y + s2;  s2 = b2*x - a2*y
//
// Four samples of all channels are loaded at a time and transposed from rows of samples into rows of channels, and back.
// Vectors of eight also where sixteen are to be had: with sixteen the transposes would cost more than the recursion saves.
#pragma once

#include "core/kernels/silence_body.h"
#include "core/kernels/simd.h"
#include "core/kernels/states.h"

namespace quorel::kernels::QUOREL_VARIANT::banks {
namespace {

constexpr size_t floats = lanes < 8 ? lanes : 8; // in a vector
constexpr size_t quads = floats / 4;
using V = Vec<float, floats>;

// Both sections of as many channels as a vector has lanes.
struct BankFilter {
    struct Section {
        V b0, b1, b2, a1, a2, s1, s2;

        QUOREL_INLINE V step(V x)
        {
            const V y = b0 * x + s1;
            const V back1 = a1 * y, back2 = a2 * y; // first, so that these are contracted: they are the ones that wait
            s1 = (b1 * x + s2) - back1;
            s2 = b2 * x - back2;
            return y;
        }
    };

    Section first, second;
};

inline BankFilter::Section loadSection(const BankSection& section, size_t lane)
{
    return {load<V>(section.b0 + lane), load<V>(section.b1 + lane), load<V>(section.b2 + lane), load<V>(section.a1 + lane),
            load<V>(section.a2 + lane), load<V>(section.s1 + lane), load<V>(section.s2 + lane)};
}
// Lanes that have become silence are cleared.
inline V settled(V v)
{
    return select(v < quiet && v > -quiet, V{}, v);
}
inline void storeState(const BankFilter::Section& section, BankSection& to, size_t lane)
{
    store(settled(section.s1), to.s1 + lane);
    store(settled(section.s2), to.s2 + lane);
}

// Runs n samples of every channel from `at` on.
void runBank(BankState& bank, const float* const* in, float* const* out, size_t at, size_t n)
{
    constexpr size_t channels = lineCount, parts = (channels + floats - 1) / floats;
    BankFilter filter[parts];
    for (size_t p = 0; p < parts; ++p)
        filter[p] = {loadSection(bank.section[0], p * floats), loadSection(bank.section[1], p * floats)};

    // Four samples of every channel, the first `count` of which are run.
    const auto four = [&](const float* const* x, float* const* y, size_t offset, size_t count) __attribute__((always_inline))
    {
        V v[parts][4];
        for (size_t p = 0; p < parts; ++p) {
            for (size_t i = 0; i < 4; ++i) {
                Quad row[quads] = {}; // four samples of a channel each; a vector joins as many as it has quads
                for (size_t q = 0; q < quads; ++q)
                    if (const size_t c = p * floats + 4 * q + i; c < channels)
                        row[q] = load<Quad>(x[c] + offset);
                v[p][i] = join<V>(row[0], row[quads - 1]);
            }
            transpose4x4(v[p]);
        }
        for (size_t i = 0; i < count; ++i)
            for (size_t p = 0; p < parts; ++p)
                v[p][i] = filter[p].second.step(filter[p].first.step(v[p][i]));
        for (size_t p = 0; p < parts; ++p) {
            transpose4x4(v[p]);
            for (size_t i = 0; i < 4; ++i) {
                for (size_t q = 0; q < quads; ++q)
                    if (const size_t c = p * floats + 4 * q + i; c < channels)
                        store(quadOf(v[p][i], q), y[c] + offset);
            }
        }
    };
    const size_t end = at + n;
    for (; at + 4 <= end; at += 4)
        four(in, out, at, 4);
    if (const size_t rest = end - at; rest > 0) {
        float copy[channels][4] = {};
        float* rows[channels];
        for (size_t c = 0; c < channels; ++c) {
            rows[c] = copy[c];
            for (size_t i = 0; i < rest; ++i)
                copy[c][i] = in[c][at + i];
        }
        four(rows, rows, 0, rest);
        for (size_t c = 0; c < channels; ++c)
            for (size_t i = 0; i < rest; ++i)
                out[c][at + i] = copy[c][i];
    }
    for (size_t p = 0; p < parts; ++p) {
        storeState(filter[p].first, bank.section[0], p * floats);
        storeState(filter[p].second, bank.section[1], p * floats);
    }
}

// Whether all that the bank remembers and all of the samples are silence. What it remembers is looked at first: as long as
// that sounds, the samples need not be.
inline bool allQuiet(const BankState& bank, const float* const* in, size_t at, size_t n)
{
    bool all = true;
    for (const BankSection& section : bank.section)
        all = all && isQuiet(section.s1, BankSection::lanes) && isQuiet(section.s2, BankSection::lanes);
    for (size_t c = 0; c < lineCount && all; ++c)
        all = isQuiet(in[c] + at, n);
    return all;
}

void cascadeBank(BankState* state, const float* const* in, float* const* out, size_t n)
{
    BankState& bank = *state;
    constexpr size_t stretch = 128; // samples between two looks for silence
    for (size_t at = 0, count = 0; at < n; at += count) {
        count = n - at < stretch ? n - at : stretch;
        if (!allQuiet(bank, in, at, count)) {
            runBank(bank, in, out, at, count);
            continue;
        }
        for (size_t c = 0; c < lineCount; ++c) // what the bank remembers has settled to zeros already
            __builtin_memset(out[c] + at, 0, count * sizeof(float));
    }
}

} // namespace
} // namespace quorel::kernels::QUOREL_VARIANT::banks
