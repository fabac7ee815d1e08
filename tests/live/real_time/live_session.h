// SPDX-License-Identifier: MIT
// Both sides' part of the audio thread, every effect on, for the tests that watch it.
#pragma once

#include "live/path_change.h"
#include "tests/live/steered.h"

namespace quorel {

// Everything stands before `run`: the stream that it goes over to is built when it is asked for, by whoever calls `serve`.
class LiveSession {
public:
    LiveSession()
    {
        SettingsRecord all;
        all.Settings = 1;
        all.Reverb = 120;
        all.EQBand = {30, -30, 30, -30, 30, -30, 30, -30, 30};
        all.MicNR = 1;
        all.micEq = 1;
        all.noiseGate = 60;
        const std::uint32_t sequence = control.update(all);
        SettingsRecord seen;
        EXPECT_TRUE(eventually([&] {
            settings->poll(seen);
            return seen.blockSequence == sequence;
        }));
        change.begin(stream({480, 0}));
        microphone = std::make_unique<EffectStream>(StreamKind{true, 1, 0x4}, BlockPlan{240, 0}, settings, bypass, status);
    }

    void run(std::uint32_t quantum)
    {
        for (int i = 0; i < 8; ++i) {
            bypass = i == 3;
            render(from.data(), to.data(), quantum, false);
            capture(from.data(), to.data(), quantum);
        }
    }

    void render(const float* const* rows, float* const* made, std::uint32_t n, bool varying)
    {
        change.process(rows, made, n, varying);
    }

    void capture(const float* const* rows, float* const* made, std::uint32_t n) { microphone->process(rows, made, n); }

    void serve()
    {
        change.serve([this](BlockPlan plan) { return stream(plan); });
    }

    StreamStatus status;

private:
    std::unique_ptr<EffectStream> stream(BlockPlan plan)
    {
        return std::make_unique<EffectStream>(StreamKind{}, plan, settings, bypass, status);
    }

    std::shared_ptr<SettingsHandler> settings = SettingsHandler::instance(SettingsHandler::layoutVersion);
    ControlApplication control;
    std::atomic<bool> bypass = false;
    PathChange change{speakerPlan, status, [](void*) {}, nullptr};
    std::unique_ptr<EffectStream> microphone;
    Rows in = noise(8, 2048);
    Rows out{2, 2048};
    std::vector<const float*> from = in.in();
    std::vector<float*> to = out.out();
};

} // namespace quorel
