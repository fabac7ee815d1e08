// Counts the allocations of the process, wherever in it they come from.
//
// A test program that links allocation_count.cpp has the allocator replaced: on Linux the C library's own entry points, which
// serve every library of the process; on Windows those of the program and of all that is linked into it statically.
#pragma once

#include <cstdint>

namespace quorel {

// Allocations and releases so far.
std::uint64_t allocationCount() noexcept;

// Blocks that are allocated and not released, counted from the start of the program.
std::int64_t blocksInUse() noexcept;

} // namespace quorel
