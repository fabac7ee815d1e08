// SPDX-License-Identifier: MIT
// The settings on a command line.
#pragma once

#include "client/settings_fields.h"
#include "tools/tool.h"

namespace quorel {

// "[0 to 255] meaning", each line but the first behind `indent`.
std::string settingHelp(const SettingsField& field, const std::string& indent = "");

// An option --NAME for each setting of the effect.
void addSettings(CLI::App& tool, SettingsRecord& record, Effect effect);

} // namespace quorel
