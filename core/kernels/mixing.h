// SPDX-License-Identifier: MIT
// mixPairs mixes the reverberator's lines by a matrix of plus and minus ones, in one pass over the block.
#pragma once

#include "core/kernels/signature.h"
#include "core/kernels/states.h"

namespace quorel {

// out[r][i] = term 0, then +- term 1 to +- term 5 of mix[r], for as many rows as `mix` has. The terms are those of
// (in[c][i] + added[c][i]) * gain, where a null row of `added` adds nothing. The argument rules are those of core/kernels.h, for
// the rows of `in` and `out` too; no row of `out` may be one that is read.
Status mixPairs(const float* const* in, const float* const* added, float gain, float* const* out, const PairMix* mix,
                std::size_t rows, std::int32_t len) noexcept;

} // namespace quorel
