// SPDX-License-Identifier: MIT
// LevelDisplay shows the nine levels of the capture effect on a terminal, one bar for each, redrawn in place, as wide as the
// terminal lets them be.
#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <span>
#include <string>

namespace quorel {

// Where each band begins and ends at 16000 or 48000 frames per second, in Hz; one without frequencies ends where it begins.
std::array<std::array<double, 2>, 9> levelEdges(std::uint32_t sampleRate);

// The same for a person.
std::array<std::string, 9> levelCaptions(std::uint32_t sampleRate);

// Whether these levels are what stands in the block while no microphone runs; one that runs has none below -60 dB.
bool noMicrophone(std::span<const float, 9> levels);

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
