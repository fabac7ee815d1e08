// SPDX-License-Identifier: MIT
// The element kernels' arithmetic, one plain loop each, for the compiler to turn into the variant's instructions.
//
// The pointers are declared free of overlap. Where the two pointers of an in-place call are one array the loops stay right,
// since element i of the result depends on element i of each source alone.
#pragma once

#include "core/kernels/simd.h"

namespace quorel::kernels::QUOREL_VARIANT::elements {
namespace {

void add(const float* __restrict a, const float* __restrict b, float* __restrict dst, size_t n)
{
    for (size_t i = 0; i < n; ++i)
        dst[i] = a[i] + b[i];
}

void sub(const float* __restrict a, const float* __restrict b, float* __restrict dst, size_t n)
{
    for (size_t i = 0; i < n; ++i)
        dst[i] = b[i] - a[i];
}

void mul(const float* __restrict a, const float* __restrict b, float* __restrict dst, size_t n)
{
    for (size_t i = 0; i < n; ++i)
        dst[i] = a[i] * b[i];
}

void mulComplex(const float* __restrict a, const float* __restrict b, float* __restrict dst, size_t n)
{
    for (size_t i = 0; i < n; ++i) {
        const float re = a[2 * i] * b[2 * i] - a[2 * i + 1] * b[2 * i + 1];
        const float im = a[2 * i] * b[2 * i + 1] + a[2 * i + 1] * b[2 * i];
        dst[2 * i] = re;
        dst[2 * i + 1] = im;
    }
}

void addProduct(const float* __restrict a, const float* __restrict b, float* __restrict srcDst, size_t n)
{
    for (size_t i = 0; i < n; ++i)
        srcDst[i] += a[i] * b[i];
}

void addProductC(const float* __restrict src, float val, float* __restrict srcDst, size_t n)
{
    for (size_t i = 0; i < n; ++i)
        srcDst[i] += src[i] * val;
}

void mulC(const float* __restrict src, float val, float* __restrict dst, size_t n)
{
    for (size_t i = 0; i < n; ++i)
        dst[i] = src[i] * val;
}

void subC(float val, float* srcDst, size_t n)
{
    for (size_t i = 0; i < n; ++i)
        srcDst[i] -= val;
}

void subCRev(const float* __restrict src, float val, float* __restrict dst, size_t n)
{
    for (size_t i = 0; i < n; ++i)
        dst[i] = val - src[i];
}

bool div(const float* __restrict src, float* __restrict srcDst, size_t n)
{
    int zeros = 0;
    for (size_t i = 0; i < n; ++i) {
        zeros |= src[i] == 0.0F;
        srcDst[i] /= src[i];
    }
    return zeros != 0;
}

void copy(const float* __restrict src, float* __restrict dst, size_t n)
{
    __builtin_memcpy(dst, src, n * sizeof(float));
}

void move(const float* src, float* dst, size_t n)
{
    __builtin_memmove(dst, src, n * sizeof(float));
}

void zero(float* dst, size_t n)
{
    __builtin_memset(dst, 0, n * sizeof(float));
}

void set(float val, float* dst, size_t n)
{
    for (size_t i = 0; i < n; ++i)
        dst[i] = val;
}

void setComplex(float re, float im, float* dst, size_t n)
{
    for (size_t i = 0; i < n; ++i) {
        dst[2 * i] = re;
        dst[2 * i + 1] = im;
    }
}

// From both ends to the middle, so that `src` and `dst` may be one array.
void flip(const float* src, float* dst, size_t n)
{
    for (size_t i = 0; 2 * i < n; ++i) {
        const float front = src[i];
        dst[i] = src[n - 1 - i];
        dst[n - 1 - i] = front;
    }
}

// Whole pairs move, as one number each, with the sign bit of the imaginary part turned over.
void conjFlip(const float* __restrict src, float* __restrict dst, size_t n)
{
    typedef unsigned long long Pair __attribute__((may_alias, aligned(4)));
    const Pair sign = Pair{1} << 63; // of the second float: the lower bytes come first wherever the kernels run
    const Pair* x = reinterpret_cast<const Pair*>(src);
    Pair* y = reinterpret_cast<Pair*>(dst);
    for (size_t i = 0; i < n; ++i)
        y[i] = x[n - 1 - i] ^ sign;
}

void realToComplex(const float* __restrict re, const float* __restrict im, float* __restrict dst, size_t n)
{
    for (size_t i = 0; i < n; ++i) {
        dst[2 * i] = re != nullptr ? re[i] : 0.0F;
        dst[2 * i + 1] = im != nullptr ? im[i] : 0.0F;
    }
}

void real(const float* __restrict src, float* __restrict dst, size_t n)
{
    for (size_t i = 0; i < n; ++i)
        dst[i] = src[2 * i];
}

void magnitude(const float* __restrict src, float* __restrict dst, size_t n)
{
    for (size_t i = 0; i < n; ++i)
        dst[i] = __builtin_sqrtf(src[2 * i] * src[2 * i] + src[2 * i + 1] * src[2 * i + 1]);
}

void thresholdLess(const float* __restrict src, float* __restrict dst, size_t n, float level)
{
    for (size_t i = 0; i < n; ++i)
        dst[i] = src[i] < level ? level : src[i];
}

void thresholdGreater(float* srcDst, size_t n, float level)
{
    for (size_t i = 0; i < n; ++i)
        srcDst[i] = srcDst[i] > level ? level : srcDst[i];
}

void sumComplex(const float* __restrict src, size_t n, float* __restrict sum)
{
    double part[8] = {}; // four running sums of each part, so that additions overlap
    size_t i = 0;
    for (; i + 4 <= n; i += 4)
        for (size_t k = 0; k < 8; ++k)
            part[k] += static_cast<double>(src[2 * i + k]);
    for (; i < n; ++i) {
        part[0] += static_cast<double>(src[2 * i]);
        part[1] += static_cast<double>(src[2 * i + 1]);
    }
    sum[0] = static_cast<float>((part[0] + part[2]) + (part[4] + part[6]));
    sum[1] = static_cast<float>((part[1] + part[3]) + (part[5] + part[7]));
}

} // namespace
} // namespace quorel::kernels::QUOREL_VARIANT::elements
