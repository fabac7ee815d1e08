// SPDX-License-Identifier: MIT
// A sanitizer brings its own allocator, which tells of its calls.
#include "tests/real_time/allocation_count.h"

#include <atomic>
#include <cstddef>

namespace quorel {
namespace {

std::atomic<std::uint64_t> count = 0;
std::atomic<std::int64_t> inUse = 0;
thread_local std::uint64_t ownCount = 0;

void countCall(std::int64_t taken)
{
    ++count;
    ++ownCount;
    inUse += taken;
}

} // namespace

std::uint64_t allocationCount() noexcept
{
    return count;
}

std::int64_t blocksInUse() noexcept
{
    return inUse;
}

std::uint64_t threadAllocationCount() noexcept
{
    return ownCount;
}

} // namespace quorel

extern "C" {
void __sanitizer_malloc_hook(const volatile void* block, std::size_t bytes);
void __sanitizer_free_hook(const volatile void* block);

void __sanitizer_malloc_hook(const volatile void*, std::size_t)
{
    quorel::countCall(1);
}

void __sanitizer_free_hook(const volatile void*)
{
    quorel::countCall(-1);
}
}
