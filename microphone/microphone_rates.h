// SPDX-License-Identifier: MIT
// The sample rates that the capture effect runs at, and what depends on them.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

namespace quorel {

// A frame is `hop` new samples, 5 ms at both rates.
constexpr std::size_t gainBandCount = 16;  // bands of the gain law
constexpr std::size_t levelBandCount = 10; // bands of the level meter, the first of which is never reported

// The taps of the equaliser's five sections: b0, b1, b2, a0, a1, a2 of each.
using CurveTaps = std::array<float, 30>;

struct MicrophoneRateRow {
    std::uint32_t sampleRate;                              // frames per second
    std::uint64_t fftLength;                               // bins of a spectrum
    std::uint64_t hop;                                     // samples
    std::uint64_t latency;                                 // samples by which noise reduction delays
    std::array<std::uint64_t, gainBandCount> gainWidths;   // bins of each band, half a spectrum in all
    std::array<std::uint64_t, levelBandCount> levelWidths; // the same
    std::span<const float> analysisWindow;
    std::span<const float> synthesisWindow;
    std::array<CurveTaps, 3> curves; // flat; low and high lifted; all below 200 Hz cut
    float gateAttack;                // 1 - exp(-1 / (sampleRate * 3 ms))
    float gateRelease;               // 1 - exp(-1 / (sampleRate * 1.2 s))
};

// Null for a rate that the capture effect does not run at.
const MicrophoneRateRow* microphoneRate(std::uint32_t sampleRate) noexcept;

} // namespace quorel
