// SPDX-License-Identifier: MIT
// PeakHold keeps a meter's highest level to be seen: it stays for a while and then falls evenly, never below the level.
#pragma once

#include <algorithm>

namespace quorel {

class PeakHold {
public:
    static constexpr double holdSeconds = 1.5;
    static constexpr double fallPerSecond = 20; // dB

    explicit PeakHold(double floor) : peak(floor) {}

    // The peak at a level, in dB, that is read so many seconds after the one before.
    double next(double level, double seconds);

private:
    double peak;    // dB
    double age = 0; // seconds since it was reached
};

// ---------------------------------------------------------------------------------------------------------------------

inline double PeakHold::next(double level, double seconds)
{
    const double falling = std::clamp(age + seconds - holdSeconds, 0.0, seconds); // the part of this time in which it falls
    age += seconds;
    peak -= fallPerSecond * falling;
    if (!(level < peak)) {
        peak = level;
        age = 0;
    }
    return peak;
}

} // namespace quorel
