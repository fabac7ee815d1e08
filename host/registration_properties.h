// SPDX-License-Identifier: MIT
// What the effect says of itself to an audio engine, and by which names it is known.
#pragma once

#include "host/audio_interfaces.h"

namespace quorel {

inline constexpr CLSID CLSID_QUOREL = {0x5B0E3C92, 0x7D14, 0x4F6A, {0xA2, 0xC8, 0x19, 0xD3, 0xE6, 0x0B, 0x7F, 0x44}};

// The effect's own interface, which adds no operation.
inline constexpr IID IID_IQUORELSFX = {0xA4D2C6E7, 0x3B18, 0x4F05, {0x92, 0xE1, 0x6D, 0x07, 0xF1, 0xB8, 0xC3, 0x5A}};

// One input and one output, in place: format, rate and sample width of both sides are the same.
extern const APO_REG_PROPERTIES registrationProperties;

} // namespace quorel
