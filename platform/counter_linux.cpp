// SPDX-License-Identifier: MIT
#include "platform/counter.h"

#include <ctime>

namespace quorel::platform {

std::int64_t counterFrequency() noexcept
{
    return 1000000000; // nanoseconds
}

std::int64_t counter() noexcept
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return std::int64_t{now.tv_sec} * 1000000000 + now.tv_nsec;
}

} // namespace quorel::platform
