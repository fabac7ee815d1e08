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

} // namespace
} // namespace quorel::kernels::QUOREL_VARIANT::mixing
