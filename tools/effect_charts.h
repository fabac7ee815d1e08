// SPDX-License-Identifier: MIT
// What the settings do, measured on the effects as they run, as charts.
#pragma once

#include "client/hrtf_set.h"
#include "core/settings_record.h"
#include "tools/chart.h"

#include <cstdint>
#include <span>
#include <vector>

namespace quorel {

// The response of the equaliser's bands.
Chart equalizerChart(const SettingsRecord& settings);

// The level of a sine of 1 kHz behind the render effect's limiters and its output gain, and what becomes of one that rises.
std::vector<Chart> limiterCharts();

// The energy of the room that is still to come, in octaves, over all speakers and both ears. Throws std::runtime_error when the
// reverb is off.
Chart roomChart(const SettingsRecord& settings);

// The responses of the microphone's two curves at both rates.
Chart curvesChart();

// The gate's levels, and how it shuts behind speech. Throws std::runtime_error when it is off.
std::vector<Chart> gateCharts(const SettingsRecord& settings);

// Levels before and after noise reduction, as it runs live, and its gain, over time and frequency. rate: 16000 or 48000.
std::vector<Chart> noiseCharts(std::span<const float> sound, std::uint32_t rate);

// Spectra, and below them the taps; left and right those of the left and the right ear.
std::vector<Chart> responsesCharts(const FittedSet& set);

// The built-in responses.
FittedSet builtInSet();

} // namespace quorel
