// SPDX-License-Identifier: MIT
// The kernels' loops compiled plainly: one element after the other, for the x86-64 baseline.
#define QUOREL_VARIANT plain
#include "core/kernels/variant.h"
