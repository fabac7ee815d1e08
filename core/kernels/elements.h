// SPDX-License-Identifier: MIT
// The element kernels: arithmetic, movement, conversion, clamps and a sum, over rows of floats or of complex values. The
// argument rules are those of core/kernels.h.
#pragma once

#include "core/kernels/signature.h"

namespace quorel {

// --- Arithmetic ------------------------------------------------------------------------------------------------------

Status ippsAdd_32f(const float* a, const float* b, float* dst, std::int32_t len) noexcept;         // a[i] + b[i]
Status ippsSub_32f(const float* a, const float* b, float* dst, std::int32_t len) noexcept;         // b[i] - a[i]
Status ippsMul_32f(const float* a, const float* b, float* dst, std::int32_t len) noexcept;         // a[i] * b[i]
Status ippsMul_32fc(const Complex* a, const Complex* b, Complex* dst, std::int32_t len) noexcept;  // a[i] * b[i]
Status ippsAdd_32f_I(const float* src, float* srcDst, std::int32_t len) noexcept;                  // srcDst[i] += src[i]
Status ippsSub_32f_I(const float* src, float* srcDst, std::int32_t len) noexcept;                  // srcDst[i] -= src[i]
Status ippsMul_32f_I(const float* src, float* srcDst, std::int32_t len) noexcept;                  // srcDst[i] *= src[i]
Status ippsMul_32fc_I(const Complex* src, Complex* srcDst, std::int32_t len) noexcept;             // srcDst[i] *= src[i]
Status ippsAddProductC_32f(const float* src, float val, float* srcDst, std::int32_t len) noexcept; // srcDst[i] += src[i] * val
Status ippsSubCRev_32f(const float* src, float val, float* dst, std::int32_t len) noexcept;        // val - src[i]

// src[i] * val. A `val` of 1 copies and a `val` of 0 clears, so that no infinity survives a zero gain.
Status ippsMulC_32f(const float* src, float val, float* dst, std::int32_t len) noexcept;
Status ippsMulC_32f_I(float val, float* srcDst, std::int32_t len) noexcept;

// srcDst[i] -= val. A `val` of 0 leaves the array untouched.
Status ippsSubC_32f_I(float val, float* srcDst, std::int32_t len) noexcept;

// srcDst[i] /= src[i]. A zero divisor does not stop the pass; the status is then ippStsDivByZero.
Status ippsDiv_32f_I(const float* src, float* srcDst, std::int32_t len) noexcept;

// srcDst[i] += a[i] * b[i]
Status addProduct(const float* a, const float* b, float* srcDst, std::int32_t len) noexcept;

// --- Movement and conversion -----------------------------------------------------------------------------------------

Status ippsCopy_32f(const float* src, float* dst, std::int32_t len) noexcept;
Status ippsCopy_32fc(const Complex* src, Complex* dst, std::int32_t len) noexcept;
Status ippsMove_32f(const float* src, float* dst, std::int32_t len) noexcept; // the regions may overlap
Status ippsZero_32f(float* dst, std::int32_t len) noexcept;
Status ippsZero_32fc(Complex* dst, std::int32_t len) noexcept;
Status ippsSet_32f(float val, float* dst, std::int32_t len) noexcept;
Status ippsSet_32fc(Complex val, Complex* dst, std::int32_t len) noexcept;
Status ippsFlip_32f(const float* src, float* dst, std::int32_t len) noexcept;          // src[len-1-i]; src == dst is allowed
Status ippsConjFlip_32fc(const Complex* src, Complex* dst, std::int32_t len) noexcept; // conj(src[len-1-i])
Status ippsReal_32fc(const Complex* src, float* dst, std::int32_t len) noexcept;
Status ippsMagnitude_32fc(const Complex* src, float* dst, std::int32_t len) noexcept; // sqrt(re*re + im*im)

// re[i] + j im[i]. One of `re` and `im` may be null: that part is then 0.
Status ippsRealToCplx_32f(const float* re, const float* im, Complex* dst, std::int32_t len) noexcept;

// --- Clamps and reduction --------------------------------------------------------------------------------------------

// src[i] < level ? level : src[i]: not-a-number stays.
Status ippsThreshold_LT_32f(const float* src, float* dst, std::int32_t len, float level) noexcept;
Status ippsThreshold_LT_32f_I(float* srcDst, std::int32_t len, float level) noexcept;

// srcDst[i] > level ? level : srcDst[i]
Status ippsThreshold_GT_32f_I(float* srcDst, std::int32_t len, float level) noexcept;

// The complex sum, accumulated in double precision and rounded once. `hint` has no effect.
Status ippsSum_32fc(const Complex* src, std::int32_t len, Complex* sum, std::int32_t hint) noexcept;

// --- Version ---------------------------------------------------------------------------------------------------------

struct LibraryVersion {
    std::int32_t major;
    std::int32_t minor;
    const char* name;
};

// A constant record; never null.
const LibraryVersion* ippGetLibVersion() noexcept;

} // namespace quorel
