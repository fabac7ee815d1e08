// SPDX-License-Identifier: MIT
#include "tests/host/memory_in_use.h"

#include <filesystem>
#include <iterator>

#if defined __SANITIZE_ADDRESS__ || defined __SANITIZE_THREAD__
#define SANITIZED
extern "C" std::size_t __sanitizer_get_current_allocated_bytes(); // NOLINT(bugprone-reserved-identifier): the sanitizer's name
#else
#include "tests/real_time/allocation_count.h"
#endif

namespace quorel {

MemoryInUse memoryInUse()
{
    MemoryInUse memory;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        static_cast<void>(entry);
        ++memory.handles;
    }
#ifdef SANITIZED
    memory.bytes = __sanitizer_get_current_allocated_bytes();
#else
    memory.blocks = blocksInUse();
#endif
    return memory;
}

} // namespace quorel
