// SPDX-License-Identifier: MIT
// A lock among processes, by name. A process that ends while it holds the lock, however it ends, gives it up.
#pragma once

#include "platform/sharing.h"

#include <cstdint>

namespace quorel::platform {

class NamedLock {
public:
    // Waits for at most so long; what it refuses is kept as the process's last refusal. `name` is that of a Windows kernel object, such as "Global\QUORELControl".
    NamedLock(const char* name, const Descriptor* descriptor, std::uint32_t milliseconds) noexcept;
    ~NamedLock();
    NamedLock(const NamedLock&) = delete;
    NamedLock& operator=(const NamedLock&) = delete;

    // False when the time was over, or when the lock could not be made.
    explicit operator bool() const noexcept { return held != none; }

private:
    static constexpr std::intptr_t none = -1;
    std::intptr_t held = none; // Linux: the lock's file; Windows: its handle
};

} // namespace quorel::platform
