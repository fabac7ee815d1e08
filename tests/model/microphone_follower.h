// SPDX-License-Identifier: MIT
// MicrophoneFollower runs the capture model beside a path and follows it through the comparisons
// that rounding decides.
//
// The trackers of noise reduction branch on comparisons: is the floor above the smoothed
// magnitude, is the envelope clearly above the estimate. Some of them, one in seconds, are so
// close that single precision may answer either way, and from there the floor or level goes one
// of two ways, percents apart, until they meet again. Both are right. At such a comparison the
// follower keeps a model for each way, and goes on with those whose output the path's agrees
// with. All other comparisons are the model's own, so a path that decides wrongly is not
// followed.

#pragma once

#include <array>
#include <cstddef>
#include <vector>

#include "tests/model/microphone_model.h"

namespace quorel::model {

class MicrophoneFollower {
public:
    // Comparisons within `margin` times their doubt may go either way.
    MicrophoneFollower(std::size_t channels, std::size_t maxFrames, std::uint32_t sampleRate, const MicrophoneWindows& windows,
                       double margin = 1e-6);

    // One block of the model, as `MicrophoneModel::process`; `result` is what the path made of
    // it, `n` interleaved frames, and `resultLevels` its nine levels. Returns the block of the
    // likeliest model that agrees. Both are not read in a block that the model refuses.
    Signal process(const RecordFields& fields, const float* in, std::size_t n, const float* result, const float* resultLevels);

    // The levels of that model.
    const std::array<double, 9>& levels() const { return branches.front().model.levels(); }

    // Close comparisons that it met so far.
    std::size_t closeComparisons() const { return branches.front().closeOnes; }

private:
    struct Branch {
        MicrophoneModel model;
        std::size_t closeOnes = 0;
        double stretch = 0.0; // distance over doubt of the comparisons that it turned, added up
        double error = 0.0;   // of the blocks so far, fading away over some blocks
        Signal output;        // of the last block
    };

    void grow(const Branch& before, const RecordFields& fields, const float* in, std::size_t n, std::vector<std::size_t> turned,
              std::vector<Branch>& grown);
    void weigh(std::vector<Branch>& grown, const float* result, const float* resultLevels);

    double margin;
    double signal = 0.0;          // energy of the blocks so far, fading like the errors
    std::vector<Branch> branches; // least stretched first, never empty
};

} // namespace quorel::model
