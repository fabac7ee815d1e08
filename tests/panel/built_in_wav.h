// SPDX-License-Identifier: MIT
// A file of responses that an import takes.
#pragma once

#include "speaker/hrtf_tables.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace quorel {

inline void put(std::string& bytes, std::uint64_t value, int count)
{
    for (int i = 0; i < count; ++i)
        bytes += static_cast<char>(value >> (8 * i));
}

// The built-in set in a WAV file: 256 frames of floats at 48000 Hz, pairs of channels with the near ear first.
inline std::string builtInWav()
{
    struct Row {
        std::size_t speaker; // row of `speakerTable`
        std::size_t left;    // channel of the left ear
        std::size_t right;
    };
    constexpr auto rows = std::to_array<Row>({{0, 0, 1}, {6, 2, 3}, {4, 4, 5}, {2, 6, 13}, {1, 8, 7}, {7, 10, 9}, {5, 12, 11}});
    constexpr std::size_t frames = 256;
    std::vector<float> samples(14 * frames);
    for (const Row& row : rows) {
        const auto& pair = speakerResponses[row.speaker];
        for (const auto& [ear, channel] : {std::pair{&pair.left, row.left}, std::pair{&pair.right, row.right}})
            for (std::size_t i = 0; i < ear->taps.size(); ++i)
                samples.at((ear->onset + i) * 14 + channel) = ear->taps[i];
    }
    const std::size_t size = samples.size() * sizeof(float);
    std::string wav = "RIFF";
    put(wav, 36 + size, 4);
    wav += "WAVEfmt ";
    put(wav, 16, 4);
    put(wav, 3, 2); // floats
    put(wav, 14, 2);
    put(wav, 48000, 4);
    put(wav, 48000 * 14 * 4, 4);
    put(wav, 14 * 4, 2);
    put(wav, 32, 2);
    wav += "data";
    put(wav, size, 4);
    return wav + std::string(reinterpret_cast<const char*>(samples.data()), size);
}

} // namespace quorel
