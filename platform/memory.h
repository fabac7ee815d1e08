// SPDX-License-Identifier: MIT
// The operating system's memory operations, under one meaning on every system.
//
// When and how often they are used is decided in core/rt_alloc.cpp.
#pragma once

#include <cstdint>

namespace quorel::platform {

// A block of `bytes` > 0 whose address is a multiple of `alignment`, a power of two; null when memory is exhausted.
void* allocateAligned(std::uint64_t bytes, std::uint64_t alignment) noexcept;

// Releases a block of allocateAligned; null does nothing.
void freeAligned(void* block) noexcept;

// Keeps the pages of the block in physical memory. False when the system refuses.
bool lockPages(void* block, std::uint64_t bytes) noexcept;

// How many bytes this process may keep in physical memory: Windows' working set sizes; elsewhere the soft and the hard limit
// of locked memory. All bits set means no limit.
struct MemoryLimits {
    std::uint64_t minimum;
    std::uint64_t maximum;
};

bool readMemoryLimits(MemoryLimits& limits) noexcept;
bool writeMemoryLimits(const MemoryLimits& limits) noexcept;

} // namespace quorel::platform
