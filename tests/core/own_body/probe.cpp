// SPDX-License-Identifier: MIT
#define QUOREL_VARIANT probe
#include "core/kernels/variant.h"
