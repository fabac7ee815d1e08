// SPDX-License-Identifier: MIT
// The stages of the render effect as they are designed: built from the constant tables, for 48000 frames per second.
//
// All of it runs while a path is built. The responses are tabled as taps and transformed here, once.
#pragma once

#include "speaker/built_in_equalizer.h"
#include "speaker/direct_path.h"
#include "speaker/fdn.h"
#include "speaker/fdn_tables.h"
#include "speaker/hrtf_tables.h"
#include "speaker/response_spectrum.h"
#include "speaker/speaker_tables.h"
#include "speaker/xcorr_tables.h"

#include <vector>

namespace quorel {

// The rows of `speakerTable` that a path's channels are for.
template <std::size_t N>
using Speakers = std::array<std::size_t, N>;

template <std::size_t N>
DirectPath<N, float> builtInDirectPath(const Speakers<N>& speakers)
{
    std::vector<float> left;
    std::vector<float> right;
    for (const std::size_t row : speakers) {
        appendSpectrum(left, speakerResponses[row].left.taps, speakerResponses[row].left.onset);
        appendSpectrum(right, speakerResponses[row].right.taps, speakerResponses[row].right.onset);
    }
    return DirectPath<N, float>(left.data(), right.data());
}

template <std::size_t N>
FDN<N> builtInRoom(const Speakers<N>& speakers, std::uint64_t maxFrames)
{
    std::array<std::uint64_t, N> preDelays{};
    for (std::size_t c = 0; c < N; ++c)
        preDelays[c] = speakerTable[speakers[c]].preDelay;

    std::vector<float> correlation;
    appendSpectrum(correlation, sameSideTaps);
    appendSpectrum(correlation, crossSideTaps);
    constexpr std::uint64_t overlap = xcorrTaps - 1;

    return FDN<N>(preDelays, fdnMixingMatrix,
                  AllpassDiffuser(fdnColumn(&FdnLineRow::allpassDelay), fdnColumn(&FdnLineRow::allpassCoefficient)),
                  DelayLine(fdnColumn(&FdnLineRow::tapLeft), fdnColumn(&FdnLineRow::gainLeft), fdnColumn(&FdnLineRow::tapRight),
                            fdnColumn(&FdnLineRow::gainRight), fdnColumn(&FdnLineRow::length), maxFrames),
                  XCorrFreq<float>(correlation.data(), correlation.data() + transformLength, overlap), fdnLineFilters,
                  fdnOutputFilter, maxFrames);
}

} // namespace quorel
