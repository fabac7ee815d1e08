// SPDX-License-Identifier: MIT
// MicrophonePath is the capture effect: one block of N interleaved channels in, one of N cleaned channels out.
//
//   input -> noise reduction -> equaliser curve -> gate -> output
//
// Channels stay apart but for the gate, which follows the loudest of them, and the level meter, which adds them up. All state
// lies in the stages; there is no reset.
#pragma once

#include "core/interleaved_view.h"
#include "core/settings_record.h"
#include "core/signal_path.h"
#include "microphone/frequency_domain_proc.h"
#include "microphone/mic_equalizer.h"
#include "stages/compressor.h"
#include "stages/crossfader.h"

namespace quorel {

template <std::size_t N, typename T>
class MicrophonePath;

template <std::size_t N>
class MicrophonePath<N, float> {
public:
    // channelMask is ignored. maxFrames: the most frames of one block. sampleRate: 16000 or 48000.
    MicrophonePath(std::uint32_t channelMask, std::uint32_t maxFrames, std::uint32_t sampleRate);

    // `in` and `out` have N samples a frame and may be one array. Frames of `out` beyond the block are not touched.
    // Noise reduction and the meter run in blocks of whole hops of 5 ms only.
    void process(InterleavedView in, InterleavedView out);

    // Nine levels in dB, -60 to 0, of the last block that was measured.
    const float* levels() const noexcept { return bandLevels.data(); }

    // The path's own record, which it takes over at the start of a block when `applied` is 0.
    SettingsRecord& settings() noexcept { return record; }

    // As last applied: the linear gain ahead of the gate, and the curve with whether its crossfade is to come.
    float appliedGateGain() const noexcept { return gateGain; }
    const PendingValue<std::uint64_t>& appliedCurve() const noexcept { return curve; }

private:
    void applyRecord();
    void equalize();
    void runGate();

    // Scratch: the block on its way
    Buffer<float, N> gateIn;  // the signal after the pre-gain
    Buffer<float, N> gateOut; // the block's final signal
    Buffer<float, N> input;   // the block in rows; noise reduction works in place
    Buffer<float, N> equalized;

    // dB; the tenth place takes what the meter writes behind the nine. Built ahead of `frequencyProc`, which sets it.
    std::array<float, 10> bandLevels = {-60.0F, -60.0F, -60.0F, -60.0F, -60.0F, -60.0F, -60.0F, -60.0F, -60.0F, -60.0F};

    // The stages, with their state
    Compressor<N> gate;
    Crossfader<N> eqCrossfader;
    MicEqualizer<N> equalizer;
    FrequencyDomainProc<N> frequencyProc;

    // The settings, and the record as last applied
    SettingsRecord record;
    float gateGain = 1.0F;                       // linear, ahead of the gate: moves the level at which it opens
    float gateGainInverse = 1.0F;                // behind it
    PendingValue<std::uint64_t> curve{0, false}; // the curve that the equaliser last changed to; a change awaits its crossfade
    bool gateOn = true;
    bool eqOn = true;
    bool noiseReductionOn = false;
    bool levelsOn = false;
};

} // namespace quorel
