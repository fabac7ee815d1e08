// SPDX-License-Identifier: MIT
// The constants of the reverberator: twelve lines, designed for 48000 frames per second.
//
// Only the speakers' pre-delays stand elsewhere, in the speakers' own table.
#pragma once

#include "core/kernels.h"

#include <array>

namespace quorel {

struct FdnLineRow {
    std::uint64_t length;  // frames, the time once round the line
    std::uint64_t tapLeft; // frames behind the line's input
    float gainLeft;        // linear
    std::uint64_t tapRight;
    float gainRight;
    std::uint64_t allpassDelay; // frames
    float allpassCoefficient;   // linear
};

extern const std::array<FdnLineRow, lineCount> fdnLineTable;

// One column of the lines' table.
template <typename T>
std::array<T, lineCount> fdnColumn(T FdnLineRow::*column)
{
    std::array<T, lineCount> values{};
    for (std::size_t l = 0; l < values.size(); ++l)
        values[l] = fdnLineTable[l].*column;
    return values;
}

// The entries are FeedbackMatrix's.
using FdnMixingMatrix = std::array<std::array<std::int8_t, PairMix::pairs>, lineCount>;
extern const FdnMixingMatrix fdnMixingMatrix;

// Six values a section, b0, b1, b2, a0, a1, a2: two sections in each line, four behind both ears.
extern const std::array<std::array<float, 12>, lineCount> fdnLineFilters;
extern const std::array<float, 24> fdnOutputFilter;

} // namespace quorel
