// SPDX-License-Identifier: MIT
// A denormal number takes some processors a hundred times as long as any other: an audio thread takes them as 0.
#pragma once

#if defined(__SSE2__)
#include <xmmintrin.h>
#elif defined(__aarch64__)
#include <cstdint>
#endif

namespace quorel {

// From here on this thread's floating-point results and operands below the smallest normal number are 0.
inline void flushToZero() noexcept
{
#if defined(__SSE2__)
    _mm_setcsr(_mm_getcsr() | 0x8040U); // results and operands
#elif defined(__aarch64__)
    std::uint64_t control = 0;
    asm volatile("mrs %0, fpcr" : "=r"(control));
    asm volatile("msr fpcr, %0" : : "r"(control | 1U << 24U));
#endif
}

} // namespace quorel
