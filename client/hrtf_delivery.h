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

#include <cstdint>
#include <optional>
#include <string>

namespace quorel {

// The speakers of a set for so many channels: the stream's own where it has so many, else those of the usual layout.
std::uint32_t layoutOf(std::size_t channels, std::uint32_t activeMask);

// The stream that was locked last: whether there has been one, and whether it has a microphone's format (16000 Hz, or at most
// one speaker), which then says nothing of the speakers' stream.
bool streaming(const ControlClient& client);
bool microphoneLockedLast(const ControlClient& client);

// The speakers of the running stream: `told`, what a host tells of its own; else those of the stream that was locked last.
// Nothing when there has been none, or when it may be a microphone's.
std::optional<std::uint32_t> renderMask(const ControlClient& client, std::optional<std::uint32_t> told);

// Whether a set of all eight speakers is for the speakers' stream that runs: at 48000 Hz, and of 7.1.
enum class StreamFit : std::uint8_t {
    fits,
    other,   // it would refuse every block
    unknown, // a microphone's was locked last; the usual stream is one of 7.1
    none     // no stream runs
};

struct SpeakersStream {
    StreamFit fit;
    std::optional<std::uint32_t> mask; // nothing where nobody knows
    float rate;                        // of the stream that was locked last, frames per second
};

// told: as for renderMask.
SpeakersStream speakersStream(const ControlClient& client, std::optional<std::uint32_t> told);

// Delivers the set for the speakers of the mask, and returns its identity.
std::uint32_t deliverSet(ControlClient& client, const FittedSet& set, std::uint32_t channelMask);

// Keeps in a file of this user's which file the set of this identity came from. Throws std::runtime_error with a text for the
// user.
void rememberFile(std::uint32_t identity, const std::string& file);

// The file that the set of this identity came from; empty where nobody knows.
std::string rememberedFile(std::uint32_t identity);

struct Clearing {
    std::uint32_t channels = 0; // of the streams that have the built-in set back
    std::vector<std::uint32_t>
        others; // of streams that may still hold a set and refuse every block until they are cleared as well
};

// Brings the built-in set back in streams of so many channels; 0: as many as the running stream has if sets of so many were
// delivered, else those of the last delivery. Nothing when no set has been delivered, and then nothing has happened. told: as
// for renderMask.
std::optional<Clearing> clearSet(ControlClient& client, std::uint32_t channels, std::optional<std::uint32_t> told);

// What the running stream of the speakers refuses, and what ends that, for the user; nothing when all fits, or when nobody knows
// its speakers.
std::optional<std::string> refusalOfSet(const ControlClient& client, std::optional<std::uint32_t> told);

} // namespace quorel
