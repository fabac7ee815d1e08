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

} // namespace quorel
