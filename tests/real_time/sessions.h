// SPDX-License-Identifier: MIT
// Whole sessions of both effects, for every method that watches the audio thread: a path and all that a host holds for it, with
// block lengths and settings that change from block to block, crossfades and samples of every kind.
//
// A session's constructor (channels, rate) prepares everything; run() is the audio thread's part, and its result depends on
// every output.
#pragma once

#include "core/signal_path.h"

#include <array>
#include <cstdint>
#include <limits>
#include <random>
#include <utility>
#include <vector>

namespace quorel {

// Noise, silence, denormal, huge, infinite samples and one that is not a number.
class EveryKindOfSample {
public:
    static constexpr std::uint32_t kinds = 8;

    void fill(float* samples, std::uint64_t count, std::uint32_t kind)
    {
        constexpr std::array<float, kinds> scales = {0.1F, 0.0F, 1e-41F, 8.0F, 1e30F, std::numeric_limits<float>::infinity(),
                                                     1.0F, 0.0F};
        for (std::uint64_t i = 0; i < count; ++i)
            samples[i] = scales[kind] * level();
        if (kind == 6)
            samples[0] = std::numeric_limits<float>::quiet_NaN();
    }

    float level() { return static_cast<float>(static_cast<std::int32_t>(random())) * 0x1p-31F; }

    std::minstd_rand random{1};
};

// A path and all that a host holds for it, ready to run without any further preparation.
class PathSession {
protected:
    // slots: samples of an output frame.
    PathSession(SignalPath&& built, std::size_t channels, std::uint32_t maxFrames, std::size_t slots)
        : path(std::move(built)), channels(channels), in(maxFrames * channels), out(maxFrames * slots)
    {
    }

    float process(std::uint64_t n, std::uint32_t kind)
    {
        samples.fill(in.data(), n * channels, kind);
        path->process(in.data(), n, out.data(), n);
        return out[0];
    }

    EveryKindOfSample samples;
    SignalPath path;
    std::size_t channels;

private:
    std::vector<float> in;
    std::vector<float> out;
};

// A delivered HRTF set, and a setting that changes at every block, in turn so that every crossfade runs alone and together
// with others.
class SpeakerSession : public PathSession {
public:
    static constexpr std::uint32_t maxFrames = 848;
    static constexpr std::uint32_t blocks = 64;

    SpeakerSession(std::int32_t channels, std::uint32_t rate)
        : PathSession(SignalPath(SignalPath::Speaker{}, channels, masks[static_cast<std::size_t>(channels)], maxFrames, rate),
                      static_cast<std::size_t>(channels), maxFrames, 8),
          set(2 * this->channels * 1024)
    {
        for (float& x : set)
            x = 0.01F * samples.level();
    }

    float run()
    {
        float sum = 0.0F;
        for (std::uint32_t block = 0; block < blocks; ++block) {
            change(block);
            sum += process(lengths[block % lengths.size()], block / EveryKindOfSample::kinds);
        }
        return sum;
    }

protected:
    static constexpr std::array<std::uint32_t, 9> masks = {0, 0x4, 0x3, 0x7, 0x33, 0x37, 0x3F, 0x61F, 0x63F};
    static constexpr std::array<std::uint64_t, 8> lengths = {1, 2, 3, 47, 128, 480, 847, 848};

private:
    void change(std::uint32_t block)
    {
        SettingsRecord& record = *path->settings();
        record.Settings = block % 5 != 0;
        record.Reverb = block % 3 * 90;
        record.EQBand[block % 9] = static_cast<std::int32_t>(samples.random() % 255) - 127;
        if (block % 16 == 15) {
            record.hrtfId = block;
            record.hrtfChannels = static_cast<std::uint32_t>(channels);
            record.hrtfLength = 1024;
            record.hrtfData = set.data();
        }
        record.blockSequence = block + 1;
        record.applied = 0;
    }

    std::vector<float> set;
};

// A setting changes at every block; the curve in turn so that every crossfade runs.
class MicrophoneSession : public PathSession {
public:
    static constexpr std::uint32_t maxFrames = 960;
    static constexpr std::uint32_t blocks = 64;

    MicrophoneSession(std::int32_t channels, std::uint32_t rate)
        : PathSession(SignalPath(SignalPath::Microphone{}, channels, 0, maxFrames, rate), static_cast<std::size_t>(channels),
                      maxFrames, static_cast<std::size_t>(channels))
    {
    }

    float run()
    {
        float sum = 0.0F;
        for (std::uint32_t block = 0; block < blocks; ++block) {
            change(block);
            sum += process(lengths[block % lengths.size()], block / EveryKindOfSample::kinds) + path->levels()[block % 9];
        }
        return sum;
    }

protected:
    static constexpr std::array<std::uint64_t, 8> lengths = {80, 240, 1, 100, 720, 47, 480, 960};

private:
    void change(std::uint32_t block)
    {
        SettingsRecord& record = *path->settings();
        record.MicNR = block % 3 != 0;
        record.micEq = block % 4 % 3;
        record.noiseGate = block * 7 % 300;
        record.levelsEnabled = block % 5 != 0;
        record.applied = 0;
    }
};

} // namespace quorel
