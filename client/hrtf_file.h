// Reads measured head-related responses from files.
//
//   .sofa   AES69, convention SimpleFreeFieldHRIR, by libmysofa. The measured direction nearest to each speaker is taken.
//   other   a WAV file of fourteen channels, one pair of responses for each speaker but the woofer, near ear first:
//             1, 2  front left   left, right ear      8, 9   front right  right, left ear
//             3, 4  side left    left, right ear     10, 11  side right   right, left ear
//             5, 6  back left    left, right ear     12, 13  back right   right, left ear
//             7     front centre left ear            14      front centre right ear
#pragma once

#include "client/hrtf_set.h"

namespace quorel {

// Degrees anticlockwise from the front, seen from above, in the order of `speakerTable`: the places of the built-in set. The
// woofer has none.
inline constexpr std::array<double, 8> speakerAzimuths = {30, 330, 0, 0, 145, 215, 105, 255};

// The direction that is taken may be so far from the speaker's, in degrees.
inline constexpr double farthestDirection = 15;

// A longer response is none of a head.
inline constexpr std::size_t longestResponse = 65536; // frames

// At 48000 Hz, resampled where the file has another rate. Throws std::runtime_error with a text for the user.
MeasuredSet readHrtfFile(const std::string& path);

// What this build can read, for the help.
extern const char* const readableHrtfFiles;

} // namespace quorel
