// SPDX-License-Identifier: MIT
// The sums of pairs' sums and differences.
#pragma once

#include "core/kernels/simd.h"
#include "core/kernels/states.h"

namespace quorel::kernels::QUOREL_VARIANT::mixing {
namespace {

constexpr size_t floats = lanes < 8 ? lanes : 8; // in a vector
using V = Vec<float, floats>;

// Stretches so short that their terms stay in the nearest cache while all rows are summed from them. A product with a sign is
// exact, so it makes no difference whether it is contracted.
void mixPairs(const float* const* in, float* const* out, const PairMix* mix, size_t rows, size_t n)
{
    constexpr size_t pairs = PairMix::pairs, stretch = 64; // samples
    float term[2 * pairs][stretch];
    for (size_t at = 0, m = 0; at < n; at += m) {
        m = n - at < stretch ? n - at : stretch;
        const size_t whole = m - m % floats;
        for (size_t p = 0; p < pairs; ++p) {
            const float* const even = in[2 * p] + at;
            const float* const odd = in[2 * p + 1] + at;
            float* const sum = term[PairMix::sum + p];
            float* const difference = term[PairMix::difference + p];
            for (size_t i = 0; i < whole; i += floats) {
                store(load<V>(even + i) + load<V>(odd + i), sum + i);
                store(load<V>(even + i) - load<V>(odd + i), difference + i);
            }
            for (size_t i = whole; i < m; ++i) {
                sum[i] = even[i] + odd[i];
                difference[i] = even[i] - odd[i];
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

} // namespace
} // namespace quorel::kernels::QUOREL_VARIANT::mixing
