// SPDX-License-Identifier: MIT
// What is silence to the filters: samples that lie below `quiet` in magnitude.
#pragma once

#include "core/kernels/simd.h"
#include "core/kernels/states.h"

namespace quorel::kernels::QUOREL_VARIANT {
namespace {

// The bits of a float's magnitude are ordered as the magnitudes are, infinity and then not-a-number above all.
inline int magnitudeBits(float x)
{
    int bits = 0;
    __builtin_memcpy(&bits, &x, sizeof bits);
    return bits & 0x7FFFFFFF;
}

inline int peakBits(const float* x, size_t n)
{
    int peak = 0;
    for (size_t i = 0; i < n; ++i) {
        const int bits = magnitudeBits(x[i]);
        peak = bits > peak ? bits : peak;
    }
    return peak;
}

inline bool isQuiet(const float* x, size_t n)
{
    return peakBits(x, n) < magnitudeBits(quiet);
}

inline bool isQuiet(const double* x, size_t n)
{
    bool all = true;
    for (size_t i = 0; i < n; ++i)
        all &= __builtin_fabs(x[i]) < static_cast<double>(quiet); // false for not-a-number
    return all;
}

} // namespace
} // namespace quorel::kernels::QUOREL_VARIANT
