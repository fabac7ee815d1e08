// SPDX-License-Identifier: MIT
// Agreement tells how far a float result lies from a double reference, in decibels:
//   10 log10(sum of reference^2 / sum of (result - reference)^2)
// over the whole run, and for the worst of its windows of 100 ms.
//
// It fails closed: a result or reference that is not finite counts as no agreement at all
// (minus infinity), and so does a run that holds no signal.

#pragma once

#include <cstddef>

#include "tests/model/parts.h"

namespace quorel::model {

class Agreement {
public:
    // Windows of `windowFrames` frames; those whose signal lies below `quietest` (root mean
    // square, full scale 1) are left out of `worstWindowDb`, for they hold rounding alone.
    explicit Agreement(std::size_t windowFrames, double quietest = 1e-4);

    // The next frames: `reference` interleaved without gaps, `result` with `stride` floats from
    // frame to frame, of which the first `channels` are compared.
    void add(const Signal& reference, const float* result, std::size_t channels, std::size_t stride);

    // The result of a run in doubles, for the comparison of one model with another.
    void add(const Signal& reference, const Signal& result, std::size_t channels);

    double decibels() const;
    double worstWindowDb() const;

    // Where the worst window begins, in frames from the start of the run.
    std::size_t worstWindowStart() const { return worstStart; }

    // The largest difference of a sample.
    double largestError() const { return largest; }

private:
    void addFrameSample(double reference, double result);
    void endFrame(std::size_t channels);

    std::size_t windowFrames;
    double quietest;

    double signal = 0.0;
    double error = 0.0;
    double largest = 0.0;
    std::size_t frames = 0;

    double windowSignal = 0.0;
    double windowError = 0.0;
    double worst;
    std::size_t worstStart = 0;
};

} // namespace quorel::model
