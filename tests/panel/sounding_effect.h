// SPDX-License-Identifier: MIT
// A real effect of this process with a stream that sounds: a tone on the front left goes through it in blocks of 128 frames, as
// fast as they are heard. A block is two whole periods, so as long as no setting changes each sounds like the one before.
#pragma once

#include "core/signal_path.h"
#include "settings/settings_handler.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <numbers>
#include <optional>
#include <thread>
#include <vector>

namespace quorel {

class SoundingEffect {
public:
    using Clock = std::chrono::steady_clock;

    SoundingEffect() : thread([this] { run(); }) { settings->writeActiveFormat(0x63F, rate); }
    ~SoundingEffect()
    {
        ending = true;
        thread.join();
    }
    SoundingEffect(const SoundingEffect&) = delete;
    SoundingEffect& operator=(const SoundingEffect&) = delete;

    // Whether a tenth of a second has sounded alike; from then on the next change is looked for.
    bool steady()
    {
        if (alike < 40)
            return false;
        changedAt = 0;
        return true;
    }

    // The end of the first block since then that sounded otherwise than the one before.
    std::optional<Clock::time_point> changed() const
    {
        const auto at = changedAt.load();
        return at == 0 ? std::nullopt : std::optional(Clock::time_point(Clock::duration(at)));
    }

    // The settings that the next block will sound with.
    SettingsRecord inForce()
    {
        SettingsRecord record;
        settings->poll(record);
        return record;
    }

private:
    static constexpr std::uint32_t rate = 48000; // frames per second
    static constexpr std::size_t frames = 128;   // of a block
    static constexpr std::size_t slots = 8;      // of a frame, in and out

    void run()
    {
        std::vector<float> in(frames * slots);
        std::vector<float> out(frames * slots);
        for (std::size_t i = 0; i < frames; ++i)
            in[i * slots] = 0.1F * static_cast<float>(std::sin(2 * std::numbers::pi * 2 * static_cast<double>(i) / frames));
        double before = 0;
        for (auto due = Clock::now(); !ending; due += std::chrono::nanoseconds(1000000000LL * frames / rate)) {
            std::this_thread::sleep_until(due);
            settings->poll(*path->settings());
            path->process(in.data(), frames, out.data(), frames);
            double energy = 0;
            for (std::size_t i = 0; i < frames; ++i)
                energy += static_cast<double>(out[i * slots]) * static_cast<double>(out[i * slots]);
            const bool same = std::abs(energy - before) < 1e-3 * energy;
            before = energy;
            alike = same ? alike + 1 : 0;
            if (std::int64_t none = 0; !same)
                changedAt.compare_exchange_strong(none, Clock::now().time_since_epoch().count());
        }
    }

    std::shared_ptr<SettingsHandler> settings = SettingsHandler::instance(SettingsHandler::layoutVersion);
    SignalPath path{SignalPath::Speaker{}, slots, 0x63F, frames, rate};
    std::atomic<bool> ending = false;
    std::atomic<int> alike = 0;              // blocks, up to the last
    std::atomic<std::int64_t> changedAt = 0; // by the clock; 0: not since
    std::thread thread;
};

} // namespace quorel
