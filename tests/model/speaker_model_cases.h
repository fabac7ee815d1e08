// SPDX-License-Identifier: MIT
// Signals, records and tables for the tests of the render model and its parts.
#pragma once

#include "tests/model/model_cases.h"
#include "tests/model/speaker_model.h"

#include <cmath>
#include <numbers>
#include <random>

namespace quorel::model {

inline constexpr std::uint32_t centreMask = 0x4;
inline constexpr std::uint32_t surroundMask = 0x63F;

inline Signal randomSignal(std::size_t n, std::uint32_t seed)
{
    std::mt19937 random(seed);
    Signal x(n);
    for (double& sample : x)
        sample = static_cast<double>(random()) / 2147483648.0 - 1.0;
    return x;
}

// Every speaker reaches both ears as it is, the room's decorrelation passes its own side.
inline SpeakerTables plainTables()
{
    SpeakerTables tables;
    tables.left.fill({1.0});
    tables.right.fill({1.0});
    tables.sameSide = {1.0};
    return tables;
}

inline RecordFields surroundRecord()
{
    RecordFields fields;
    fields.newRecord = true;
    fields.Settings = 1;
    fields.blockSequence = 1;
    return fields;
}

inline std::vector<float> impulse(std::size_t n, std::size_t at, float height = 1.0f)
{
    std::vector<float> x(n, 0.0f);
    x[at] = height;
    return x;
}

inline double angleOf(double hertz)
{
    return 2.0 * std::numbers::pi * hertz / 48000.0;
}

// The first sample out of the right side is the impulse behind the pre-delay and line 7's tap of
// one frame, through nothing but the leading coefficients.
inline constexpr double firstRight = 0.28867513 * 0.1524418 * 0.72 * 0.998721898 * 0.427282631;

} // namespace quorel::model
