// SPDX-License-Identifier: MIT
// TakenAway is what noise reduction, curve and gate together take away: the mean levels of what went into the capture effect and
// of what came out, over the time between two answers of quorel-live:
//
//   level = 10 log10(energy of that time / samples of that time)
#pragma once

#include "panel/live_watch.h"

#include <algorithm>
#include <cmath>
#include <optional>
#include <utility>

namespace quorel {

struct MeanLevels {
    double inDb; // of full scale; a sine of full scale has -3
    double outDb;
};

class TakenAway {
public:
    static constexpr double silenceDb = -120; // what is lower counts as this

    // Nothing from the first answer of a host, nor while its microphone stands.
    std::optional<MeanLevels> next(const std::optional<LiveSide>& microphone);

private:
    std::optional<LiveSide> before;
};

// ---------------------------------------------------------------------------------------------------------------------

inline std::optional<MeanLevels> TakenAway::next(const std::optional<LiveSide>& microphone)
{
    const auto last = std::exchange(before, microphone);
    if (!last || !microphone || microphone->frames <= last->frames) // a host that began anew counts from 0
        return std::nullopt;
    const auto samples = static_cast<double>(microphone->frames - last->frames) * microphone->channels;
    const auto level = [samples](double energy) { return std::max(10 * std::log10(std::max(energy, 0.0) / samples), silenceDb); };
    return MeanLevels{level(microphone->inEnergy - last->inEnergy), level(microphone->outEnergy - last->outEnergy)};
}

} // namespace quorel
