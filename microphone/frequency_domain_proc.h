// SPDX-License-Identifier: MIT
// FrequencyDomainProc is the noise reduction of the capture effect, and its level meter.
//
// Frames of 5 ms go through the filter bank. Of each spectrum 16 bands are measured; a noise floor and a signal level follow
// every band, and both together decide one real gain for the band's bins. A second set of 10 bands feeds the meter. All of it
// runs on every frame, so that the estimates are settled when noise reduction is switched on; the switch decides only
// whether the resynthesised frames replace the input. State lies in the filter banks, the trackers and the gain law.
#pragma once

#include "microphone/band_dist.h"
#include "microphone/band_sum.h"
#include "microphone/bottom_tracker.h"
#include "microphone/filter_bank.h"
#include "microphone/microphone_tables.h"
#include "microphone/ogle.h"
#include "microphone/suppression_gain.h"
#include "stages/pass_through.h"

#include <cmath>

namespace quorel {

template <std::size_t N>
class FrequencyDomainProc {
public:
    // sampleRate: 16000 or 48000. levels: the nine that `process` will write, set to -60 dB here.
    FrequencyDomainProc(std::uint32_t sampleRate, float* levels);

    // A block of whole hops: with `writeBack` the cleaned signal replaces `out`, else `out` is left as it is; `in` and `out`
    // may be one object. Any other block is copied and nothing advances.
    // measureLevels: write the nine levels in dB; a tenth value lands behind them, for which `levels` must have room.
    void process(const Buffer<float, N>& in, Buffer<float, N>& out, bool writeBack, bool measureLevels, float* levels);

private:
    static const MicrophoneRateRow& rowOf(std::uint32_t sampleRate);
    FrequencyDomainProc(const MicrophoneRateRow& row, float* levels);

    void suppress();
    void measure(float* levels);

    // Configuration
    std::uint64_t fftLength; // bins
    std::uint64_t hop;       // samples
    std::uint64_t bandCount;
    std::uint64_t levelBandCount;
    float levelOffset; // dB; the meter reads 32.5 dB more than the mean of the channels' magnitudes

    // The stages, whose state is all that persists
    FilterBank<N> analysis;
    InverseFilterBank<N> synthesis;
    BandSum<N> bandSum;
    BandSum<N> levelBandSum;
    BandDist<N> bandDist;
    BottomTracker<N> noiseTracker;
    Ogle<N> signalTracker;
    Ogle<N> levelTracker;
    SuppressionGain<N> suppressor;

    // Scratch
    Buffer<float, N> frame; // one hop that is not written back
    SpectrumBuffer<N> spectrum;
    SpectrumBuffer<N> bandSpectrum;
    SpectrumBuffer<N> levelSpectrum;
    Buffer<float, N> levelEnvelope;
    Buffer<float, 1> levelSum; // nine sums over the channels, and a tenth that stays 0
    SpectrumBuffer<N> bandGains;
    Buffer<float, N> noiseFloor;
    Buffer<float, N> signalLevel;
};

// ---------------------------------------------------------------------------------------------------------------------

template <std::size_t N>
FrequencyDomainProc<N>::FrequencyDomainProc(std::uint32_t sampleRate, float* levels)
    : FrequencyDomainProc(rowOf(sampleRate), levels)
{
}

template <std::size_t N>
FrequencyDomainProc<N>::FrequencyDomainProc(const MicrophoneRateRow& row, float* levels)
    : fftLength(row.fftLength),
      hop(row.hop),
      bandCount(row.gainWidths.size()),
      levelBandCount(row.levelWidths.size()),
      levelOffset(20.0F * std::log10(static_cast<float>(N)) - 32.5F),
      analysis(fftLength, hop, row.analysisWindow),
      synthesis(fftLength, hop, row.synthesisWindow),
      bandSum(row.gainWidths, true),
      levelBandSum(row.levelWidths, true),
      bandDist(row.gainWidths),
      noiseTracker(noiseTrackerTables()),
      signalTracker(signalTrackerTables()),
      levelTracker(levelTrackerTables(row.sampleRate)),
      suppressor(suppressionTables()),
      frame(hop),
      spectrum(fftLength),
      bandSpectrum(bandCount),
      levelSpectrum(levelBandCount),
      levelEnvelope(levelBandCount),
      levelSum(levelBandCount - 1),
      bandGains(bandCount),
      noiseFloor(bandCount),
      signalLevel(bandCount)
{
    std::fill_n(levels, levelBandCount - 1, -60.0F);
}

template <std::size_t N>
const MicrophoneRateRow& FrequencyDomainProc<N>::rowOf(std::uint32_t sampleRate)
{
    const MicrophoneRateRow* row = microphoneRate(sampleRate);
    if (row == nullptr)
        throw std::runtime_error("Unknown sampleRate in FrequencyDomainProc");
    return *row;
}

template <std::size_t N>
void FrequencyDomainProc<N>::process(const Buffer<float, N>& in, Buffer<float, N>& out, bool writeBack, bool measureLevels,
                                     float* levels)
{
    const auto frameCount = in.size() / hop;
    if (frameCount * hop != in.size()) {
        PassThrough::process(in, out, 1.0F);
        return;
    }

    levelSpectrum.setSize(levelBandCount); // also for a first block without a frame, whose spectrum is zero
    for (std::uint64_t f = 0; f < frameCount; ++f) {
        for (std::size_t c = 0; c < N; ++c)
            analysis.lowerHalf(c, in.channel(c) + f * hop, spectrum.channel(c));
        suppress();
        for (std::size_t c = 0; c < N; ++c)
            synthesis.fromLowerHalf(c, spectrum.channel(c), writeBack ? out.channel(c) + f * hop : frame.channel(c));
    }
    out.setSize(frameCount * hop);

    if (measureLevels)
        measure(levels);
}

// `spectrum`, the lower half of one frame.
template <std::size_t N>
void FrequencyDomainProc<N>::suppress()
{
    spectrum.setSize(fftLength); // of which the bands read the lower half alone
    levelBandSum.process(spectrum, levelSpectrum);
    bandSum.process(spectrum, bandSpectrum);
    noiseTracker.process(bandSpectrum, noiseFloor);
    signalTracker.process(bandSpectrum, signalLevel);
    suppressor.process(noiseFloor, signalLevel, bandGains);
    for (std::size_t c = 0; c < N; ++c)
        bandDist.scaleLowerHalf(bandGains.channel(c), spectrum.channel(c));
}

// Required: the meter follows the block's last frame alone, whatever the number of its frames; level band 0 is not reported.
template <std::size_t N>
void FrequencyDomainProc<N>::measure(float* levels)
{
    const auto reported = levelBandCount - 1;
    float* sum = levelSum.channel(0);
    levelSum.clear();
    levelTracker.process(levelSpectrum, levelEnvelope);
    for (std::size_t c = 0; c < N; ++c)
        check(ippsAdd_32f_I(levelEnvelope.channel(c) + 1, sum, length32(reported)));
    for (std::uint64_t k = 0; k < reported; ++k)
        sum[k] = std::log10(sum[k]) * 20.0F;
    check(ippsSubC_32f_I(levelOffset, sum, length32(reported)));
    check(ippsThreshold_GT_32f_I(sum, length32(reported), 0.0F));
    // Required: all bands, so that the untouched sum behind the nine lands behind the nine levels as 0.
    check(ippsThreshold_LT_32f(sum, levels, length32(levelBandCount), -60.0F));
}

} // namespace quorel
