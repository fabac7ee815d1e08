// SPDX-License-Identifier: MIT
// Sums over several rows in one pass, where a kernel for each row would read and write the sum every time.
//
// The argument rules are those of core/kernels.h; lists of rows hold `count` pointers, which are not looked at. `count` is at
// least 1. The terms are added in the order of the rows, so that the results are those of one kernel after the other.
#pragma once

#include "core/kernels/signature.h"

namespace quorel {

// dst[i] = sum over r of rows[r][i] * gains[r]
Status sumRows(const float* const* rows, const float* gains, std::size_t count, float* dst, std::int32_t len) noexcept;

// Two sums of products of spectra in Pack form (core/kernels/transforms.h), of an even number of floats:
//   first = sum over r of a[r] * x[r],  second = sum over r of b[r] * x[r]
Status sumProductsPack(const float* const* x, const float* const* a, const float* const* b, std::size_t count, float* first,
                       float* second, std::int32_t len) noexcept;

} // namespace quorel
