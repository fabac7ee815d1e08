// SPDX-License-Identifier: MIT
// Texts are UTF-8 inside the effect; COM's are UTF-16.
#pragma once

#include "platform/com.h"

#include <algorithm>
#include <cstddef>
#include <string>
#include <string_view>

namespace quorel {

// Null gives an empty text. Half of a pair that stands alone becomes the replacement character.
std::string utf8(LPCWSTR text);

// Writes a text into a field of fixed length and ends it there. What doesn't fit is cut; the rest of the field is zero.
template <std::size_t length>
constexpr void fill(WCHAR (&field)[length], std::string_view ascii)
{
    std::ranges::fill(std::ranges::copy(ascii.substr(0, length - 1), field).out, field + length, WCHAR{0});
}

} // namespace quorel
