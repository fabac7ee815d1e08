// SPDX-License-Identifier: MIT
// ControlClient is the control application's end of the shared memory: settings and response sets to a running effect, levels
// and the active format back.
//
// It opens what the effect has made and makes nothing itself. While it is open the block lives, even if its effect ends, so a
// client is for one look or one update. Updates of several programs come one after the other, under a lock that they share.
#pragma once

#include "platform/sharing.h"
#include "settings/control_block.h"

#include <cstdint>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

namespace quorel {

struct NoEffect : std::runtime_error {
    NoEffect() : std::runtime_error("no effect is running") {}
};

// What the system refused last, as "path: cause".
std::string lastRefusalText();

class ControlClient {
public:
    // Throws NoEffect, or std::runtime_error with path and cause where the system lets nobody look.
    ControlClient();
    ~ControlClient();
    ControlClient(const ControlClient&) = delete;
    ControlClient& operator=(const ControlClient&) = delete;

    SettingsRecord settings() const;
    std::uint32_t activeChannelMask() const;
    float activeFramesPerSecond() const; // 0: no stream has been locked yet, or its effect is gone
    std::array<float, 9> levels() const; // dB

    // Changes the settings as they are now. `change` may throw: then nothing has happened. What it leaves alone is not written.
    // Throws std::runtime_error with path and cause when another program does not let this one have its turn.
    void update(const std::function<void(SettingsRecord&)>& change);

    // The same, and `change` returns what is written into the share ahead of the settings.
    void deliver(const std::function<std::vector<float>(SettingsRecord&)>& change);

private:
    platform::Handle mapping = nullptr;
    ControlBlock* block = nullptr;
};

} // namespace quorel
