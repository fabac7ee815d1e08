// SPDX-License-Identifier: MIT
// Reads measured head-related responses from files.
//
//   .sofa   AES69, convention SimpleFreeFieldHRIR, by libmysofa. The measured direction nearest to each speaker is taken, and
//           equalised by the diffuse field of all directions (client/diffuse_field.h).
//   other   a WAV file of fourteen channels, one pair of responses for each speaker but the woofer, near ear first:
//             1, 2  front left   left, right ear      8, 9   front right  right, left ear
//             3, 4  side left    left, right ear     10, 11  side right   right, left ear
//             5, 6  back left    left, right ear     12, 13  back right   right, left ear
//             7     front centre left ear            14      front centre right ear
#pragma once

#include "client/hrtf_set.h"

#include <functional>

namespace quorel {

// Degrees anticlockwise from the front, seen from above, in the order of `speakerTable`: the places of the built-in set. The
// woofer has none.
inline constexpr std::array<double, 8> speakerAzimuths = {30, 330, 0, 0, 145, 215, 105, 255};

// The direction that is taken may be so far from the speaker's, in degrees.
inline constexpr double farthestDirection = 15;

// Where nothing was measured within so many degrees of the speaker's direction, the directions around it are interpolated.
inline constexpr double nearDirection = 5;

// A shorter or longer response is none of a head.
inline constexpr std::size_t shortestResponse = 16;   // frames
inline constexpr std::size_t longestResponse = 65536; // frames

inline constexpr std::uint64_t largestHrtfFile = std::uint64_t{256} << 20; // bytes

enum class Equalize { byDiffuseField, none };

// At 48000 Hz, resampled where the file has another rate. Throws std::runtime_error with a text for the user. A file may be from
// anybody, and what reads it is made for good ones: so it is a regular file of a limited size, and libraries read it where a
// limit ends them. `wait` is called several times a second meanwhile, and may throw. Fourteen channels stay as they are.
MeasuredSet readHrtfFile(const std::string& path, Equalize equalize, const std::function<void()>& wait);

// A file's set as it is heard, and what the user should know of it, in lines.
struct ImportedSet {
    FittedSet set;
    std::vector<std::string> notes;
};

ImportedSet importHrtf(const std::string& path, Equalize equalize, double gainDb, const std::function<void()>& wait);

// What this build can read, for the help.
extern const char* const readableHrtfFiles;

} // namespace quorel
