// SPDX-License-Identifier: MIT
// The two filters with which XCorrFreq correlates the reverberator's outputs at low frequencies:
//
//   left out = same * left + cross * right,   right out = same * right + cross * left
//
// `same` is close to a pure delay of 69.65 frames with a gain of 1.09, `cross` a low-pass of the same delay whose gain is
// 0.69 at 0 Hz and half of that near 270 Hz. They are tuned for 48000 frames per second. docs/xcorr_tables.md tells how they
// are designed.
#pragma once

#include <array>
#include <cstddef>

namespace quorel {

inline constexpr std::size_t xcorrTaps = 140;

extern const std::array<float, xcorrTaps> sameSideTaps;  // H1
extern const std::array<float, xcorrTaps> crossSideTaps; // H2

} // namespace quorel
