// SPDX-License-Identifier: MIT
#define QUOREL_VARIANT avx512
#include "core/kernels/variant.h"
