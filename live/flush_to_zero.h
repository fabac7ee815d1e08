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

// The same for as long as it lives, for a thread that belongs to somebody else.
class FlushToZero {
public:
    FlushToZero() noexcept { flushToZero(); }
    FlushToZero(const FlushToZero&) = delete;
    FlushToZero& operator=(const FlushToZero&) = delete;
#if defined(__SSE2__)
    ~FlushToZero()
    {
        _mm_setcsr(before);
    }

private:
    unsigned before = _mm_getcsr();
#elif defined(__aarch64__)
    ~FlushToZero()
    {
        asm volatile("msr fpcr, %0" : : "r"(before));
    }

private:
    static std::uint64_t now() noexcept
    {
        std::uint64_t control = 0;
        asm volatile("mrs %0, fpcr" : "=r"(control));
        return control;
    }
    std::uint64_t before = now();
#else
    ~FlushToZero() {}
#endif
};

} // namespace quorel
