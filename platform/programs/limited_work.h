// SPDX-License-Identifier: MIT
// Does work on contents that nobody vouches for where it can harm nobody: on Linux in a child process with limits of time and
// memory, which may hang or crash. Elsewhere the work is done by the caller itself, and has to be of a kind that needs no limits.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

namespace quorel::platform {

struct WorkLimits {
    std::uint32_t processorSeconds; // of the processor's time, while its next bytes are waited for
    std::uint32_t seconds;          // by the clock, likewise
    std::uint64_t memoryBytes;      // beyond what the process has now
    std::size_t resultBytes;        // of all that the work gives
};

// What `work` gives. Whatever it throws is thrown as std::runtime_error with the same text; so is a limit that it meets, and its
// crash. `wait` is called several times a second meanwhile, and may throw: the work then ends.
std::string doLimited(const std::function<std::string()>& work, const WorkLimits& limits, const std::function<void()>& wait);

} // namespace quorel::platform
