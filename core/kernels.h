// SPDX-License-Identifier: MIT
// The flat layer of vector kernels that the stages' bulk work goes through: this header is its one door.
//
// Argument rules, for every kernel unless its line says otherwise: a null array gives ippStsNullPtrErr, then a length below 1
// gives ippStsSizeErr, so that an empty block is an error here and no work. Lengths count elements: floats (_32f) or
// complex pairs (_32fc). The arrays of an out-of-place kernel must not overlap. No kernel allocates, locks or keeps a state
// that is not passed to it. Kernels exist in several instruction-set variants (docs/kernels.md), one of which is chosen once
// per process; results need not be bit-identical between variants.
#pragma once

#include "core/kernels/bank.h"
#include "core/kernels/dynamics.h"
#include "core/kernels/elements.h"
#include "core/kernels/filters.h"
#include "core/kernels/frames.h"
#include "core/kernels/mixing.h"
#include "core/kernels/row_sums.h"
#include "core/kernels/transforms.h"
