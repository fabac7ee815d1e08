// SPDX-License-Identifier: MIT
#include "client/settings_fields.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>
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
     "value * 27 / 255 - 18 dB, so 1 is -17.9 dB, 170 is 0 dB, 255 is +9 dB", -18, 27.0 / 255},
    {"EQBand1",       bandOffset(1),                           4,     -127, 127,  Effect::speaker,    true,
     "Equaliser at 63 Hz: value / 127 * 6 dB", 0, 6.0 / 127},
    {"EQBand2",       bandOffset(2),                           4,     -127, 127,  Effect::speaker,    true,
     "Equaliser at 125 Hz: value / 127 * 6 dB", 0, 6.0 / 127},
    {"EQBand3",       bandOffset(3),                           4,     -127, 127,  Effect::speaker,    true,
     "Equaliser at 250 Hz: value / 127 * 6 dB", 0, 6.0 / 127},
    {"EQBand4",       bandOffset(4),                           4,     -127, 127,  Effect::speaker,    true,
     "Equaliser at 500 Hz: value / 127 * 6 dB", 0, 6.0 / 127},
    {"EQBand5",       bandOffset(5),                           4,     -127, 127,  Effect::speaker,    true,
     "Equaliser at 1000 Hz: value / 127 * 6 dB", 0, 6.0 / 127},
    {"EQBand6",       bandOffset(6),                           4,     -127, 127,  Effect::speaker,    true,
     "Equaliser at 2000 Hz: value / 127 * 6 dB", 0, 6.0 / 127},
    {"EQBand7",       bandOffset(7),                           4,     -127, 127,  Effect::speaker,    true,
     "Equaliser at 4000 Hz: value / 127 * 6 dB", 0, 6.0 / 127},
    {"EQBand8",       bandOffset(8),                           4,     -127, 127,  Effect::speaker,    true,
     "Equaliser at 8000 Hz: value / 127 * 6 dB", 0, 6.0 / 127},
    {"EQBand9",       bandOffset(9),                           4,     -127, 127,  Effect::speaker,    true,
     "Equaliser at 16000 Hz: value / 127 * 6 dB", 0, 6.0 / 127},
    {"MicNR",         offsetof(SettingsRecord, MicNR),         1,     0,    255,  Effect::microphone, true,
     "Noise reduction: 0 off; above 0 on"},
    {"micEq",         offsetof(SettingsRecord, micEq),         4,     0,    2,    Effect::microphone, true,
     "Equaliser: 0 off; 1 lifts the lows by 13 dB and the highs by 4 dB;\n"
     "2 cuts everything below 200 Hz"},
    {"noiseGate",     offsetof(SettingsRecord, noiseGate),     4,     0,    255,  Effect::microphone, true,
     "Noise gate: 0 off; above 0 it is open at and above\n"
     "-24 - (128 - value) * 20 / 127 dB, so 1 is -44 dB, 128 is -24 dB, 255 is -4 dB",
     -24 - 128 * 20.0 / 127, 20.0 / 127},
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

const SettingsField* settingNamed(std::string_view name) noexcept
{
    const auto small = [](char letter) {
        return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
    };
    const auto same = [&](char a, char b) { return small(a) == small(b); };
    for (const SettingsField& field : fields)
        if (std::ranges::equal(std::string_view(field.name), name, same))
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

std::string decibelsOf(const SettingsField& field)
{
    if (field.dbPerStep == 0)
        return {};
    const auto at = [&](std::int64_t value) { return field.dbAtZero + field.dbPerStep * static_cast<double>(value); };
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), "%+.1f to %+.1f dB", at(field.low < 0 ? field.low : 1), at(field.high));
    return text.data();
}

std::optional<double> numberFrom(std::string_view text)
{
    const std::string copy(text);
    char* end = nullptr;
    const double number = std::strtod(copy.c_str(), &end);
    const bool whole = !copy.empty() && copy.front() != ' ' && end == copy.c_str() + copy.size();
    return whole && std::isfinite(number) ? std::optional(number) : std::nullopt;
}

std::int64_t settingFrom(const SettingsField& field, std::string_view text)
{
    const auto fail = [&] {
        const std::string decibels = decibelsOf(field);
        throw std::runtime_error(std::string(text) + " is not a number from " + rangeOf(field) +
                                 (decibels.empty() ? "" : ", nor one of " + decibels));
    };
    const bool inDecibels = text.size() > 2 && (text.ends_with("dB") || text.ends_with("db") || text.ends_with("DB"));
    std::string_view digits = text;
    if (inDecibels)
        digits.remove_suffix(digits[digits.size() - 3] == ' ' ? 3 : 2);
    const auto number = numberFrom(digits);
    if (!number || (inDecibels && field.dbPerStep == 0))
        fail();
    const double value = inDecibels ? std::round((*number - field.dbAtZero) / field.dbPerStep) : *number;
    const double low = inDecibels && field.low == 0 ? 1 : static_cast<double>(field.low);
    if (value != std::round(value) || value < low || value > static_cast<double>(field.high))
        fail();
    return static_cast<std::int64_t>(value);
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
