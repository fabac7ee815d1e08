// SPDX-License-Identifier: MIT
// The speakers that a stream's channel mask can name, in the order in which they take the stream's channels.
#pragma once

#include <array>
#include <cstdint>

namespace quorel {

struct SpeakerRow {
    std::uint32_t bit; // in the operating system's speaker mask
    float downmixLeft; // linear gains of the stereo down-mix
    float downmixRight;
    std::uint64_t preDelay; // frames, as requested of the reverberator
};

// 0.707 is -3.012 dB. The pre-delays of a left and right pair differ as requested; in force all are 48 frames but that of back
// left, which is 64.
// clang-format off
inline constexpr std::array<SpeakerRow, 8> speakerTable = {{
    // bit  left    right   pre-delay
    {0x1,   1.0F,   0.0F,   44}, // front left
    {0x2,   0.0F,   1.0F,   40}, // front right
    {0x4,   0.5F,   0.5F,   48}, // front centre
    {0x8,   0.707F, 0.707F, 38}, // low frequency
    {0x10,  0.707F, 0.0F,   51}, // back left
    {0x20,  0.0F,   0.707F, 42}, // back right
    {0x200, 0.707F, 0.0F,   48}, // side left
    {0x400, 0.0F,   0.707F, 44}, // side right
}};
// clang-format on

inline constexpr std::uint32_t everySpeaker = 0x63F; // the bits of the whole table: 7.1

} // namespace quorel
