// SPDX-License-Identifier: MIT
// The sums of pairs' sums and differences.
#pragma once

#include "core/kernels/simd.h"
#include "core/kernels/states.h"

namespace quorel::kernels::QUOREL_VARIANT::mixing {
namespace {

constexpr size_t floats = lanes < 8 ? lanes : 8; // in a vector
using V = Vec<float, floats>;

// Stretches so short that their terms stay in the nearest cache while all rows are summed from them: by vectors, and by floats
// what is left. A product with a sign is exact, so it makes no difference whether it is contracted.
void mixPairs(const float* const* in, const float* const* added, float gain, float* const* out, const PairMix* mix, size_t rows,
              size_t n)
{
    constexpr size_t pairs = PairMix::pairs, stretch = 64; // samples
    float term[2 * pairs][stretch];
    for (size_t at = 0, m = 0; at < n; at += m) {
        m = n - at < stretch ? n - at : stretch;
        for (size_t p = 0; p < pairs; ++p) {
            const float* const even = in[2 * p] + at;
            const float* const odd = in[2 * p + 1] + at;
            const float* const toEven = added[2 * p] != nullptr ? added[2 * p] + at : nullptr;
            const float* const toOdd = added[2 * p + 1] != nullptr ? added[2 * p + 1] + at : nullptr;
            float* const sum = term[PairMix::sum + p];
            float* const difference = term[PairMix::difference + p];
            // Each input is rounded before it is added to the other one, so that a pair's two terms are of the same two inputs.
            const auto terms = [=](auto kind, size_t i) __attribute__((always_inline))
            {
                using T = decltype(kind);
                for (; i + lanesOf<T, float> <= m; i += lanesOf<T, float>) {
                    T a = load<T>(even + i), b = load<T>(odd + i);
                    if (toEven != nullptr)
                        a += load<T>(toEven + i);
                    if (toOdd != nullptr)
                        b += load<T>(toOdd + i);
                    a = inRegister(a * gain);
                    b = inRegister(b * gain);
                    store(a + b, sum + i);
                    store(a - b, difference + i);
                }
                return i;
            };
            terms(0.0F, terms(V{}, 0));
        }
        for (size_t r = 0; r < rows; ++r) {
            float* const y = out[r] + at;
            const float* from[pairs];
            float sign[pairs];
            for (size_t p = 0; p < pairs; ++p) {
                from[p] = term[mix[r].term[p]];
                sign[p] = mix[r].sign[p];
            }
            const auto total = [&](auto kind, size_t i) __attribute__((always_inline))
            {
                using T = decltype(kind);
                for (; i + lanesOf<T, float> <= m; i += lanesOf<T, float>) {
                    T sum = load<T>(from[0] + i);
                    for (size_t p = 1; p < pairs; ++p)
                        sum += sign[p] * load<T>(from[p] + i);
                    store(sum, y + i);
                }
                return i;
            };
            total(0.0F, total(V{}, 0));
        }
    }
}

} // namespace
} // namespace quorel::kernels::QUOREL_VARIANT::mixing
