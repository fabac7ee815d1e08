// SPDX-License-Identifier: MIT
// A locked stream of the effect object, driven through the audio thread's entry by blocks of every kind, while another thread
// steers the settings through the shared block as a control application does.
#pragma once

#include "tests/host/control.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <random>
#include <stdexcept>
#include <thread>
#include <utility>
#include <vector>

namespace quorel {

// An endpoint's kind and its stream.
struct Kind {
    const char* list; // of endpoints
    UNCOMPRESSEDAUDIOFORMAT format;
};

inline const Kind render = {"Render", surroundFormat()};
inline const Kind capture = {"Capture", voiceFormat()};

// A locked stream, of an endpoint that is in the registry, and the thread that steers it.
class EffectSession {
public:
    explicit EffectSession(const Kind& kind) : EffectSession(kind, std::make_unique<Effect>()) {}

    EffectSession(const Kind& kind, std::unique_ptr<Effect> made)
        : owner(std::move(made)), effect(*owner), channels(kind.format.dwSamplesPerFrame)
    {
        if (effect.initialize() != S_OK || effect.lock(kind.format, maxFrames) != S_OK)
            throw std::runtime_error("no stream");
        in.resize(std::size_t{maxFrames + 1} * channels);
        out.resize(in.size());
        application.emplace();
        for (std::size_t i = 0; i < 16384; ++i) // two responses of 512 bins for each of eight channels
            application->share[i] = 0.01F * level();
        steering = std::thread([this] { steer(); });
        if (!eventually([this] { return application->block->sequence != 0; })) // a thread that starts allocates
            throw std::runtime_error("no steering");
    }

    ~EffectSession()
    {
        platform::setEvent(stop);
        steering.join();
        platform::closeHandle(stop);
    }

    // Returns how many different settings the path was given.
    std::uint32_t run(std::uint32_t count)
    {
        constexpr std::array<UINT32, 8> lengths = {1, 2, 3, 47, 128, 480, 847, 848};
        constexpr std::array<float, 4> scales = {0.1F, 0.0F, 1e-41F, 8.0F}; // 1e-41 is denormal
        std::uint32_t updates = 0;
        std::uint32_t last = 0;
        for (std::uint32_t block = 0; block < count; ++block) {
            const UINT32 n = lengths[block % lengths.size()];
            const float scale = scales[block / 64 % scales.size()];
            for (std::size_t i = 0; i < std::size_t{n} * channels; ++i)
                in[i] = scale * level();
            const auto flags = block % 7 == 3 ? BUFFER_SILENT : block % 11 == 5 ? BUFFER_INVALID : BUFFER_VALID;
            if (effect.process(in.data(), out.data(), n, flags) != flags)
                throw std::runtime_error("a block failed");
            const auto sequence = effect.record().blockSequence;
            updates += sequence != last ? 1 : 0;
            last = sequence;
        }
        return updates;
    }

    // A block that the path refuses.
    void fail()
    {
        if (effect.process(in.data(), out.data(), maxFrames + 1) != BUFFER_INVALID)
            throw std::runtime_error("a block did not fail");
    }

private:
    float level() { return static_cast<float>(static_cast<std::int32_t>(random())) * 0x1p-31F; }

    // The control application: new settings, and a look at the levels.
    void steer()
    {
        SettingsRecord settings;
        settings.levelsEnabled = 1;
        settings.hrtfChannels = 8;
        settings.hrtfLength = 1024;
        volatile float seen = 0.0F;
        for (std::uint32_t update = 0; !platform::waitFor(stop, 1); ++update) { // a wait that allocates nothing
            settings.Settings = update % 5 != 0;
            settings.Reverb = update % 3 * 90;
            settings.EQBand[update % 9] = static_cast<std::int32_t>(update % 255) - 127;
            settings.MicNR = update % 2 != 0;
            settings.micEq = update % 3;
            settings.noiseGate = update % 4 * 50;
            settings.hrtfId = update / 16;
            application->update(settings);
            seen = application->block->levels[0];
        }
        static_cast<void>(seen);
    }

    static constexpr UINT32 maxFrames = 848; // that fit the convolver

    std::unique_ptr<Effect> owner;
    Effect& effect;
    std::size_t channels;
    std::vector<float> in;
    std::vector<float> out;
    std::minstd_rand random{1};
    std::optional<ControlApplication> application;
    platform::Handle stop = platform::createEvent(nullptr, nullptr);
    std::thread steering;
};

} // namespace quorel
