// SPDX-License-Identifier: MIT
#include "microphone/microphone_path.h"

#include "core/buffer_arithmetic.h"
#include "core/dispatch.h"

#include <algorithm>

namespace quorel {

namespace {

// The gate keeps the coefficients of 16000 unless the rate is 48000; what else is wrong with a rate the stages tell.
const MicrophoneRateRow& gateRow(std::uint32_t sampleRate)
{
    return *microphoneRate(sampleRate == 48000 ? 48000 : 16000);
}

} // namespace

template <std::size_t N>
MicrophonePath<N, float>::MicrophonePath(std::uint32_t, std::uint32_t maxFrames, std::uint32_t sampleRate)
    : gateIn(maxFrames),
      gateOut(maxFrames),
      input(maxFrames),
      equalized(maxFrames),
      gate(gateRow(sampleRate).gateAttack, gateRow(sampleRate).gateRelease, gateCurve),
      eqCrossfader(maxFrames),
      equalizer(sampleRate),
      frequencyProc(sampleRate, bandLevels.data())
{
    if (microphoneRate(sampleRate) == nullptr)
        throw std::runtime_error("Unknown sampleRate in MicrophonePath");
}

template <std::size_t N>
void MicrophonePath<N, float>::process(InterleavedView in, InterleavedView out)
{
    if (record.applied == 0)
        applyRecord();

    PassThrough::deinterleave(in, input, 0);
    frequencyProc.process(input, input, noiseReductionOn, levelsOn, bandLevels.data());
    equalize();
    runGate();

    if (gateOut.size() > out.frames)
        throw std::invalid_argument("PassThrough: out buffer too small");
    for (std::size_t c = 0; c < N; ++c) {
        const float* row = gateOut.channel(c);
        for (std::uint64_t i = 0; i < gateOut.size(); ++i)
            out.data[i * N + c] = row[i];
    }
}

// Required: a curve is selected with every record, whatever field of it has changed, and restarts the filters from silence.
template <std::size_t N>
void MicrophonePath<N, float>::applyRecord()
{
    gateOn = record.noiseGate != 0;
    if (gateOn) {
        gateGain = gateGainTable[std::min(record.noiseGate, 255U)];
        if (gateGain != 0.0F)
            gateGainInverse = 1.0F / gateGain;
    }

    if (record.micEq >= 3)
        throw std::invalid_argument("MicrophonePath: EQ select index is out of bounds");
    eqOn = record.micEq != 0;
    if (eqOn) {
        equalizer.select(record.micEq);
        curve.request(record.micEq);
    }

    noiseReductionOn = record.MicNR != 0;
    levelsOn = record.levelsEnabled != 0;
    record.applied = 1;
}

// From `input` to `equalized`.
// Required: the curve stands selected already and each selection starts from silence, so that both sides of the crossfade
// are one signal. What the fade leaves is that the new curve starts from silent filters.
template <std::size_t N>
void MicrophonePath<N, float>::equalize()
{
    if (!eqOn) {
        PassThrough::process(input, equalized, 1.0F);
        return;
    }
    if (curve.changed)
        eqCrossfader.blendEqualizer(input, equalized, equalizer, curve);
    else
        equalizer.process(input, equalized);
}

// From `equalized` to `gateOut`.
template <std::size_t N>
void MicrophonePath<N, float>::runGate()
{
    if (!gateOn) {
        PassThrough::process(equalized, gateOut, 1.0F);
        return;
    }
    PassThrough::process(equalized, gateIn, gateGain);
    gate.process(gateIn, gateOut);
    gateOut *= gateGainInverse;
}

template class MicrophonePath<1, float>;
template class MicrophonePath<2, float>;
template class MicrophonePath<3, float>;
template class MicrophonePath<4, float>;
template class MicrophonePath<5, float>;
template class MicrophonePath<6, float>;
template class MicrophonePath<7, float>;
template class MicrophonePath<8, float>;

SignalPath::SignalPath(Microphone, std::int32_t channels, std::uint32_t channelMask, std::uint32_t maxFrames,
                       std::uint32_t sampleRate)
    : path(build<MicrophonePath>(channels, channelMask, maxFrames, sampleRate))
{
}

} // namespace quorel
