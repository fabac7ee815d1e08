// SPDX-License-Identifier: MIT
// The constants of the nine-band equaliser.
#pragma once

#include "speaker/square_matrix.h"

#include <array>

namespace quorel {

extern const std::array<double, 9> equalizerCentres; // Hz, an octave apart

constexpr double equalizerQ = 0.95;
constexpr double equalizerSampleRate = 48000.0; // Hz
constexpr double equalizerShelfFactor = 1.5;

// What each band adds to its neighbours, inverted: row by column the share of one band's gain in the correction of another's.
SquareMatrix equalizerInteraction();

} // namespace quorel
