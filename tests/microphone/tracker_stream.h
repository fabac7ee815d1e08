// SPDX-License-Identifier: MIT
// A tracker of the noise or of the signal takes a stream in any cuts, and each channel for itself.
#pragma once

#include "microphone/microphone_tables.h"
#include "tests/microphone/cases.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <random>

namespace quorel {

// Noise up to `loudness` through a tracker of two channels at once, and its second channel through one of its own frame by
// frame. What is left behind whole frames stays unread.
template <template <std::size_t> class Tracker, class Tables>
void expectChannelsAndCutsNotToMatter(const Tables& tables, float loudness)
{
    constexpr std::uint64_t frames = 12;
    constexpr std::uint64_t values = frames * gainBandCount + gainBandCount - 1;
    std::mt19937 random(13);
    std::uniform_real_distribution<float> uniform(-loudness, loudness);
    Tracker<2> together(tables);
    Tracker<1> alone(tables);
    SpectrumBuffer<2> both(values);
    SpectrumBuffer<1> one(gainBandCount);
    Buffer<float, 2> bothOut(frames * gainBandCount);
    Buffer<float, 1> oneOut(gainBandCount);
    for (std::uint64_t i = 0; i < values; ++i)
        for (std::size_t c = 0; c < 2; ++c)
            both.channel(c)[i] = {uniform(random), uniform(random)};
    both.setSize(values);
    one.setSize(gainBandCount);
    together.process(both, bothOut);
    EXPECT_EQ(bothOut.size(), frames * gainBandCount);
    for (std::uint64_t f = 0; f < frames; ++f) {
        std::copy_n(both.channel(1) + f * gainBandCount, gainBandCount, one.channel(0));
        alone.process(one, oneOut);
        for (std::size_t b = 0; b < gainBandCount; ++b)
            EXPECT_EQ(oneOut.channel(0)[b], bothOut.channel(1)[f * gainBandCount + b]) << "frame " << f << " band " << b;
    }
}

} // namespace quorel
