// SPDX-License-Identifier: MIT
// BlockPlan tells into what blocks a stream's frames are cut before they go through an effect, and how late that makes them.
//
// The server hands a stream one quantum of frames at a time. The render effect takes slices of it, so that no frame waits for
// later ones: a slice is the largest divisor of the quantum that the effect takes. A quantum that has none, and one whose
// length changes from call to call, is gathered to blocks of a fixed length. The capture effect always gathers.
#pragma once

#include <cstdint>
#include <numeric>

namespace quorel {

struct BlockPlan {
    std::uint32_t block; // frames that the effect gets at a time, always
    std::uint32_t delay; // frames of silence ahead of the sound

    bool operator==(const BlockPlan&) const = default;
};

inline constexpr std::uint32_t smallestSlice = 16;         // frames; below, a call costs more than its sound
inline constexpr std::uint32_t largestSlice = 848;         // the most frames that the render effect takes
inline constexpr std::uint32_t gatheredSpeakerBlock = 256; // frames
inline constexpr std::uint32_t microphoneBlock = 240;      // frames: noise reduction works in whole blocks of these

// Whether the render effect takes blocks of so many frames. Its reverb refuses those as long as one of its pre-delays.
constexpr bool isSlice(std::uint32_t frames) noexcept
{
    return frames >= smallestSlice && frames <= largestSlice && frames != 48 && frames != 64;
}

// The largest divisor of the quantum that is a slice; 0 if there is none.
constexpr std::uint32_t sliceOf(std::uint32_t quantum) noexcept
{
    for (std::uint32_t parts = 1; quantum / parts >= smallestSlice; ++parts)
        if (quantum % parts == 0 && isSlice(quantum / parts))
            return quantum / parts;
    return 0;
}

// Frames by which gathering calls of `quantum` frames to blocks of `block` makes the sound late.
constexpr std::uint32_t gatheringDelay(std::uint32_t quantum, std::uint32_t block) noexcept
{
    return block - std::gcd(quantum, block);
}

// varying: the quantum is only this call's, and the next one may have another.
constexpr BlockPlan speakerPlan(std::uint32_t quantum, bool varying) noexcept
{
    if (varying)
        return {gatheredSpeakerBlock, gatheredSpeakerBlock - 1};
    const std::uint32_t slice = sliceOf(quantum);
    return slice != 0 ? BlockPlan{slice, 0} : BlockPlan{gatheredSpeakerBlock, gatheringDelay(quantum, gatheredSpeakerBlock)};
}

} // namespace quorel
