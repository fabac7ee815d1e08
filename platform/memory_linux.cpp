// SPDX-License-Identifier: MIT
#include "platform/memory.h"

#include <cstdlib>
#include <sys/mman.h>
#include <sys/resource.h>

namespace quorel::platform {

static_assert(sizeof(rlim_t) == sizeof(std::uint64_t) && RLIM_INFINITY == ~rlim_t{0});

void* allocateAligned(std::uint64_t bytes, std::uint64_t alignment) noexcept
{
    void* block = nullptr;
    return posix_memalign(&block, alignment, bytes) == 0 ? block : nullptr;
}

void freeAligned(void* block) noexcept
{
    std::free(block);
}

bool lockPages(void* block, std::uint64_t bytes) noexcept
{
    return mlock(block, bytes) == 0;
}

bool readMemoryLimits(MemoryLimits& limits) noexcept
{
    rlimit now{};
    if (getrlimit(RLIMIT_MEMLOCK, &now) != 0)
        return false;
    limits = {now.rlim_cur, now.rlim_max};
    return true;
}

bool writeMemoryLimits(const MemoryLimits& limits) noexcept
{
    const rlimit wanted{limits.minimum, limits.maximum};
    return setrlimit(RLIMIT_MEMLOCK, &wanted) == 0;
}

} // namespace quorel::platform
