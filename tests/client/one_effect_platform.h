// SPDX-License-Identifier: MIT
// What a control client finds of the system when one effect runs: the operations of platform/sharing.h that it uses, over
// memory of the test's own. A test program that compiles one_effect_platform.cpp gets them in place of the system's.
#pragma once

#include "settings/control_block.h"

#include <functional>

namespace quorel {

struct OneEffect {
    ControlBlock* block = nullptr; // null: no effect is running
    std::byte* share = nullptr;    // `hrtfShareBytes` of them
    bool hasEvent = true;
    std::function<void()> signalled; // called when the event is set
    std::size_t blockBytes = sizeof(ControlBlock);
    int refusal = 0; // of the block: the system's number
    bool takesSignals = true;
    std::function<void()> opened = nullptr; // called when somebody opens the block
};

OneEffect& oneEffect();

} // namespace quorel
