// SPDX-License-Identifier: MIT
#include "client/settings_fields.h"

#include <array>
#include <cstring>
#include <stdexcept>

namespace quorel {

namespace {

constexpr std::size_t bandOffset(std::size_t band)
{
    return offsetof(SettingsRecord, EQBand) + (band - 1) * sizeof(std::int32_t);
}

// clang-format off
constexpr auto fields = std::to_array<SettingsField>({
    // name           offset                                   bytes  low   high  effect              kept   meaning
    {"Enabled",       offsetof(SettingsRecord, Enabled),       1,     0,    255,  Effect::none,       true,
     "Kept for the application; no effect reads it"},
    {"Settings",      offsetof(SettingsRecord, Settings),      1,     0,    255,  Effect::speaker,    true,
     "Surround effect: 0 off, a plain stereo down-mix; above 0 on"},
    {"Reverb",        offsetof(SettingsRecord, Reverb),        4,     0,    255,  Effect::speaker,    true,
     "Reverb of the surround effect: 0 off; above 0 its gain is\n"
     "value * 27 / 255 - 18 dB, so 1 is -17.9 dB, 170 is 0 dB, 255 is +9 dB"},
    {"EQBand1",       bandOffset(1),                           4,     -127, 127,  Effect::speaker,    true,
     "Equaliser at 63 Hz: value / 127 * 6 dB"},
    {"EQBand2",       bandOffset(2),                           4,     -127, 127,  Effect::speaker,    true,
     "Equaliser at 125 Hz: value / 127 * 6 dB"},
    {"EQBand3",       bandOffset(3),                           4,     -127, 127,  Effect::speaker,    true,
     "Equaliser at 250 Hz: value / 127 * 6 dB"},
    {"EQBand4",       bandOffset(4),                           4,     -127, 127,  Effect::speaker,    true,
     "Equaliser at 500 Hz: value / 127 * 6 dB"},
    {"EQBand5",       bandOffset(5),                           4,     -127, 127,  Effect::speaker,    true,
     "Equaliser at 1000 Hz: value / 127 * 6 dB"},
    {"EQBand6",       bandOffset(6),                           4,     -127, 127,  Effect::speaker,    true,
     "Equaliser at 2000 Hz: value / 127 * 6 dB"},
    {"EQBand7",       bandOffset(7),                           4,     -127, 127,  Effect::speaker,    true,
     "Equaliser at 4000 Hz: value / 127 * 6 dB"},
    {"EQBand8",       bandOffset(8),                           4,     -127, 127,  Effect::speaker,    true,
     "Equaliser at 8000 Hz: value / 127 * 6 dB"},
    {"EQBand9",       bandOffset(9),                           4,     -127, 127,  Effect::speaker,    true,
     "Equaliser at 16000 Hz: value / 127 * 6 dB"},
    {"MicNR",         offsetof(SettingsRecord, MicNR),         1,     0,    255,  Effect::microphone, true,
     "Noise reduction: 0 off; above 0 on"},
    {"micEq",         offsetof(SettingsRecord, micEq),         4,     0,    2,    Effect::microphone, true,
     "Equaliser: 0 off; 1 lifts the lows by 13 dB and the highs by 4 dB;\n"
     "2 cuts everything below 200 Hz"},
    {"noiseGate",     offsetof(SettingsRecord, noiseGate),     4,     0,    255,  Effect::microphone, true,
     "Noise gate: 0 off; above 0 it is open at and above\n"
     "-24 - (128 - value) * 20 / 127 dB, so 1 is -44 dB, 128 is -24 dB, 255 is -4 dB"},
    {"levelsEnabled", offsetof(SettingsRecord, levelsEnabled), 1,     0,    255,  Effect::microphone, false,
     "Levels of nine bands of the microphone: 0 off; above 0 on"},
});
// clang-format on

} // namespace

std::span<const SettingsField> settingsFields() noexcept
{
    return fields;
}

const SettingsField* settingsField(std::string_view name) noexcept
{
    for (const SettingsField& field : fields)
        if (field.name == name)
            return &field;
    return nullptr;
}

std::int64_t settingOf(const SettingsRecord& record, const SettingsField& field) noexcept
{
    std::uint32_t value = 0;
    std::memcpy(&value, reinterpret_cast<const std::byte*>(&record) + field.offset, field.bytes);
    return field.low < 0 ? std::int64_t{static_cast<std::int32_t>(value)} : std::int64_t{value};
}

std::string rangeOf(const SettingsField& field)
{
    return std::to_string(field.low) + " to " + std::to_string(field.high);
}

std::string refusal(const SettingsField& field, const std::string& value)
{
    return std::string(field.name) + " takes numbers from " + rangeOf(field) + ", not " + value;
}

void setSetting(SettingsRecord& record, const SettingsField& field, std::int64_t value)
{
    if (value < field.low || value > field.high)
        throw std::runtime_error(refusal(field, std::to_string(value)));
    const auto bits = static_cast<std::uint32_t>(value);
    std::memcpy(reinterpret_cast<std::byte*>(&record) + field.offset, &bits, field.bytes);
}

} // namespace quorel
