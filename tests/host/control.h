// SPDX-License-Identifier: MIT
// The control application beside an effect object that a test drives.
#pragma once

#include "tests/host/engine.h"
#include "tests/support/control_application.h"

#include <chrono>
#include <thread>

namespace quorel {

class Control {
public:
    ControlBlock* operator->() const { return application.block; }

    // Sends new settings and lets silent blocks pass until the locked effect has them; false when they don't come.
    bool deliver(const SettingsRecord& settings, Effect& effect)
    {
        const auto sequence = application.update(settings);
        for (int i = 0; i < 60000; ++i) {
            effect.process(nullptr, nullptr, 0, BUFFER_SILENT);
            if (effect.record().blockSequence == sequence)
                return true;
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        return false;
    }

private:
    ControlApplication application;
};

} // namespace quorel
