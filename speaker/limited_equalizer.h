// SPDX-License-Identifier: MIT
// limitedEqualizer is the stereo bus from the first limiter to the second, in one pass:
//
//   in --> first limiter --(+ room)--> mix --> equaliser --> second limiter --> side
//
// Each of the three is a stage of its own, and their results are those of one after the other. But an envelope waits for itself
// from frame to frame, and two limiters side by side wait together: so the block goes by in stretches, and the second limiter
// works on one while the first works on the next.
#pragma once

#include "core/buffer.h"
#include "speaker/equalizer.h"
#include "stages/compressor.h"

#include <algorithm>

namespace quorel {

constexpr std::uint64_t busStretch = 120; // frames, whole blocks of the equaliser

// n frames. The rows of `in` may be those of `mix`. With `room`, what `side` holds is added behind the first limiter.
inline void limitedEqualizer(const std::array<const float*, 2>& in, bool room, std::uint64_t n, Compressor<2>& first,
                             Equalizer& equalizer, Compressor<2>& second, Buffer<float, 2>& mix, Buffer<float, 2>& side)
{
    const auto behind = [](const auto& all, std::uint64_t at) { return std::array{all[0] + at, all[1] + at}; };
    const std::array<const float*, 2> equalized = rows(std::as_const(side));
    const std::array<float*, 2> limited = rows(mix);
    const std::array<float*, 2> out = rows(side);

    std::uint64_t left = 0; // frames that the second limiter has still to do, those ahead of `at`
    for (std::uint64_t at = 0; at < n || left > 0;) {
        const std::uint64_t count = std::min(busStretch, n - at);
        const std::uint64_t together = std::min(count, left);
        first.processBeside(second, behind(in, at), behind(limited, at), behind(equalized, at - left), behind(out, at - left),
                            together);
        first.process(behind(in, at + together), behind(limited, at + together), count - together);
        second.process(behind(equalized, at - left + together), behind(out, at - left + together), left - together);
        for (std::size_t ear = 0; room && count > 0 && ear < 2; ++ear)
            check(ippsAdd_32f_I(out[ear] + at, limited[ear] + at, length32(count)));
        if (count > 0)
            equalizer.process(rows(std::as_const(mix), at), behind(out, at), count);
        at += count;
        left = count;
    }
    mix.setSize(n);
    side.setSize(n);
}

} // namespace quorel
