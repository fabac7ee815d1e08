// SPDX-License-Identifier: MIT
#include "host/text.h"

#include <cstdint>

namespace quorel {

std::string utf8(LPCWSTR text)
{
    constexpr std::uint32_t replacement = 0xFFFD;
    const auto isLead = [](std::uint32_t unit) { return (unit & 0xFC00U) == 0xD800U; };
    const auto isTrail = [](std::uint32_t unit) { return (unit & 0xFC00U) == 0xDC00U; };

    std::string result;
    const auto put = [&result](std::uint32_t byte) { result.push_back(static_cast<char>(byte)); };
    for (; text != nullptr && *text != 0; ++text) {
        std::uint32_t point = *text;
        if (isLead(point) && isTrail(text[1]))
            point = 0x10000U + ((point & 0x3FFU) << 10U) + (*++text & 0x3FFU);
        else if (isLead(point) || isTrail(point))
            point = replacement;

        if (point < 0x80U) {
            put(point);
        } else if (point < 0x800U) {
            put(0xC0U | point >> 6U);
            put(0x80U | (point & 0x3FU));
        } else if (point < 0x10000U) {
            put(0xE0U | point >> 12U);
            put(0x80U | (point >> 6U & 0x3FU));
            put(0x80U | (point & 0x3FU));
        } else {
            put(0xF0U | point >> 18U);
            put(0x80U | (point >> 12U & 0x3FU));
            put(0x80U | (point >> 6U & 0x3FU));
            put(0x80U | (point & 0x3FU));
        }
    }
    return result;
}

} // namespace quorel
