// The speakers that a stream's channel mask can name, in the order in which they take the stream's channels.
#pragma once

#include <array>
#include <cstdint>

namespace quorel {

struct SpeakerRow {
    std::uint32_t bit; // in the operating system's speaker mask
    float downmixLeft; // linear gains of the stereo down-mix
    float downmixRight;
};

// 0.707 is -3.012 dB.
// clang-format off
inline constexpr std::array<SpeakerRow, 8> speakerTable = {{
    // bit    left     right
    {0x1,   1.0F,   0.0F},     // front left
    {0x2,   0.0F,   1.0F},     // front right
    {0x4,   0.5F,   0.5F},     // front centre
    {0x8,   0.707F, 0.707F},   // low frequency
    {0x10,  0.707F, 0.0F},     // back left
    {0x20,  0.0F,   0.707F},   // back right
    {0x200, 0.707F, 0.0F},     // side left
    {0x400, 0.0F,   0.707F},   // side right
}};
// clang-format on

} // namespace quorel
