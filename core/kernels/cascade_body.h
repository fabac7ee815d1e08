// SPDX-License-Identifier: MIT
// Cascades of second-order sections, a block of samples at a time: the block-recursive form of a filter (C. S. Burrus, "Block
// realization of digital filters", IEEE Trans. Audio Electroacoust. 20, 1972).
//
// A recursion is serial: each sample needs the one before it. But the filter is linear, so the next eight outputs are a sum of
// what is known when their block begins,
//
//   y[i] = sum over j <= i of response[i-j] * x[j]     the response to the block's own inputs: a triangular matrix
//        + sum over k of fromPastX[k][i] * x[-k]       what the inputs before the block still contribute, 1 <= k <= order
//        + sum over k of fromPastY[k][i] * y[-k]       and the outputs before it
//
// and every term is a column times one sample, for all i side by side:
//
//   y[0..7]  +=  column[0..7] * x[j]
//
// The column of x[j] is the impulse response, moved down by j with zeros above it, so that one row of seven zeros and eight
// samples of response holds all eight of these columns. That takes up to twice the products of the plain recursion, but only
// those with past outputs have to wait for the block before: once in eight samples for a shuffle, a few products and a sum.
//
// The past is that of the direct form, samples of the signals themselves. So a run may end at any sample, and a block that is
// cut short only leaves its last lanes unused. All of this is in double precision: the sections' taps are multiplied out to
// filters of higher order, whose roundings grow by the closeness of their poles (core/kernels/filters.cpp keeps poles that
// crowd together apart). V of later samples enter through products with zero, which is right as long as those samples are
// finite: a chunk that brings an infinity or not-a-number goes through the plain recursion instead, as everything does where
// groups would cost too much precision.
#pragma once

#include "core/kernels/silence_body.h"
#include "core/kernels/simd.h"
#include "core/kernels/states.h"

#include <stdint.h>

namespace quorel::kernels::QUOREL_VARIANT::cascades {
namespace {

// Vectors of 256 bits also where 512 are to be had: half of the triangle's zeros are then left out.
constexpr size_t doubles = lanes < 8 ? 2 : 4; // in a vector
constexpr size_t parts = 2;
constexpr size_t rows = parts * doubles; // of a column: the samples of a block
using V = Vec<double, doubles>;

// Runs a group over whole blocks, each with `rows` inputs from x on and as many outputs from y on. Before both stand eight
// samples of their past. The loops over parts, rows and the order have constant bounds: they unroll, and the columns stay in
// registers as far as these go.
template <size_t order>
void runBlocks(const CascadeGroup& group, const double* x, double* y, size_t blocks)
{
    V response[rows][parts], pastX[order][parts], pastY[order][parts], last[parts];
    for (size_t p = 0; p < parts; ++p) {
        for (size_t j = 0; j < rows; ++j)
            response[j][p] = load<V>(group.response + CascadeGroup::block - 1 - j + p * doubles);
        for (size_t k = 0; k < order; ++k) {
            pastX[k][p] = load<V>(group.fromPastX[k] + p * doubles);
            pastY[k][p] = load<V>(group.fromPastY[k] + p * doubles);
        }
        last[p] = load<V>(y - rows + p * doubles);
    }
    for (; blocks > 0; --blocks, x += rows, y += rows) {
        V even[parts], odd[parts]; // two sums each, so that the additions overlap
        for (size_t p = 0; p < parts; ++p) {
            even[p] = response[0][p] * x[0];
            for (size_t j = 1; j < rows; ++j)
                if (j < (p + 1) * doubles) // what stands above the diagonal is zero
                    even[p] += response[j][p] * x[j];
            odd[p] = pastX[0][p] * *(x - 1);
            for (size_t k = 1; k < order; ++k)
                odd[p] += pastX[k][p] * *(x - 1 - k);
        }
        for (size_t k = 0; k < order; ++k) { // x[-1-k] and y[-1-k]: the newest sample first
            constexpr size_t newest = rows - 1;
            const double past = k < rows ? last[(newest - k) / doubles % parts][(newest - k) % doubles] : *(y - 1 - k);
            for (size_t p = 0; p < parts; ++p)
                (k % 2 == 0 ? even[p] : odd[p]) += pastY[k][p] * past;
        }
        for (size_t p = 0; p < parts; ++p) {
            last[p] = even[p] + odd[p];
            store(last[p], y + p * doubles);
        }
    }
}

// The plain recursion, sample by sample.
void runPlain(const CascadeGroup& group, const double* x, double* y, size_t n)
{
    for (size_t i = 0; i < n; ++i, ++x, ++y) {
        double sum = group.b[0] * x[0];
        for (int k = 1; k <= group.order; ++k)
            sum += group.b[k] * x[-k] - group.a[k] * y[-k];
        y[0] = sum;
    }
}

void cascade(const Cascade* state, const float* src, float* dst, size_t n)
{
    const Cascade& filter = *state;
    constexpr decltype(&runBlocks<2>) ofOrder[] = {runBlocks<2>, runBlocks<4>, runBlocks<6>, runBlocks<8>};
    constexpr size_t past = CascadeGroup::block;
    constexpr size_t chunk = 512; // samples, a multiple of the rows
    // From x to y: a page and a half of doubles, so that no store to y looks to the processor like one to what it loads from x.
    constexpr size_t apart = 768;
    static_assert(apart >= past + chunk);
    double room[2 * apart + 8];
    double* const aligned = room + -reinterpret_cast<uintptr_t>(room) % 64 / sizeof(double); // rows within cache lines

    for (size_t count = 0; n > 0; src += count, dst += count, n -= count) {
        count = n < chunk ? n : chunk;
        double* x = aligned + past;
        double* y = x + apart;
        const int peak = peakBits(src, count);
        for (size_t i = 0; i < count; ++i)
            x[i] = static_cast<double>(src[i]);
        double* const memory = filter.past[0];
        const size_t remembered = (filter.groups + 1) * past;
        if (filter.groups > 0 && peak < magnitudeBits(quiet) && isQuiet(memory, remembered)) {
            __builtin_memset(memory, 0, remembered * sizeof(double));
            __builtin_memset(dst, 0, count * sizeof(float));
            continue;
        }
        for (size_t i = count; i % rows != 0; ++i)
            x[i] = 0.0; // fills the last block: its outputs up to `count` do not depend on this
        const bool plain = filter.plain || peak >= magnitudeBits(__builtin_inff());
        for (size_t g = 0; g < filter.groups; ++g) {
            __builtin_memcpy(x - past, filter.past[g], sizeof filter.past[g]);
            __builtin_memcpy(y - past, filter.past[g + 1], sizeof filter.past[g + 1]);
            if (plain)
                runPlain(filter.group[g], x, y, count);
            else
                ofOrder[filter.group[g].order / 2 - 1](filter.group[g], x, y, (count + rows - 1) / rows);
            __builtin_memcpy(filter.past[g], x + count - past, sizeof filter.past[g]);
            double* const in = x;
            x = y;
            y = in;
        }
        __builtin_memcpy(filter.past[filter.groups], x + count - past, sizeof filter.past[filter.groups]);
        for (size_t i = 0; i < count; ++i)
            dst[i] = static_cast<float>(x[i]);
    }
}

} // namespace
} // namespace quorel::kernels::QUOREL_VARIANT::cascades
