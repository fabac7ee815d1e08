// SPDX-License-Identifier: MIT
// The kernels' bodies of sixteen lanes for a machine without such registers: the compiler lowers each vector to several narrower
// ones. What is left untested where AVX-512 is missing is then the compiler's code for it alone.
#define QUOREL_VARIANT lowered
#define QUOREL_LANES 16
#include "core/kernels/variant.h"
