// SPDX-License-Identifier: MIT
// PendingValue carries a request from the settings to the block that honours it, with a crossfade, and clears `changed`.
#pragma once

namespace quorel {

template <typename T>
struct PendingValue {
    T value{};
    bool changed = true; // a first block honours the value that it was born with

    // Stores what differs from the value in hand. Not-a-number differs from everything, itself included.
    void request(const T& wanted)
    {
        if (wanted == value)
            return;
        value = wanted;
        changed = true;
    }
};

} // namespace quorel
