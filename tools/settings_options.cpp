// SPDX-License-Identifier: MIT
#include "tools/settings_options.h"

namespace quorel {

std::string settingHelp(const SettingsField& field, const std::string& indent)
{
    std::string text = "[" + rangeOf(field) + "] ";
    for (const char letter : std::string_view(field.meaning)) {
        text += letter;
        if (letter == '\n')
            text += indent;
    }
    return text;
}

void addSettings(CLI::App& tool, SettingsRecord& record, Effect effect)
{
    for (const SettingsField& field : settingsFields()) {
        if (field.effect != effect)
            continue;
        tool.add_option_function<std::int64_t>(
                "--" + std::string(field.name), [&record, &field](std::int64_t value) { setSetting(record, field, value); },
                settingHelp(field))
            ->type_name("NUMBER")
            ->default_str(std::to_string(settingOf(record, field)))
            ->check(numberFrom(field.low, field.high), "")
            ->group("Settings");
    }
}

} // namespace quorel
