// SPDX-License-Identifier: MIT
// MicEqualizer applies one of three fixed curves to each channel: five second-order sections in a row.
//
// The curves are those of the stream's rate; curve 0 is flat. Each channel has its own history, which persists between blocks.
#pragma once

#include "microphone/microphone_tables.h"
#include "stages/biquad.h"

namespace quorel {

template <std::size_t N>
class MicEqualizer {
public:
    // sampleRate: 16000 or 48000. Starts with curve 0.
    explicit MicEqualizer(std::uint32_t sampleRate);

    // index: 0 to 2, which the caller has seen to.
    // Required: every selection starts the filters from silence, also that of the curve in use.
    void select(std::uint64_t index) { filter.setCoefficients(curves[index]); }

    // The selection as a crossfade makes it.
    void design(std::uint64_t index) { select(index); }

    void process(const Buffer<float, N>& in, Buffer<float, N>& out) { filter.process(in, out); }

private:
    static constexpr std::uint64_t sections = 5;
    static const MicrophoneRateRow& rowOf(std::uint32_t sampleRate);

    Biquad<N> filter;
    std::array<CurveTaps, 3> curves;
};

// ---------------------------------------------------------------------------------------------------------------------

template <std::size_t N>
MicEqualizer<N>::MicEqualizer(std::uint32_t sampleRate) : filter(sections), curves(rowOf(sampleRate).curves)
{
    select(0);
}

template <std::size_t N>
const MicrophoneRateRow& MicEqualizer<N>::rowOf(std::uint32_t sampleRate)
{
    const MicrophoneRateRow* row = microphoneRate(sampleRate);
    if (row == nullptr)
        throw std::runtime_error("Unknown sampleRate in MicEqualizer");
    return *row;
}

} // namespace quorel
