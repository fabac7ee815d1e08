// SPDX-License-Identifier: MIT
// The kinds of audio files: told apart by a file's first bytes, never by its name, and chosen by name for a file that is written.
#pragma once

#include "platform/programs/input_file.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace quorel {

enum class Container : std::uint8_t { wav, rf64, w64, flac, aiff, caf };

// Nothing where it is none of them.
std::optional<Container> containerOf(const platform::InputFile& input);

// By the ending of a file's name without its dot, or the name of the kind, in any case; nothing for an unknown one.
std::optional<Container> containerNamed(std::string_view name);

// Every name that containerNamed takes, for the user.
inline constexpr const char* containerNames = "wav, flac, w64, rf64, aiff (aif, aifc) or caf";

// Whether a file without a word about its speakers has the usual ones, in the order of the speaker mask.
bool hasUsualSpeakers(Container container) noexcept;

// Where the samples stand, and what the header tells of their length.
struct SampleChunk {
    std::uint64_t place;               // of the first byte behind the chunk's header
    std::optional<std::uint64_t> told; // bytes; nothing where that is left open, as by a program that writes into a pipe
    bool neverFilledIn = false;        // what wrote the file meant to tell the lengths at its end, and never got there
    std::uint64_t wordPlace = 0;       // of the size in the chunk's header
    std::size_t wordBytes = 0;
    bool bigEndian = false;
};

// Nothing where they are not found, and of FLAC, whose decoder tells.
std::optional<SampleChunk> samplesOf(const platform::InputFile& input, Container container);

// A number as it stands in a file.
std::string bytesOf(std::uint64_t number, std::size_t bytes, bool bigEndian);

} // namespace quorel
