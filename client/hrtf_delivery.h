// SPDX-License-Identifier: MIT
// Gives a running effect another set of head-related responses, or its own back.
//
// Only a render path with as many channels as the set can take it; one with another number that sees the identity change
// refuses every block. A path that holds a delivered set takes the built-in one back through the share, too, when the channels
// that are told with it are its own. So the identity remembers for how many channels sets have been delivered since the
// built-in set was in force: bit N - 1 stands for N channels. Its upper 24 bits tell one delivery from another.
#pragma once

#include "client/control_client.h"
#include "client/hrtf_set.h"

#include <optional>
#include <string>

namespace quorel {

// The speakers of a set for so many channels: the stream's own where it has so many, else those of the usual layout.
std::uint32_t layoutOf(std::size_t channels, std::uint32_t activeMask);

// Delivers the set for the speakers of the mask.
void deliverSet(ControlClient& client, const FittedSet& set, std::uint32_t channelMask);

// Brings the built-in set back in streams of so many channels; 0: as many as the running stream has if sets of so many were
// delivered, else those of the last delivery. Returns the channels of streams that may still hold a set and refuse every block
// until they are cleared as well; nothing when no set has been delivered, and then nothing has happened.
std::optional<std::vector<std::uint32_t>> clearSet(ControlClient& client, std::uint32_t channels);

// What the running stream may refuse, and what ends that, for the user; nothing when all fits.
std::optional<std::string> refusalOfSet(const ControlClient& client);

} // namespace quorel
