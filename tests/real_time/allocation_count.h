// Counts the allocations of the process, wherever in it they come from.
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

} // namespace quorel
