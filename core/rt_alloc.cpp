// SPDX-License-Identifier: MIT
#include "core/rt_alloc.h"

#include "core/alignment.h"
#include "platform/memory.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <new>

namespace quorel {

namespace {

constexpr std::uint64_t smallestGrowth = 0x100000; // bytes

// A limit that is already close to "none" stays there.
std::uint64_t raised(std::uint64_t limit, std::uint64_t growth)
{
    return limit + std::min(growth, std::numeric_limits<std::uint64_t>::max() - limit);
}

// Makes room for a lock that was refused: twice the block in whole pages, and not by small steps.
bool raiseLimits(std::uint64_t bytes)
{
    platform::MemoryLimits limits{};
    if (!platform::readMemoryLimits(limits))
        return false;
    const auto growth = std::max(bytes / 2048 * 4096, smallestGrowth);
    return platform::writeMemoryLimits({raised(limits.minimum, growth), raised(limits.maximum, growth)});
}

} // namespace

void* rt_alloc(std::uint64_t bytes)
{
    if (bytes == 0)
        return nullptr;
    void* block = platform::allocateAligned(bytes, cacheLine);
    if (block == nullptr)
        throw std::bad_alloc();
    const bool pinned = platform::lockPages(block, bytes) || (raiseLimits(bytes) && platform::lockPages(block, bytes));
    if (!pinned)
        std::memset(block, 0, bytes); // its pages are there now, although the system may take them away again
    return block;
}

void rt_free(void* block) noexcept
{
    platform::freeAligned(block);
}

} // namespace quorel
