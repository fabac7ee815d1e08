// SPDX-License-Identifier: MIT
// What frames that were lost in real time say: that quorel-live is at fault, or nothing, since the system kept no time itself.
#pragma once

#include <string>

namespace quorel {

enum class Verdict { passed, failed, excused };

// For how long the machine stood still at worst, in ms.
struct Stalls {
    double before = 0; // with nothing to do
    double meanwhile = 0;
    double after = 0; // with nothing to do again
};

// scheduling: of the audio thread, as quorel-live tells it.
inline Verdict verdictOn(long gaps, const std::string& scheduling, const Stalls& stalls)
{
    constexpr double bearable = 1.0; // ms
    if (gaps == 0)
        return Verdict::passed;
    const bool granted = scheduling.starts_with("FIFO ") || scheduling.starts_with("round robin ");
    const bool still = stalls.before <= bearable && stalls.meanwhile <= bearable && stalls.after <= bearable;
    return granted && still ? Verdict::failed : Verdict::excused;
}

} // namespace quorel
