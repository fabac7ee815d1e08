// SPDX-License-Identifier: MIT
// The constants of the render path's two compressors: a limiter with a fast attack and a slow release.
//
// A coefficient is 1 - exp(-1 / (rate * tau)) at 48000 frames per second, tau 1 ms for the attack, 400 ms for the release.
//
// The curve is unity up to full scale and 1 / level from there on, in steps of 2 dB up to +34 dB:
//   level = 10^(dB / 20), gain = 10^(-dB / 20), each the nearest float.
// Between two points gain is linear in level, so that level * gain rises to 1.0133 at most, 0.115 dB above full scale.
#pragma once

#include "stages/gain_point.h"

#include <array>

namespace quorel {

inline constexpr float renderAttack = 0.0206178185F;
inline constexpr float renderRelease = 5.20819776e-05F;

// clang-format off
inline constexpr std::array renderCurve = std::to_array<GainPoint>({
    // level        gain              dB
    {1.0F,         1.0F},          //  0
    {1.25892544F,  0.794328213F},  //  2
    {1.58489323F,  0.630957365F},  //  4
    {1.99526227F,  0.501187205F},  //  6
    {2.51188636F,  0.398107171F},  //  8
    {3.1622777F,   0.316227764F},  // 10
    {3.98107171F,  0.251188636F},  // 12
    {5.01187229F,  0.199526235F},  // 14
    {6.30957365F,  0.158489317F},  // 16
    {7.94328213F,  0.125892535F},  // 18
    {10.0F,        0.100000001F},  // 20
    {12.5892544F,  0.0794328228F}, // 22
    {15.8489323F,  0.0630957335F}, // 24
    {19.9526234F,  0.050118722F},  // 26
    {25.1188641F,  0.0398107171F}, // 28
    {31.622776F,   0.0316227749F}, // 30
    {39.8107185F,  0.0251188651F}, // 32
    {50.1187248F,  0.0199526232F}, // 34
});
// clang-format on

} // namespace quorel
