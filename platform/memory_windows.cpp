// SPDX-License-Identifier: MIT
#include "platform/memory.h"

#include <malloc.h>
#include <windows.h>

namespace quorel::platform {

static_assert(sizeof(SIZE_T) == sizeof(std::uint64_t));

void* allocateAligned(std::uint64_t bytes, std::uint64_t alignment) noexcept
{
    return _aligned_malloc(bytes, alignment);
}

void freeAligned(void* block) noexcept
{
    _aligned_free(block);
}

bool lockPages(void* block, std::uint64_t bytes) noexcept
{
    return VirtualLock(block, bytes) != 0;
}

bool readMemoryLimits(MemoryLimits& limits) noexcept
{
    SIZE_T minimum = 0;
    SIZE_T maximum = 0;
    if (GetProcessWorkingSetSize(GetCurrentProcess(), &minimum, &maximum) == 0)
        return false;
    limits = {minimum, maximum};
    return true;
}

bool writeMemoryLimits(const MemoryLimits& limits) noexcept
{
    return SetProcessWorkingSetSize(GetCurrentProcess(), limits.minimum, limits.maximum) != 0;
}

} // namespace quorel::platform
