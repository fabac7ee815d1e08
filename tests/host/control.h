// The control application beside an effect object that a test drives.
#pragma once

#include "tests/host/engine.h"
#include "tests/settings/control_application.h"

#include <chrono>
#include <thread>

namespace quorel {

class Control {
public:
    ControlBlock* operator->() const { return application.block; }

    // Sends new settings and lets silent blocks pass until the locked effect has them; false when they don't come. What is
    // sent before the memory thread has begun to run counts as known to it, so they are sent again now and then.
    bool deliver(const SettingsRecord& settings, Effect& effect)
    {
        for (int i = 0; i < 10000; ++i) {
            const auto sequence = i % 100 == 0 ? application.update(settings) : application.block->sequence;
            effect.process(nullptr, nullptr, 0, BUFFER_SILENT);
            if (EffectObjectState::record(*effect.self).blockSequence == sequence)
                return true;
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        return false;
    }

private:
    ControlApplication application;
};

} // namespace quorel
