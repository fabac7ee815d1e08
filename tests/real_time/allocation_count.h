// SPDX-License-Identifier: MIT
// Counts the allocations of the process, wherever in it they come from, and lets one of them fail.
//
// A test program that links allocation_count.cpp has the allocator replaced: on Linux the C library's own entry points, which
// serve every library of the process; on Windows those of the program and of all that is linked into it statically.
#pragma once

#include <cstdint>

namespace quorel {

// Allocations and releases so far.
std::uint64_t allocationCount() noexcept;

#ifdef __linux__
// Those of the calling thread. (On Windows a thread's own variables may themselves be allocated.)
std::uint64_t threadAllocationCount() noexcept;
#endif

// Blocks that are allocated and not released, counted from the start of the program.
std::int64_t blocksInUse() noexcept;

// The allocation of this number from now on, of any thread, fails; 1 is the next one, 0 lets none fail. Returns true when the
// one that was asked for before has been reached. Not in a sanitizer's build, whose allocator is its own.
bool failAllocation(std::uint64_t number) noexcept;

} // namespace quorel
