// SPDX-License-Identifier: MIT
// MeterLevel is what a meter shows: a level and its peak, in whole dB from -60 to 0.
#pragma once

#include "panel/peak_hold.h"

#include <cmath>

namespace quorel {

class MeterLevel {
public:
    static constexpr int lowest = -60; // dB

    // False when it looks as before. seconds: since the last time.
    bool next(double levelDb, double seconds);

    int level() const { return level_; }
    int peak() const { return peak_; }

private:
    PeakHold hold{lowest};
    int level_ = lowest;
    int peak_ = lowest;
};

// ---------------------------------------------------------------------------------------------------------------------

inline bool MeterLevel::next(double levelDb, double seconds)
{
    const double measured = levelDb > lowest ? std::min(levelDb, 0.0) : lowest; // also what is no number
    const int peakNow = static_cast<int>(std::lround(hold.next(measured, seconds)));
    const int levelNow = static_cast<int>(std::lround(measured));
    const bool changed = levelNow != level_ || peakNow != peak_;
    level_ = levelNow;
    peak_ = peakNow;
    return changed;
}

} // namespace quorel
