// SPDX-License-Identifier: MIT
// What a set of head-related responses does to each speaker's sound, for a picture of it.
#pragma once

#include "client/hrtf_set.h"

namespace quorel {

using ResponseTaps = decltype(FittedSet::taps); // of each speaker, left ear first

// The built-in set, in the form of one that was read from a file.
ResponseTaps builtInTaps();

// 20 log10 |sum over n of taps[n] e^(-2 pi i f n / 48000)|
double levelDb(std::span<const float> taps, double hz);

} // namespace quorel
