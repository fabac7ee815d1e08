// SPDX-License-Identifier: MIT
#include "platform/counter.h"

#include <windows.h>

namespace quorel::platform {

std::int64_t counterFrequency() noexcept
{
    LARGE_INTEGER frequency;
    QueryPerformanceFrequency(&frequency);
    return frequency.QuadPart;
}

std::int64_t counter() noexcept
{
    LARGE_INTEGER count;
    QueryPerformanceCounter(&count);
    return count.QuadPart;
}

} // namespace quorel::platform
