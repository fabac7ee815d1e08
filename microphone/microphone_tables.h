// SPDX-License-Identifier: MIT
// The constants of the capture effect: two sample rates, the bands of the spectrum, and the laws of trackers, gains and gate.
// The filter bank's windows and the equaliser's curves stand in files of their own.
#pragma once

#include "microphone/microphone_rates.h"
#include "microphone/stage_tables.h"
#include "stages/gain_point.h"

#include <array>
#include <cstdint>

namespace quorel {

BottomTrackerTables noiseTrackerTables();
OgleTables signalTrackerTables();
OgleTables levelTrackerTables(std::uint32_t sampleRate);
SuppressionGainTables suppressionTables();

// The gate's curve. Closed at -50 dB below -30 dB, open above -24 dB.
extern const std::array<GainPoint, 2> gateCurve;

// The gate's pre-gain for each value of the noiseGate setting: 10 ^ ((128 - i) / 127), +20 dB to -20 dB. Entry 0 is 0 and unused.
extern const std::array<float, 256> gateGainTable;

} // namespace quorel
