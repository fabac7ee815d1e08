// SPDX-License-Identifier: MIT
// Presets: what a user has chosen, in files of the user's own. A file holds the settings that are kept, by name:
//
//   {"settings": {"Enabled": 1, "Settings": 1, "Reverb": 170, ...}}
//
// One that was written by hand may hold some of them; the others then stay as they are.
#pragma once

#include "core/settings_record.h"

#include <string>
#include <vector>

namespace quorel {

// Replaces a preset of that name as a whole, or not at all. Names are letters, digits, '-' and '_'. All of these throw
// std::runtime_error with a text for the user.
void savePreset(const std::string& name, const SettingsRecord& record);

// The record with the preset's settings in it. A file with anything in it that is not as it should be is refused as a whole.
SettingsRecord loadPreset(const std::string& name, const SettingsRecord& record);

void deletePreset(const std::string& name);

// The names of the presets, sorted.
std::vector<std::string> presets();

} // namespace quorel
