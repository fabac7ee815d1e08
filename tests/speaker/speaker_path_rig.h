// SPDX-License-Identifier: MIT
// A render path with its host's part, for the tests of the whole path.
#pragma once

#include "core/signal_path.h"

#include <algorithm>
#include <string>
#include <vector>

namespace quorel {

inline constexpr std::uint32_t sevenPointOne = 0x63F;

// A path with its host's part: the record that is delivered between blocks, and the two interleaved buffers.
class Rig {
public:
    explicit Rig(std::int32_t channels = 8, std::uint32_t mask = sevenPointOne, std::uint32_t maxFrames = 848)
        : channels(static_cast<std::size_t>(channels)), path(SignalPath::Speaker{}, channels, mask, maxFrames, 48000)
    {
    }

    SettingsRecord& settings() { return *path->settings(); }

    // Delivers the record as the settings poll does: with a new sequence, not applied.
    void deliver()
    {
        ++settings().blockSequence;
        settings().applied = 0;
    }

    // The interleaved stereo part of the output of one block.
    std::vector<float> process(std::vector<float> in)
    {
        const auto n = in.size() / channels;
        std::vector<float> frames(std::max<std::size_t>(n * 8, 8), 9.0F);
        path->process(in.data(), n, frames.data(), n);
        std::vector<float> stereo(2 * n);
        for (std::size_t i = 0; i < n; ++i)
            std::copy_n(frames.data() + 8 * i, 2, stereo.data() + 2 * i);
        return stereo;
    }

    std::vector<float> silence(std::size_t n) { return process(std::vector<float>(n * channels)); }

    // The text of the failure of a block of n frames of silence.
    std::string refusal(std::size_t n)
    {
        try {
            silence(n);
        } catch (const std::exception& error) {
            return error.what();
        }
        return "accepted";
    }

    std::size_t channels;
    SignalPath path;
};

inline double energy(const std::vector<float>& x)
{
    double sum = 0.0;
    for (const float sample : x)
        sum += static_cast<double>(sample) * static_cast<double>(sample);
    return sum;
}

// Settles a rig in one state of the surround switch, with no reverb, no pending change and silent stages.
inline void settle(Rig& rig, std::uint8_t surround, std::uint32_t reverb = 0)
{
    rig.settings().Settings = surround;
    rig.settings().Reverb = reverb;
    rig.deliver();
    for (int block = 0; block < 3; ++block)
        rig.silence(480);
}

} // namespace quorel
