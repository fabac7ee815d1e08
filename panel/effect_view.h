// SPDX-License-Identifier: MIT
// EffectView is what one look at the effect has told.
#pragma once

#include "core/settings_record.h"

#include <array>
#include <cstdint>
#include <string>

namespace quorel {

struct EffectView {
    enum class State : std::uint8_t { absent, hidden, there };

    State state = State::absent;   // hidden: the system lets nobody look, `trouble` tells why
    SettingsRecord settings;       // in force
    std::uint32_t channelMask = 0; // of the stream that was locked last
    float framesPerSecond = 0;     // of that stream; 0: none so far
    bool microphone = false;       // that stream has a microphone's format
    std::array<float, 9> levels{}; // dB, of the microphone's bands
    std::uint64_t written = 0;     // number of the newest changes that were tried before this look
    std::string trouble;           // why the newest could not be written, or nobody can look; empty: all is well
    std::string refusal;           // why the stream may refuse its blocks; empty: it does not
    std::string responsesFile;     // that the delivered responses came from; empty: none are, or nobody knows
};

} // namespace quorel
