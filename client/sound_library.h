// SPDX-License-Identifier: MIT
// What reading and writing audio files share of the library that does it.
#pragma once

#include <array>
#include <memory>
#include <sndfile.h>
#include <string>
#include <string_view>

namespace quorel {

struct CloseSoundFile {
    void operator()(SNDFILE* file) const noexcept { sf_close(file); }
};
using SoundFile = std::unique_ptr<SNDFILE, CloseSoundFile>;

// The library's name of each bit of the speaker mask, from bit 0 up. For the first three it has two names each.
inline constexpr std::array<int, 18> speakerOfBit = {
    SF_CHANNEL_MAP_LEFT,
    SF_CHANNEL_MAP_RIGHT,
    SF_CHANNEL_MAP_CENTER,
    SF_CHANNEL_MAP_LFE,
    SF_CHANNEL_MAP_REAR_LEFT,
    SF_CHANNEL_MAP_REAR_RIGHT,
    SF_CHANNEL_MAP_FRONT_LEFT_OF_CENTER,
    SF_CHANNEL_MAP_FRONT_RIGHT_OF_CENTER,
    SF_CHANNEL_MAP_REAR_CENTER,
    SF_CHANNEL_MAP_SIDE_LEFT,
    SF_CHANNEL_MAP_SIDE_RIGHT,
    SF_CHANNEL_MAP_TOP_CENTER,
    SF_CHANNEL_MAP_TOP_FRONT_LEFT,
    SF_CHANNEL_MAP_TOP_FRONT_CENTER,
    SF_CHANNEL_MAP_TOP_FRONT_RIGHT,
    SF_CHANNEL_MAP_TOP_REAR_LEFT,
    SF_CHANNEL_MAP_TOP_REAR_CENTER,
    SF_CHANNEL_MAP_TOP_REAR_RIGHT,
};

// The library ends its texts in full stops and line breaks; ours stand inside a line.
inline std::string reasonOf(SNDFILE* file)
{
    const std::string_view text = sf_strerror(file);
    return std::string(text.substr(0, text.find_last_not_of(" .\n") + 1));
}

} // namespace quorel
