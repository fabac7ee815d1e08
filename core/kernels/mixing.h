// SPDX-License-Identifier: MIT
// mixPairs mixes the reverberator's lines by a matrix of plus and minus ones, in one pass over the block.
#pragma once

#include "core/kernels/signature.h"
#include "core/kernels/states.h"

namespace quorel {

// out[r][i] = term 0, then +- term 1 to +- term 5 of mix[r], for as many rows as `mix` has. The argument rules are those of
// core/kernels.h, for the rows too; no row of `out` may be a row of `in`.
Status mixPairs(const float* const* in, float* const* out, const PairMix* mix, std::size_t rows, std::int32_t len) noexcept;

} // namespace quorel
