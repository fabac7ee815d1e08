// SPDX-License-Identifier: MIT
// An audio file that may be anything is read to its end, in blocks of two lengths.
#pragma once

#include "client/audio_decoder.h"
#include "tests/fuzz/fuzz.h"

#include <algorithm>
#include <bit>
#include <memory>
#include <optional>
#include <vector>

namespace quorel {

// What a file gives in blocks of `block` frames, up to a million samples; nothing where it is refused.
inline std::optional<std::vector<float>> readWhole(const std::string& path, bool allowTruncated, std::size_t block)
{
    constexpr std::size_t mostSamples = 1'000'000;
    try {
        AudioDecoder reader(std::make_unique<platform::InputFile>(path, [] {}), allowTruncated);
        require(reader.channels() > 0, "a file that is read has channels");
        const auto channels = static_cast<std::size_t>(reader.channels());
        std::vector<float> all;
        for (std::uint64_t got = block; got == block && all.size() < mostSamples;) {
            std::vector<float> x(block * channels);
            got = reader.read(x.data(), block);
            require(got <= block, "no more frames come than are asked for");
            all.insert(all.end(), x.begin(), x.begin() + static_cast<std::ptrdiff_t>(got * channels));
        }
        const auto told = reader.frames();
        require(!told || all.size() / channels <= *told, "no more frames come than the header tells of");
        return all;
    } catch (const std::runtime_error&) {
        return std::nullopt;
    }
}

inline int readAudio(const std::uint8_t* data, std::size_t size)
{
    const MemoryFile file(data, size);
    const auto strict = readWhole(file.path(), false, 480);
    const auto lenient = readWhole(file.path(), true, 480);
    require(!strict || lenient.has_value(), "what is read strictly is read leniently");
    const auto sameBits = [](float a, float b) { return std::bit_cast<std::uint32_t>(a) == std::bit_cast<std::uint32_t>(b); };
    require(!strict || std::equal(strict->begin(), strict->end(), lenient->begin(), lenient->end(), sameBits),
            "a whole file gives the same both ways");
    return 0;
}

} // namespace quorel
