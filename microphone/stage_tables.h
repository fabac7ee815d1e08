// SPDX-License-Identifier: MIT
// What the stages between the two transforms are built from; their own headers tell how it is used.
#pragma once

#include <vector>

namespace quorel {

// One entry for each band; magnitudes are linear, steps and factors are those of one frame.
struct BottomTrackerTables {
    std::vector<float> smoothing;    // share of the new magnitude in x
    std::vector<float> lowerLimit;   // lowest value to which the floor falls
    std::vector<float> riseStep;     // relative step of the rising floor
    std::vector<float> slowFall;     // factor of the falling floor, armed by a falling frame
    std::vector<float> fastFall;     // factor of the falling floor, armed by an onset and in use from the start
    std::vector<float> onsetRatio;   // a frame is steady when x > onsetRatio * p
    std::vector<float> initialFloor; // T at the start
    float epsilon;                   // least absolute step
};

// One entry for each band; the coefficients are shares of the distance that one frame covers.
struct OgleTables {
    std::vector<float> floor;       // lowest magnitude that enters the envelope
    std::vector<float> rise;        // of the envelope, when the magnitude lies above it
    std::vector<float> fall;        // of the envelope, when the magnitude lies at or below it
    std::vector<float> highRatio;   // the envelope is clearly above when envelope * highRatio >= estimate
    std::vector<float> lowRatio;    // the envelope is clearly below when estimate * lowRatio > envelope
    std::vector<float> catchUpRate; // of the estimate, when the envelope is clearly above
    std::vector<float> dropRate;    // of the estimate, when the envelope is clearly below
    std::vector<float> holdRate;    // of the estimate, otherwise
};

// One entry for each band.
struct SuppressionGainTables {
    float epsilon;                     // lower bound of the signal level
    std::vector<float> ratioScale;     // factor of noise / signal
    std::vector<float> maxSuppression; // 1 - lowest gain
    std::vector<float> smoothing;      // share of the target that one frame takes
    std::vector<float> noiseScale;     // factor of the noise floor itself
    std::vector<float> offset;         // what the ratio exceeds before there is any suppression, negative
};

} // namespace quorel
