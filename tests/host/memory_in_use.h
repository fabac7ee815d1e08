// SPDX-License-Identifier: MIT
// What this process holds of the system at the moment.
#pragma once

#include <cstddef>
#include <cstdint>
#include <ostream>

namespace quorel {

struct MemoryInUse {
    std::int64_t blocks = 0;   // allocated and not released
    std::size_t bytes = 0;     // in them, where the allocator tells it exactly
    std::size_t handles = 0;   // open
    std::size_t freeSlots = 0; // of threads' own storage, on Windows

    bool operator==(const MemoryInUse&) const = default;
};

MemoryInUse memoryInUse();

inline std::ostream& operator<<(std::ostream& stream, const MemoryInUse& memory)
{
    return stream << memory.blocks << " blocks, " << memory.bytes << " bytes, " << memory.handles << " handles, "
                  << memory.freeSlots << " free slots";
}

} // namespace quorel
