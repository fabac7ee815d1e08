// SPDX-License-Identifier: MIT
// Sparse recursive filters in the direct form II: one line of history, w, from which both groups of taps are taken (states.h).
//
// The allpass among them is Schroeder's: M. R. Schroeder, "Natural sounding artificial reverberation", J. Audio Eng. Soc. 10,
// 1962.
#pragma once

#include "core/kernels/silence_body.h"
#include "core/kernels/simd.h"
#include "core/kernels/states.h"

namespace quorel::kernels::QUOREL_VARIANT::sparse_filters {
namespace {

constexpr size_t floats = lanes < 8 ? lanes : 8; // in a vector
using V = Vec<float, floats>;

// Clears a history that has become silence.
void settle(float* w, size_t n)
{
    if (isQuiet(w, n))
        __builtin_memset(w, 0, n * sizeof(float));
}

// A filter with direct taps at 0 and d and one recursive tap at d, as an allpass has them:
//   w[n] = x[n] + recursive * w[n-d],  y[n] = direct * w[n] + delayed * w[n-d]
// The d samples of history stay in `count` vectors, and a round replaces them by the next d. The last vector reaches beyond d:
// what it computes there, the next round's first vector overwrites. Rounds that would reach beyond the arrays go through the line.
// `src` and `dst` are two arrays.
template <size_t count>
void ring(const Sparse& filter, const float* src, float* dst, size_t n)
{
    const size_t d = filter.longest;
    const float direct = filter.taps[0], delayed = filter.taps[1], recursive = filter.taps[2];
    V w[count];
    for (size_t r = 0; r < count; ++r)
        w[r] = load<V>(filter.line + r * floats);
    for (; n >= count * floats; src += d, dst += d, n -= d)
        for (size_t r = 0; r < count; ++r) {
            const V past = w[r];
            w[r] = load<V>(src + r * floats) + recursive * past;
            store(direct * w[r] + delayed * past, dst + r * floats);
        }
    for (size_t r = 0; r < count; ++r)
        store(w[r], filter.line + r * floats);

    const float* past = filter.line;
    for (size_t m = 0; n > 0; src += m, dst += m, n -= m, past += m) {
        m = n < d ? n : d;
        float* const now = filter.line + (past - filter.line) + d;
        for (size_t i = 0; i < m; ++i) {
            const float held = src[i] + recursive * past[i];
            dst[i] = direct * held + delayed * past[i];
            now[i] = held;
        }
    }
    __builtin_memmove(filter.line, past, d * sizeof(float));
    settle(filter.line, d);
}

// Any filter, a chunk at a time through a line of its own.
void sparseLine(const Sparse& filter, const float* src, float* dst, size_t n)
{
    const float* const direct = filter.taps;
    const float* const recursive = filter.taps + filter.direct;
    const int32_t* const directAt = filter.positions;
    const int32_t* const recursiveAt = filter.positions + filter.direct;
    const auto nearest = static_cast<size_t>(recursiveAt[0]);

    for (size_t count = 0; n > 0; src += count, dst += count, n -= count) {
        count = n < filter.chunk ? n : filter.chunk;
        float* const w = filter.line + filter.longest;
        // Runs of as many samples as the nearest recursive tap looks back depend on earlier runs alone.
        for (size_t at = 0, run = 0; at < count; at += run) {
            run = count - at < nearest ? count - at : nearest;
            float* const now = w + at;
            for (size_t k = 0; k < filter.recursive; ++k) {
                const float* const back = now - recursiveAt[k];
                const float* const sum = k == 0 ? src + at : now;
                for (size_t i = 0; i < run; ++i)
                    now[i] = sum[i] + recursive[k] * back[i];
            }
        }
        for (size_t k = 0; k < filter.direct; ++k) {
            const float* const back = w - directAt[k];
            if (k == 0)
                for (size_t i = 0; i < count; ++i)
                    dst[i] = direct[k] * back[i];
            else
                for (size_t i = 0; i < count; ++i)
                    dst[i] += direct[k] * back[i];
        }
        __builtin_memmove(filter.line, filter.line + count, filter.longest * sizeof(float));
        settle(filter.line, filter.longest);
    }
}

void sparse(const Sparse* state, const float* src, float* dst, size_t n)
{
    const Sparse& filter = *state;
    const bool allpass =
        filter.direct == 2 && filter.recursive == 1 && filter.positions[0] == 0 && filter.positions[1] == filter.positions[2];
    constexpr decltype(&sparseLine) ways[] = {sparseLine, ring<1>, ring<2>, ring<3>, ring<4>,
                                              ring<5>,    ring<6>, ring<7>, ring<8>, ring<9>};
    const size_t vectors = allpass && src != dst ? (filter.longest + floats - 1) / floats : 0;
    ways[vectors < sizeof ways / sizeof *ways ? vectors : 0](filter, src, dst, n);
}

} // namespace
} // namespace quorel::kernels::QUOREL_VARIANT::sparse_filters
