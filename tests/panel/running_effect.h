// SPDX-License-Identifier: MIT
// An effect of the test's own, as the panel finds it: it runs with 7.1 at 48000 frames per second.
#pragma once

#include "client/hrtf_delivery.h"
#include "tests/client/one_effect_platform.h"
#include "tests/support/control_application.h"

#include <gtest/gtest.h>

#include <vector>

namespace quorel {

class RunningEffect : public testing::Test {
protected:
    RunningEffect()
    {
        block.activeFramesPerSecond = 48000;
        block.activeChannelMask = 0x63F;
        oneEffect() = {&block, share.data(), true, {}};
    }

    SettingsRecord settings() const
    {
        SettingsRecord record;
        copySettings(block, record);
        return record;
    }

    ControlBlock block{};
    std::vector<std::byte> share = std::vector<std::byte>(hrtfShareBytes);
};

} // namespace quorel
