// SPDX-License-Identifier: MIT
// A home of its own for a test of live streams, and the settings that steer them.
#pragma once

#include "live/effect_stream.h"
#include "tests/support/control_application.h"
#include "tests/support/private_home.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <vector>

namespace quorel {

// One handler and a control application. Settings are all zero at first: down-mix, no noise reduction.
class Steered : public testing::Test {
protected:
    Steered()
    {
        set([](SettingsRecord&) {});
    }

    void set(const std::function<void(SettingsRecord&)>& change)
    {
        SettingsRecord wanted;
        change(wanted);
        const std::uint32_t sequence = control.update(wanted);
        SettingsRecord seen;
        ASSERT_TRUE(eventually([&] {
            settings->poll(seen);
            return seen.blockSequence == sequence;
        }));
    }

    std::unique_ptr<EffectStream> streamOf(const StreamKind& kind, BlockPlan plan)
    {
        return std::make_unique<EffectStream>(kind, plan, settings, bypass, status);
    }

    static constexpr StreamKind speaker{};
    static constexpr StreamKind microphone{true, 1, 0x4};

    std::shared_ptr<SettingsHandler> settings = SettingsHandler::instance(SettingsHandler::layoutVersion);
    ControlApplication control;
    std::atomic<bool> bypass = false;
    StreamStatus status;
};

// Rows that a stream takes or gives.
struct Rows {
    Rows(std::size_t count, std::size_t frames, float value = 0.0F) : rows(count, std::vector<float>(frames, value)) {}

    std::vector<const float*> in(std::size_t from = 0) const
    {
        std::vector<const float*> pointers;
        for (const auto& row : rows)
            pointers.push_back(row.data() + from);
        return pointers;
    }
    std::vector<float*> out(std::size_t from = 0)
    {
        std::vector<float*> pointers;
        for (auto& row : rows)
            pointers.push_back(row.data() + from);
        return pointers;
    }

    std::vector<std::vector<float>> rows;
};

// Noise of an eighth of full scale.
inline Rows noise(std::size_t count, std::size_t frames)
{
    Rows made(count, frames);
    std::uint32_t state = 1;
    for (auto& row : made.rows)
        for (float& x : row) {
            state = state * 1664525U + 1013904223U;
            x = static_cast<float>(static_cast<std::int32_t>(state)) * 0x1p-34F;
        }
    return made;
}

} // namespace quorel
