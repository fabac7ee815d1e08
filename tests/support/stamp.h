// SPDX-License-Identifier: MIT
// Settings in which every kept field carries one number, so that a mixture of two updates shows.
#pragma once

#include "core/settings_record.h"

#include <algorithm>

namespace quorel {

inline SettingsRecord stamped(std::uint32_t stamp)
{
    SettingsRecord settings;
    settings.Enabled = settings.Settings = settings.MicNR = static_cast<std::uint8_t>(stamp);
    settings.micEq = settings.noiseGate = settings.Reverb = stamp;
    settings.EQBand.fill(static_cast<std::int32_t>(stamp));
    return settings;
}

// The smallest and the largest stamp in the fields of 32 bits.
inline std::pair<std::uint32_t, std::uint32_t> stampsOf(const SettingsRecord& settings)
{
    const auto [least, most] = std::minmax({settings.micEq, settings.noiseGate, settings.Reverb});
    const auto [leastBand, mostBand] = std::minmax_element(settings.EQBand.begin(), settings.EQBand.end());
    return {std::min(least, static_cast<std::uint32_t>(*leastBand)), std::max(most, static_cast<std::uint32_t>(*mostBand))};
}

// True when every field carries the stamp of `Reverb`.
inline bool isWhole(const SettingsRecord& settings)
{
    const auto [least, most] = stampsOf(settings);
    const auto low = static_cast<std::uint8_t>(least);
    return least == most && settings.Enabled == low && settings.Settings == low && settings.MicNR == low;
}

} // namespace quorel
