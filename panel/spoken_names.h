// SPDX-License-Identifier: MIT
// The names of the speakers, spoken by a voice that design/spoken_names.py chooses. The samples are those of panel/spoken/*.wav.
#pragma once

#include <array>
#include <cstdint>
#include <span>

namespace quorel {

constexpr std::uint32_t spokenFramesPerSecond = 16000;

// In the order of `speakerTable`.
extern const std::array<std::span<const std::int16_t>, 8> spokenNames;

} // namespace quorel
