// SPDX-License-Identifier: MIT
#define QUOREL_VARIANT avx2
#include "core/kernels/variant.h"
