// SPDX-License-Identifier: MIT
// Power-of-two transforms and the product of their packed spectra.
//
//   forward  X[k] = sum over n of x[n] * exp(-2*pi*i*n*k/N)        inverse: the same sum with +2*pi*i
//
// Pack form holds the spectrum of N real samples in N floats, for even N:
//   element 0 is the real part of bin 0; elements 2k-1 and 2k are the real and imaginary part of bin k, 0 < k < N/2;
//   element N-1 is the real part of bin N/2. The imaginary parts of bins 0 and N/2 are zero and not stored.
//
// Protocol: ask the sizes, allocate, initialise. A spec is read-only after that and holds no pointer into the
// initialisation storage, which may go. The work storage is scratch of one run at a time. A byte count may be 0, and its
// storage then null; else a null storage is an error like a null array.
//
// Argument rules are those of core/kernels.h: null first (ippStsNullPtrErr), then the order (ippStsFftOrderErr), then the
// flag (ippStsFftFlagErr). `hint` has no effect. `src` and `dst` must not overlap.
#pragma once

#include "core/kernels/signature.h"

namespace quorel {

// dst = a * b of two Pack spectra: elements 0 and, for even `len`, len-1 multiply as reals, the pairs between as complex
// values. `dst` may be `a` or `b`.
Status ippsMulPack_32f(const float* a, const float* b, float* dst, std::int32_t len) noexcept;

// What is divided, by the length N or by its square root: 1 forward by N, 2 inverse by N, 4 both by the root, 8 neither.
constexpr std::int32_t fftDivideForward = 1;
constexpr std::int32_t fftDivideInverse = 2;
constexpr std::int32_t fftDivideBothByRoot = 4;
constexpr std::int32_t fftDivideNeither = 8;

struct FFTSpec_R_32f;  // a real transform: opaque, inside its storage
struct FFTSpec_C_32fc; // a complex transform: the same

// `order` is the base-2 logarithm of the length: 0 to 29 for a real transform, 0 to 28 for a complex one. Sizes in bytes.
Status ippsFFTGetSize_R_32f(std::int32_t order, std::int32_t flag, std::int32_t hint, std::int32_t* specSize,
                            std::int32_t* initSize, std::int32_t* workSize) noexcept;
Status ippsFFTGetSize_C_32fc(std::int32_t order, std::int32_t flag, std::int32_t hint, std::int32_t* specSize,
                             std::int32_t* initSize, std::int32_t* workSize) noexcept;

// Builds the tables in `specStorage` and stores their address, inside it, in `*spec`.
Status ippsFFTInit_R_32f(FFTSpec_R_32f** spec, std::int32_t order, std::int32_t flag, std::int32_t hint, void* specStorage,
                         void* initStorage) noexcept;
Status ippsFFTInit_C_32fc(FFTSpec_C_32fc** spec, std::int32_t order, std::int32_t flag, std::int32_t hint, void* specStorage,
                          void* initStorage) noexcept;

Status ippsFFTFwd_RToPack_32f(const float* src, float* dst, const FFTSpec_R_32f* spec, void* work) noexcept;
Status ippsFFTInv_PackToR_32f(const float* src, float* dst, const FFTSpec_R_32f* spec, void* work) noexcept;
Status ippsFFTInv_CToC_32fc(const Complex* src, Complex* dst, const FFTSpec_C_32fc* spec, void* work) noexcept;

} // namespace quorel
