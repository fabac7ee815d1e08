// SPDX-License-Identifier: MIT
// The settings as a person meets them: by name, with range, unit and meaning. Whoever takes a setting from a user checks it
// here.
#pragma once

#include "core/settings_record.h"

#include <cstddef>
#include <cstdint>
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
};

std::span<const SettingsField> settingsFields() noexcept;

// Null for an unknown name.
const SettingsField* settingsField(std::string_view name) noexcept;

std::int64_t settingOf(const SettingsRecord& record, const SettingsField& field) noexcept;

// "0 to 255"
std::string rangeOf(const SettingsField& field);

// What a user is told whose value is out of range.
std::string refusal(const SettingsField& field, const std::string& value);

// Throws std::runtime_error with the refusal when the value is out of range.
void setSetting(SettingsRecord& record, const SettingsField& field, std::int64_t value);

} // namespace quorel
