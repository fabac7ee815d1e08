// SPDX-License-Identifier: MIT
// The bank runs a cascade of two sections on each of the reverberator's lines, side by side in single precision.
//
// A recursion over samples is serial, but twelve of them are twelve lanes. For taps whose poles lie well inside the unit circle
// single precision does, and the bank then costs about half of twelve runs of one cascade. Taps, sections and the rules of
// silence and not-a-number are those of core/kernels/filters.h.
#pragma once

#include "core/kernels/signature.h"
#include "core/kernels/states.h"

namespace quorel {

// Sets the twelve taps of channel c and clears its history. An a0 or b0 of zero is ippStsDivByZeroErr, and poles that ask for
// double precision are ippStsCoeffErr; nothing is set then.
Status cascadeBankSet(kernels::BankState* bank, std::size_t c, const float* taps) noexcept;

// A row for each line; `out` may be `in`. The argument rules are those of core/kernels.h, for the rows too.
Status cascadeBankRun(kernels::BankState* bank, const float* const* in, float* const* out, std::int32_t len) noexcept;

} // namespace quorel
