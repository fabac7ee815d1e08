// SPDX-License-Identifier: MIT
#include "tests/core/memory_faulty.h"

#include <cstring>
#include <new>

namespace quorel::platform {

FaultyMemory faultyMemory;

void* allocateAligned(std::uint64_t bytes, std::uint64_t alignment) noexcept
{
    ++faultyMemory.allocations;
    faultyMemory.bytes = bytes;
    const bool fails = faultyMemory.allocationFails || faultyMemory.allocations == faultyMemory.failingAllocation;
    void* block = fails ? nullptr : ::operator new (bytes, std::align_val_t{alignment}, std::nothrow);
    if (block == nullptr)
        return nullptr;
    ++faultyMemory.blocks;
    return std::memset(block, unwritten, bytes);
}

void freeAligned(void* block) noexcept
{
    if (block != nullptr)
        --faultyMemory.blocks;
    ::operator delete (block, std::align_val_t{64});
}

bool lockPages(void* block, std::uint64_t bytes) noexcept
{
    faultyMemory.lockedRanges.push_back({block, bytes});
    return faultyMemory.locks++ >= faultyMemory.failingLocks;
}

bool readMemoryLimits(MemoryLimits& limits) noexcept
{
    ++faultyMemory.reads;
    limits = faultyMemory.limits;
    return !faultyMemory.readFails;
}

bool writeMemoryLimits(const MemoryLimits& limits) noexcept
{
    faultyMemory.writes.push_back(limits);
    if (!faultyMemory.writeFails)
        faultyMemory.limits = limits;
    return !faultyMemory.writeFails;
}

} // namespace quorel::platform
