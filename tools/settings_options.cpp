// SPDX-License-Identifier: MIT
#include "tools/settings_options.h"

#include "client/preset.h"

namespace quorel {

namespace {

// Why a text is no value of the setting; empty if it is one.
std::string problemOf(const SettingsField& field, const std::string& text)
{
    try {
        settingFrom(field, text);
        return {};
    } catch (const std::runtime_error& error) {
        return error.what();
    }
}

// The band of "3:+2.5dB".
const SettingsField& bandOf(const std::string& text)
{
    const SettingsField* band = text.find(':') == 1 ? settingsField("EQBand" + text.substr(0, 1)) : nullptr;
    if (band == nullptr)
        throw std::runtime_error(text + " is no BAND:VALUE of a band from 1 to 9");
    return *band;
}

} // namespace

std::string settingHelp(const SettingsField& field)
{
    const std::string decibels = decibelsOf(field);
    return "[" + rangeOf(field) + (decibels.empty() ? "" : ", or " + decibels) + "] " + field.meaning;
}

void addSettings(const CommandLine& tool, SettingsChoice& choice, const SettingsRecord& defaults, Effect effect)
{
    const auto give = [&choice](const SettingsField& field, const std::string& text) {
        if (!choice.given.emplace(&field, settingFrom(field, text)).second)
            throw std::runtime_error(std::string(field.name) + " is given twice");
    };
    for (const SettingsField& field : settingsFields()) {
        if (field.effect != effect)
            continue;
        tool.addText(
                "--" + std::string(field.name), [give, &field](const std::string& text) { give(field, text); },
                settingHelp(field))
            .typeName("NUMBER")
            .defaultText(std::to_string(settingOf(defaults, field)))
            .check([&field](const std::string& text) { return problemOf(field, text); })
            .group("Settings");
    }
    if (effect == Effect::speaker) {
        const Option bands = tool.addTexts(
            "--eq",
            [give](const std::vector<std::string>& texts) {
                for (const std::string& text : texts)
                    give(bandOf(text), text.substr(text.find(':') + 1));
            },
            "A band of the equaliser, 1 to 9, and its value, also in decibels: --eq 3:+2.5dB. More of them behind commas, or by "
            "more options");
        bands.typeName("BAND:VALUE").dividedByCommas();
        bands.check([](const std::string& text) {
            try {
                return problemOf(bandOf(text), text.substr(text.find(':') + 1));
            } catch (const std::runtime_error& error) {
                return std::string(error.what());
            }
        });
        bands.group("Settings");
    }
    tool.add("--preset", choice.preset,
             "Begin with the settings that quorel-control has kept under this name; other options change them")
        .typeName("NAME")
        .group("Settings");
}

SettingsRecord chosenSettings(const SettingsChoice& choice, const SettingsRecord& defaults)
{
    SettingsRecord record = choice.preset.empty() ? defaults : loadPreset(choice.preset, defaults);
    for (const auto& [field, value] : choice.given)
        setSetting(record, *field, value);
    return record;
}

} // namespace quorel
