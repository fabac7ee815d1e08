// SPDX-License-Identifier: MIT
// Recursive filters: cascades of second-order sections, and the sparse filter in whose form long allpasses are built.
//
// A section of a cascade, with taps in the order b0, b1, b2, a0, a1, a2:
//   a0*y[n] = b0*x[n] + b1*x[n-1] + b2*x[n-2] - a1*y[n-1] - a2*y[n-2]
// The taps need not be normalised; no a0 and no b0 may be zero. Sections run in series. Taps come as floats or as doubles;
// either way the filter works in double precision and rounds its output once. A section that gives what it gets, its numerator
// equal to its denominator, costs nothing.
//
// Protocol: ask the size, allocate, initialise, run. A state lives in the caller's storage, at the address that its
// initialisation gives; nothing else owns anything. It carries the history from run to run, so that a stream may be cut into
// blocks of any length. The argument rules are those of core/kernels.h, null before everything else; `src` and `dst` of a
// run may be one array.
//
// What lies below 1e-30 is silence: where a history has come down to it, it is cleared, and a cascade that neither remembers
// nor gets more gives zeros, so that a decaying tail never crawls through subnormal numbers. Not-a-number and infinities go
// their way as in the formulas: what came before them is untouched, and where they enter a recursion they stay until the next
// initialisation.
#pragma once

#include "core/kernels/signature.h"

namespace quorel {

struct Cascade_32f;    // a cascade with float taps: opaque, inside its storage
struct Cascade64f_32f; // a cascade with double taps: the same
struct Sparse_32f;     // a sparse filter: the same

// The bytes for `numBq` sections. Fewer than one is ippStsIIROrderErr, and so are more than a 32-bit size can count.
Status ippsIIRGetStateSize_BiQuad_32f(std::int32_t numBq, std::int32_t* size) noexcept;
Status ippsIIRGetStateSize64f_BiQuad_32f(std::int32_t numBq, std::int32_t* size) noexcept;

// Builds a cascade from 6 * numBq taps in `buffer` and stores its address in `*state`. An a0 or b0 of zero in any section is
// ippStsDivByZeroErr. The history starts as zeros; `delayLine` must be null (otherwise ippStsNotSupportedModeErr).
Status ippsIIRInit_BiQuad_32f(Cascade_32f** state, const float* taps, std::int32_t numBq, const float* delayLine,
                              void* buffer) noexcept;
Status ippsIIRInit64f_BiQuad_32f(Cascade64f_32f** state, const double* taps, std::int32_t numBq, const double* delayLine,
                                 void* buffer) noexcept;

Status ippsIIR_32f(const float* src, float* dst, std::int32_t len, Cascade_32f* state) noexcept;
Status ippsIIR64f_32f(const float* src, float* dst, std::int32_t len, Cascade64f_32f* state) noexcept;

// A sparse filter has `nzLen1` direct and `nzLen2` recursive taps, each with its position, a delay in samples:
//   y[n] = sum over k < nzLen1 of taps[k] * x[n - positions[k]]
//        + sum over nzLen1 <= k < nzLen1 + nzLen2 of taps[k] * y[n - positions[k]]

// The bytes for a filter whose largest positions are `order1` and `order2`. nzLen1 < 1 or nzLen2 < 0 is ippStsIIROrderErr; a
// negative order, or one that asks for more than a 32-bit size can count, is ippStsSparseErr.
Status ippsIIRSparseGetStateSize_32f(std::int32_t nzLen1, std::int32_t nzLen2, std::int32_t order1, std::int32_t order2,
                                     std::int32_t* size) noexcept;

// Builds a filter in `buffer`, history zero. Either count below 1 is ippStsIIROrderErr. The positions of each group must rise
// strictly, the direct ones from 0 or more, the recursive ones from 1 or more: else ippStsSparseErr.
Status ippsIIRSparseInit_32f(Sparse_32f** state, const float* taps, const std::int32_t* positions, std::int32_t nzLen1,
                             std::int32_t nzLen2, void* buffer) noexcept;

Status ippsIIRSparse_32f(const float* src, float* dst, std::int32_t len, Sparse_32f* state) noexcept;

} // namespace quorel
