// SPDX-License-Identifier: MIT
// A user's choice in which every setting that a bypass turns off carries one number, so that a mixture of two, or one that a bypass
// has taken along, shows.
#pragma once

#include "client/settings_fields.h"
#include "panel/values.h"

#include <string>

namespace quorel {

// None of these is 0, as what is turned off is.
constexpr std::int64_t numberOf(long choice)
{
    return 1 + choice % 120;
}

// The number stands where there is room for it; what can only be on or off is on.
inline Values choiceWith(std::int64_t number)
{
    Values values;
    for (const char* each : {"Settings", "MicNR", "micEq"})
        values[settingsField(each)] = 1;
    for (const char* each : {"Reverb", "noiseGate"})
        values[settingsField(each)] = number;
    for (int band = 1; band <= 9; ++band)
        values[settingsField("EQBand" + std::to_string(band))] = number;
    return values;
}

} // namespace quorel
