// SPDX-License-Identifier: MIT
#include "panel/values.h"

#include <algorithm>
#include <cmath>
#include <iomanip>
#include <sstream>

namespace quorel {

std::optional<double> decibelsAt(const SettingsField& field, std::int64_t value)
{
    if (field.dbPerStep == 0 || (field.low == 0 && value == 0))
        return std::nullopt;
    return field.dbAtZero + field.dbPerStep * static_cast<double>(value);
}

std::string shownText(const SettingsField& field, std::int64_t value)
{
    if (const auto db = decibelsAt(field, value)) {
        const double rounded = std::round(*db * 10) / 10;
        std::ostringstream text;
        text << (rounded > 0 ? "+" : "") << std::fixed << std::setprecision(1) << rounded + 0.0 << " dB"; // + 0.0: no -0.0
        return text.str();
    }
    return value == 0 ? "off" : std::to_string(value);
}

std::int64_t typedValue(const SettingsField& field, std::string_view text)
{
    const auto first = text.find_first_not_of(" \t");
    const auto last = text.find_last_not_of(" \t");
    std::string typed(first == std::string_view::npos ? std::string_view() : text.substr(first, last - first + 1));
    if (typed == "off" && field.low == 0)
        return 0;
    std::ranges::replace(typed, ',', '.');
    const bool bare = !typed.empty() && typed.back() >= '0' && typed.back() <= '9';
    return settingFrom(field, bare && field.dbPerStep != 0 ? typed + "dB" : typed);
}

} // namespace quorel
