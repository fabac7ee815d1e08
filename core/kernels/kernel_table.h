// SPDX-License-Identifier: MIT
// KernelTable holds one instruction-set variant of the kernels' arithmetic: a pointer for each line of kernels.inc.
//
// One set of bodies (the *_body.h headers) is compiled once for each variant. The units that do so define nothing but their
// table and internal functions, and share no inline code with anything, so that no wide instruction can leak into a program
// that runs on an older processor: this header and what it includes hold declarations alone.
#pragma once

#include "core/kernels/states.h"

namespace quorel::kernels {

struct KernelTable {
    const char* name;       // "baseline", "avx2", "avx512"
    size_t valuesPerVector; // complex values, for the layout of the transforms' tables

// NOLINTNEXTLINE(bugprone-macro-parentheses): a declaration, whose parameters bring theirs
#define QUOREL_KERNEL(result, kernel, parameters, body) result(*kernel) parameters;
#include "core/kernels/kernels.inc"
#undef QUOREL_KERNEL
};

// The variant in use.
const KernelTable& active() noexcept;

} // namespace quorel::kernels
