// SPDX-License-Identifier: MIT
// A third set of the memory operations, for tests: it counts every call and fails where a test asks it to.
//
// A test program that compiles memory_faulty.cpp gets these operations in place of the system's.
#pragma once

#include "platform/memory.h"

#include <vector>

namespace quorel::platform {

// What stands in a block that nobody has written to yet: not a number, as floats.
inline constexpr int unwritten = 0xFF;

struct FaultyMemory {
    bool allocationFails = false;
    int failingAllocation = 0; // of those counted below the one that fails; 0 for none
    int failingLocks = 0;      // so many locks are refused, then they succeed
    bool readFails = false;
    bool writeFails = false;
    MemoryLimits limits{0x200000, 0x800000};

    int allocations = 0;
    int blocks = 0;          // allocated and not yet freed
    std::uint64_t bytes = 0; // of the last one
    int locks = 0;
    int reads = 0;
    struct Range {
        const void* block;
        std::uint64_t bytes;
        bool operator==(const Range&) const = default;
    };
    std::vector<Range> lockedRanges;  // what was asked to be locked, refused or not
    std::vector<MemoryLimits> writes; // what was asked for, refused or not
};

extern FaultyMemory faultyMemory;

} // namespace quorel::platform
