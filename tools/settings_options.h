// SPDX-License-Identifier: MIT
// The settings on a command line.
#pragma once

#include "client/settings_fields.h"
#include "tools/tool.h"

#include <map>

namespace quorel {

// "[0 to 255] meaning"
std::string settingHelp(const SettingsField& field);

// What a command line says about the settings.
struct SettingsChoice {
    std::string preset; // empty: none
    std::map<const SettingsField*, std::int64_t> given;
};

// Options for the settings of the effect: --NAME for each, --eq BAND:VALUE, --preset NAME. `defaults` are for the help.
void addSettings(const CommandLine& tool, SettingsChoice& choice, const SettingsRecord& defaults, Effect effect);

// The defaults, changed by the preset, changed by what was given.
SettingsRecord chosenSettings(const SettingsChoice& choice, const SettingsRecord& defaults);

} // namespace quorel
