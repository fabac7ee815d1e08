// SPDX-License-Identifier: MIT
// Takes out of measured responses what the loudspeaker, the microphones and the ear canals put into all of them: the average
// over all directions, which a head hears of a diffuse field. The built-in set is equalised in the same way.
//
//   field     mean power of all directions, each with the part of the sphere to which it is the nearest, under a Hann window of
//             a sixth of an octave over log frequency
//   filter    the field's inverse: as at 200 Hz below that, as at 20 kHz (or the end of the measured band) above; 0 dB at the
//             mean from 200 Hz to 12 kHz of both ears; from -15 to 15 dB
//   response  the magnitude behind the filter, smoothed likewise and as at 220 Hz below that, with minimum phase, later by as
//             much as the onset of the measured response lies behind that of the minimum-phase one
//
// What is measured below 200 Hz is noise, and its length would not fit into the convolver; the ears' delays are kept.
#pragma once

#include "client/hrtf_set.h"

#include <complex>

namespace quorel {

struct Direction {
    double x, y, z; // unit vector: to the front, to the left, up
};

double degreesBetween(const Direction& a, const Direction& b);

class DiffuseField {
public:
    // Responses of at most `frames` frames at 48000 Hz, which were measured at `rate`.
    DiffuseField(const std::vector<Direction>& directions, std::size_t frames, double rate);

    // The responses of a direction at 48000 Hz.
    void add(std::size_t direction, const MeasuredPair& pair);

    // Replaces the responses of the speakers; the woofer's stays. Every direction has been added.
    void equalize(MeasuredSet& set) const;

    // Whether the ears have filters of their own. Where one side is measured farther than the other, the ears' averages tell
    // of the directions that are there, and both get the filter of their mean.
    bool earsApart() const noexcept { return apart; }

    struct Range {
        double least, most; // dB
    };
    Range filterRange() const;

private:
    std::array<std::vector<double>, 2> logFilters() const;

    int order;                                // base-2 logarithm of the transforms' length
    double top;                               // Hz; nothing is measured above
    bool apart = true;                        // covered alike on both sides
    std::vector<double> shares;               // of the sphere, of each direction
    std::array<std::vector<double>, 2> power; // of each bin and ear
};

} // namespace quorel
