// SPDX-License-Identifier: MIT
// Values are settings by field, as a user changes them: some of them, the others stay as they are.
#pragma once

#include "client/settings_fields.h"

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace quorel {

using Values = std::map<const SettingsField*, std::int64_t>; // in the order of the table

// What was changed at once, and the number by which the panel knows it again.
struct Changes {
    std::uint64_t number = 0;
    Values values;
};

// The decibels that a value stands for; nothing where it stands for none, or is the 0 that means off.
std::optional<double> decibelsAt(const SettingsField& field, std::int64_t value);

// The value that a person has typed into the panel: decibels, with or without "dB", for a field that stands for some, else a
// whole number; with a point or a comma. "off" is 0 where 0 means off. Throws std::runtime_error with a text that says the range.
std::int64_t typedValue(const SettingsField& field, std::string_view text);

// "+3.0 dB", "off", "2": a value as a person reads it.
std::string shownText(const SettingsField& field, std::int64_t value);

// The value at which a field does nothing: its default, and what a bypass sets.
constexpr std::int64_t neutralValue = 0;

} // namespace quorel
