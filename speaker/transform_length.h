// SPDX-License-Identifier: MIT
// The one length of the render effect's transforms, whose spectra are its built-in and delivered responses.
#pragma once

#include <cstdint>

namespace quorel {

constexpr std::uint64_t transformOrder = 10;
constexpr std::uint64_t transformLength = std::uint64_t{1} << transformOrder; // frames, and floats of a spectrum in Pack form

} // namespace quorel
