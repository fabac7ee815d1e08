// SPDX-License-Identifier: MIT
// The settings as a person meets them: by name, with range, unit and meaning. Whoever takes a setting from a user checks it
// here.
#pragma once

#include "core/settings_record.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace quorel {

enum class Effect : std::uint8_t { none, speaker, microphone };

struct SettingsField {
    const char* name;
    std::size_t offset; // in SettingsRecord
    std::size_t bytes;  // 1 or 4
    std::int64_t low;   // a field that may be below 0 is signed
    std::int64_t high;
    Effect effect; // which effect it steers
    bool kept;     // part of what a user has chosen, so that it is worth keeping
    const char* meaning;
    double dbAtZero = 0; // a value stands for dbAtZero + dbPerStep * value dB; dbPerStep is 0 where it stands for none
    double dbPerStep = 0;
};

std::span<const SettingsField> settingsFields() noexcept;

// Null for an unknown name.
const SettingsField* settingsField(std::string_view name) noexcept;

// The same, as a person writes it: in any case.
const SettingsField* settingNamed(std::string_view name) noexcept;

std::int64_t settingOf(const SettingsRecord& record, const SettingsField& field) noexcept;

// "0 to 255"
std::string rangeOf(const SettingsField& field);

// The decibels that a setting which stands for some may be given in, "-17.9 to +9.0 dB"; empty for the others. A range from 0 on
// has its 0 for off, so its decibels begin at 1.
std::string decibelsOf(const SettingsField& field);

// A number as a person writes it: 170, 0xAA, 1.7e2. Nothing for anything else.
std::optional<double> numberFrom(std::string_view text);

// The value that a person has written: a whole number, or decibels, "-5dB", which give the nearest value. Throws
// std::runtime_error with a text for the user that says the range.
std::int64_t settingFrom(const SettingsField& field, std::string_view text);

// What a user is told whose value is out of range.
std::string refusal(const SettingsField& field, const std::string& value);

// Throws std::runtime_error with the refusal when the value is out of range.
void setSetting(SettingsRecord& record, const SettingsField& field, std::int64_t value);

} // namespace quorel
