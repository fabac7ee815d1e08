// SPDX-License-Identifier: MIT
#define QUOREL_VARIANT baseline
#include "core/kernels/variant.h"
