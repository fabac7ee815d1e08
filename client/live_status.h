// SPDX-License-Identifier: MIT
// What the running quorel-live tells of itself, for its own command line, for quorel-control and for the panel.
#pragma once

#include "client/hrtf_delivery.h"

#include <nlohmann/json.hpp>
#include <optional>
#include <string>

namespace quorel {

// The folder of its lock and its socket. Throws std::runtime_error when the user has no folder for running programs.
std::string liveFolder();

// Gives it a command and returns its answer; nothing when none runs. Throws std::runtime_error when it refuses or does not
// answer.
std::optional<nlohmann::json> askLive(const std::string& command);

// How many channels its headphone device has; nothing when it has none.
std::optional<unsigned> liveSpeakers(const nlohmann::json& status);

// The speakers of its headphone device, which runs at 48000 Hz, by the status that was told; nothing where none was.
inline std::optional<std::uint32_t> liveMask(const std::optional<nlohmann::json>& status)
{
    const auto channels = status ? liveSpeakers(*status) : std::nullopt;
    return channels ? std::optional(layoutOf(*channels, 0)) : std::nullopt;
}

// Its sides' figures as a person reads them, a few lines a side.
std::string readableSides(const nlohmann::json& status);

} // namespace quorel
