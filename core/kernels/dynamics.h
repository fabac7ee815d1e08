// SPDX-License-Identifier: MIT
// compress turns rows of samples down by one gain that follows the loudest of them; stages/compressor.h tells the formula.
#pragma once

#include "core/kernels/signature.h"
#include "core/kernels/states.h"

namespace quorel {

// Rows of `in` into rows of `out`, which may be the same ones. `envelope` holds the level of each of the up to
// Dynamics::maxChannels rows, and changes. The argument rules are those of core/kernels.h, for the rows too.
// Every variant gives the bits of single operations in single precision: nothing here is contracted.
Status compress(const Dynamics* dynamics, float* envelope, const float* const* in, float* const* out, std::size_t channels,
                std::int32_t len) noexcept;

// Two compressors of two rows each beside each other, in little more than the time of one: rows 0 and 1 are those of `first`,
// rows 2 and 3 those of `second`. The bits are those of each by itself.
Status compressTwo(const Dynamics* first, const Dynamics* second, float* envelope, const float* const* in, float* const* out,
                   std::int32_t len) noexcept;

} // namespace quorel
