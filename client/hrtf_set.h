// SPDX-License-Identifier: MIT
// Sets of head-related responses: what a file gives, what the convolver takes, and what stands in the share.
//
// A measured response may be long and begin late; the convolver takes 177 taps, the onset counted. A fitted set is the
// measured one between a common first frame, so that the times between the ears and between the speakers stay, and 177 frames
// later, where a short fade ends it. Its level is that of the built-in set: pink noise on every speaker but the woofer gives
// the ears the same power. The woofer is heard without a head, as in the built-in set: one tap of 0.707 for both ears, at the
// front centre's main tap.
#pragma once

#include "speaker/speaker_tables.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace quorel {

inline constexpr std::size_t fittedTaps = 177;      // an overlap of 176 frames and the frame itself
inline constexpr std::size_t spectrumFloats = 1024; // of one response in the share
inline constexpr std::uint32_t hrtfRate = 48000;    // frames per second
inline constexpr std::size_t woofer = 3;            // row of `speakerTable`
inline constexpr double mostCut = 0.1;              // share of a response's energy that may be cut

// For messages, in the order of `speakerTable`.
extern const std::array<const char*, 8> speakerNames;

struct MeasuredPair {
    std::vector<float> left; // at the left ear
    std::vector<float> right;
};

struct MeasuredSet {
    std::array<MeasuredPair, 8> speakers; // at 48000 Hz, in the order of `speakerTable`; the woofer's is unused
    std::string origin;                   // what was taken from where, for the user; lines
};

struct FittedSet {
    std::array<std::array<std::array<float, fittedTaps>, 2>, 8> taps; // of each speaker, left ear first
    std::array<std::array<double, 2>, 8> cut{}; // share of each response's energy that was cut, 0 to 1; the woofer's 0
    double worstCut = 0;                        // the largest share of a response's energy that was cut, 0 to 1
    std::string worstName;                      // whose
    std::size_t skipped = 0;                    // frames before the first that was taken
    double gainDb = 0;                          // by which the taps were scaled
};

// Throws std::runtime_error with a text for the user if a response is silent or holds a value that is no number, or loses
// more than `mostCut` of its energy. gainDb: on top of the built-in set's level.
FittedSet fitSet(const MeasuredSet& measured, double gainDb);

// When a response begins: frames to its first tap above a tenth of the largest, in milliseconds.
double arrivalMs(std::span<const float> taps);

// Mean power in the third octaves at 63, 125 Hz and so on to 16 kHz.
std::array<double, 9> octavePowers(std::span<const float> taps);

// Levels in the third octaves at 63, 125 Hz and so on to 16 kHz, of the energy summed over the speakers but the woofer and over
// both ears, against the built-in set's, in dB.
std::array<double, 9> colourOf(const FittedSet& set);

// What stands in the share for the speakers of the mask: the left-ear spectra in their order, then the right-ear ones.
std::vector<float> packSet(const FittedSet& set, std::uint32_t channelMask);
std::vector<float> packBuiltInSet(std::uint32_t channelMask);

// Rows of `speakerTable` that the mask names, in order.
std::vector<std::size_t> rowsOf(std::uint32_t channelMask);

} // namespace quorel
