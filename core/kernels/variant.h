// SPDX-License-Identifier: MIT
// Compiles the kernels for one instruction set. The including unit defines QUOREL_VARIANT, the variant's name, and is compiled
// with the variant's flags.
//
// A kernel that has a body of the variant's own takes that one: a static function of the kernel's name in the variant's
// namespace, in core/kernels/<variant>_own.h. The file needs no more than to be there.
#pragma once

#pragma GCC diagnostic ignored "-Wunused-function" // a shared body, where the variant has its own

#include "core/kernels/bank_body.h"
#include "core/kernels/cascade_body.h"
#include "core/kernels/dynamics_body.h"
#include "core/kernels/elements_body.h"
#include "core/kernels/frames_body.h"
#include "core/kernels/kernel_table.h"
#include "core/kernels/mixing_body.h"
#include "core/kernels/row_sums_body.h"
#include "core/kernels/sparse_body.h"
#include "core/kernels/transforms_body.h"

#define QUOREL_TEXT_OF(name) #name
#define QUOREL_TEXT(name) QUOREL_TEXT_OF(name)
// clang-format off
#define QUOREL_OWN_BODIES(variant) QUOREL_TEXT(core/kernels/variant##_own.h)
// clang-format on
#define QUOREL_OWN_BODIES_OF(variant) QUOREL_OWN_BODIES(variant)

#if __has_include(QUOREL_OWN_BODIES_OF(QUOREL_VARIANT))
#include QUOREL_OWN_BODIES_OF(QUOREL_VARIANT)
#endif

namespace quorel::kernels::QUOREL_VARIANT {

// Names that the variant's namespace declares itself come before those that it takes over from here.
namespace shared {
#define QUOREL_KERNEL(result, kernel, parameters, body) using body::kernel;
#include "core/kernels/kernels.inc"
#undef QUOREL_KERNEL
} // namespace shared
using namespace shared;

extern const KernelTable table;
const KernelTable table = {
    .name = QUOREL_TEXT(QUOREL_VARIANT),
    .valuesPerVector = transforms::valuesPerVector,
#define QUOREL_KERNEL(result, kernel, parameters, body) .kernel = QUOREL_VARIANT::kernel,
#include "core/kernels/kernels.inc"
#undef QUOREL_KERNEL
};

} // namespace quorel::kernels::QUOREL_VARIANT
