// SPDX-License-Identifier: MIT
// The lock is a file in the user's private directory, and holding it is an exclusive file lock: the kernel gives it up with
// the process.
#include "platform/named_lock.h"

#include "platform/user_directory_linux.h"

#include <exception>
#include <string>
#include <string_view>

namespace quorel::platform {

NamedLock::NamedLock(const char* name, const Descriptor*, std::uint32_t milliseconds) noexcept
{
    try {
        const UserDirectory directory(Place::runtime, IfMissing::isMade);
        if (!directory)
            return;
        const std::string_view text(name);
        auto lock = openLock(directory, "lock." + std::string(text.substr(text.rfind('\\') + 1)), milliseconds);
        if (lock)
            held = lock.release();
    } catch (const std::exception&) {
        return; // There is no lock then.
    }
}

NamedLock::~NamedLock()
{
    if (held != none)
        File(static_cast<int>(held)); // closed with this
}

} // namespace quorel::platform
