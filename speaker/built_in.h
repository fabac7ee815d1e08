// SPDX-License-Identifier: MIT
// The stages of the render effect as they are designed: built from the constant tables, for 48000 frames per second.
//
// All of it runs while a path is built. The responses are tabled as taps and transformed here, once.
#pragma once

#include "speaker/direct_path.h"
#include "speaker/equalizer_tables.h"
#include "speaker/fdn.h"
#include "speaker/fdn_tables.h"
#include "speaker/hrtf_tables.h"
#include "speaker/speaker_tables.h"
#include "speaker/xcorr_tables.h"

#include <algorithm>
#include <vector>

namespace quorel {

// The rows of `speakerTable` that a path's channels are for.
template <std::size_t N>
using Speakers = std::array<std::size_t, N>;

// The spectrum, in Pack form, of taps that begin `onset` frames late: 1024 floats.
inline void appendSpectrum(std::vector<float>& spectra, std::span<const float> taps, std::size_t onset = 0)
{
    FFT<float> fft(transformOrder);
    Buffer<float, 1> response(fft.length());
    Buffer<float, 1> spectrum(fft.length());
    std::copy(taps.begin(), taps.end(), response.channel(0) + onset);
    fft.Fwd(response, spectrum);
    spectra.insert(spectra.end(), spectrum.channel(0), spectrum.channel(0) + fft.length());
}

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

// Flat.
inline Equalizer builtInEqualizer()
{
    Equalizer equalizer(equalizerInteraction(), equalizerCentres, equalizerQ, equalizerSampleRate, equalizerShelfFactor);
    equalizer.design({});
    return equalizer;
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
