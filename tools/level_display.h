// SPDX-License-Identifier: MIT
// LevelDisplay shows the nine levels of the capture effect on a terminal, one bar for each, redrawn in place.
#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <string>

namespace quorel {

// The frequencies of each band at 16000 or 48000 frames per second.
std::array<std::string, 9> levelCaptions(std::uint32_t sampleRate);

class LevelDisplay {
public:
    // sampleRate: 16000 or 48000, which decides the bands.
    explicit LevelDisplay(std::uint32_t sampleRate);

    // Whether standard error is a terminal that can move its cursor up; without one nothing is ever drawn.
    bool usable() const noexcept { return !up.empty(); }

    // levels: nine, in dB. seconds: of sound so far. Draws when the last picture has stood for 40 ms, or at once when asked to.
    void show(const float* levels, double seconds, bool atOnce = false);

private:
    std::string up;                      // moves the cursor to the picture's first line
    std::string clear;                   // clears the rest of a line
    std::array<std::string, 9> captions; // the frequencies of each band
    bool drawn = false;
    std::chrono::steady_clock::time_point last;
};

} // namespace quorel
