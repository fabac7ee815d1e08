// SPDX-License-Identifier: MIT
// The kinds of audio files: told apart by a file's first bytes, never by its name, and chosen by name for a file that is written.
#pragma once

#include "platform/programs/input_file.h"

#include <cstdint>
#include <optional>
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

// The size in bytes that the file has at least if all the samples are there that its header tells of. Nothing where the header
// leaves that open, as a program does that writes into a pipe.
std::optional<std::uint64_t> bytesTold(const platform::InputFile& input, Container container);

} // namespace quorel
