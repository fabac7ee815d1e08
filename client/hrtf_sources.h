// SPDX-License-Identifier: MIT
// What reading a file of responses needs of libraries. One .cpp has it from them; the other does without, for a build that
// cannot have them.
#pragma once

#include "client/hrtf_file.h"

#include <cstddef>
#include <string>
#include <vector>

namespace quorel {

struct Recording {
    std::size_t channels = 0;
    double rate = 0; // frames per second
    std::size_t frames = 0;
    std::vector<float> samples; // interleaved
};

// An audio file's first `frames` frames at most. Each of these throws std::runtime_error with a text for the user, or with the
// reason alone, before which its caller names the file.
Recording readRecording(const std::string& path, std::size_t frames);

MeasuredSet readSofa(const std::string& path, Equalize equalize);

// A response at the effect's rate, for the same transfer function; all by the same time later.
std::vector<float> resampled(const std::vector<float>& taps, double rate);

// For both: brings a response to the effect's rate if it has another one, `delay` frames of its own rate later.
std::vector<float> atEffectRate(const std::vector<float>& taps, double delay, double rate);

// For both: the set as the convolver takes it, or why it cannot; and why responses of so many frames are refused.
FittedSet fitFile(const std::string& path, const MeasuredSet& measured, double gainDb);
std::string tooShort(std::size_t frames);

} // namespace quorel
