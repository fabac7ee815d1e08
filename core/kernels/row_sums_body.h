// SPDX-License-Identifier: MIT
// The sums over rows. Each sum stays in registers while the rows pass by.
#pragma once

#include "core/kernels/simd.h"

namespace quorel::kernels::QUOREL_VARIANT::row_sums {
namespace {

using V = Vec<float, lanes>;

// The sums from sample `i` on, by as many neighbouring vectors of T, which may be float, as far as they go; and where they end.
// One chain of additions alone would wait for each.
template <class T, size_t vectors>
inline size_t sumVectors(const float* const* rows, const float* gains, size_t count, float* dst, size_t i, size_t n)
{
    constexpr size_t width = lanesOf<T, float>;
    for (; i + vectors * width <= n; i += vectors * width) {
        T sum[vectors];
        for (size_t v = 0; v < vectors; ++v)
            sum[v] = load<T>(rows[0] + i + v * width) * gains[0];
        for (size_t r = 1; r < count; ++r)
            for (size_t v = 0; v < vectors; ++v)
                sum[v] += load<T>(rows[r] + i + v * width) * gains[r];
        for (size_t v = 0; v < vectors; ++v)
            store(sum[v], dst + i + v * width);
    }
    return i;
}

// Adds the products of `rows` rows to both sums, or starts the sums with them. Behind the first float, which is real as the last
// one is, the floats are complex numbers side by side. With re and im the parts of x, each of them twice:
//   a * x = re * a + im * (-1, 1) * (a with its parts exchanged)
template <int rows, bool start>
inline void addProductsPack(const float* const* x, const float* const* a, const float* const* b, float* first, float* second,
                            size_t n)
{
    const auto addReal = [&](const float* const* h, float* sum, size_t i) {
        float real = start ? 0.0F : sum[i];
        for (int r = 0; r < rows; ++r)
            real += x[r][i] * h[r][i];
        sum[i] = real;
    };
    const auto addPair = [&](const float* const* h, float* sum, size_t i) {
        float re = start ? 0.0F : sum[i], im = start ? 0.0F : sum[i + 1];
        for (int r = 0; r < rows; ++r) {
            re += x[r][i] * h[r][i] - x[r][i + 1] * h[r][i + 1];
            im += x[r][i] * h[r][i + 1] + x[r][i + 1] * h[r][i];
        }
        sum[i] = re;
        sum[i + 1] = im;
    };
    const V signs = repeat<V>(Quad{-1, 1, -1, 1});
    addReal(a, first, 0);
    addReal(b, second, 0);
    size_t i = 1;
    for (; i + lanes < n; i += lanes) {
        V sumA = start ? V{} : load<V>(first + i), sumB = start ? V{} : load<V>(second + i);
        for (int r = 0; r < rows; ++r) {
            const V factor = load<V>(x[r] + i), ofA = load<V>(a[r] + i), ofB = load<V>(b[r] + i);
            const V re = shuffleInQuads<0, 0, 2, 2>(factor, factor), im = shuffleInQuads<1, 1, 3, 3>(factor, factor) * signs;
            sumA += re * ofA;
            sumB += re * ofB;
            sumA += im * shuffleInQuads<1, 0, 3, 2>(ofA, ofA);
            sumB += im * shuffleInQuads<1, 0, 3, 2>(ofB, ofB);
        }
        store(sumA, first + i);
        store(sumB, second + i);
    }
    for (; i + 2 < n; i += 2) {
        addPair(a, first, i);
        addPair(b, second, i);
    }
    addReal(a, first, n - 1);
    addReal(b, second, n - 1);
}

void sumRows(const float* const* rows, const float* gains, size_t count, float* dst, size_t n)
{
    size_t i = sumVectors<V, 4>(rows, gains, count, dst, 0, n);
    i = sumVectors<V, 1>(rows, gains, count, dst, i, n);
    sumVectors<float, 1>(rows, gains, count, dst, i, n);
}

// Two rows at a time: rows of spectra stand pages apart, all at one place of the nearest cache, and more of them would drive
// each other out of it.
void sumProductsPack(const float* const* x, const float* const* a, const float* const* b, size_t count, float* first,
                     float* second, size_t n)
{
    if (count % 2 != 0)
        addProductsPack<1, true>(x, a, b, first, second, n);
    else
        addProductsPack<2, true>(x, a, b, first, second, n);
    for (size_t r = 2 - count % 2; r < count; r += 2)
        addProductsPack<2, false>(x + r, a + r, b + r, first, second, n);
}

} // namespace
} // namespace quorel::kernels::QUOREL_VARIANT::row_sums
