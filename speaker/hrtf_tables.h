// SPDX-License-Identifier: MIT
// The built-in head-related responses: how a short click on each speaker arrives at each ear.
//
// A response is `onset` silent frames and then the taps, at 48000 frames per second, so the difference of a pair's onsets
// and taps is the interaural time and level difference. The path transforms each response once when it is built; what it
// holds and plays with are spectra.
//
// They are designed from the HRTF measurement of a KEMAR dummy head by Bill Gardner and Keith Martin, MIT Media Lab, 1994;
// docs/hrtf_tables.md tells how.
#pragma once

#include <array>
#include <cstddef>

namespace quorel {

inline constexpr std::size_t responseTaps = 140;

struct EarResponse {
    std::size_t onset;                    // frames ahead of the first tap, at most 29
    std::array<float, responseTaps> taps; // the first is the largest
};

struct SpeakerResponses {
    EarResponse left;  // at the left ear
    EarResponse right; // at the right ear
};

// One row a speaker, in the order of `speakerTable`.
extern const std::array<SpeakerResponses, 8> speakerResponses;

} // namespace quorel
