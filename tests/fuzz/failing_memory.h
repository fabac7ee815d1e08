// SPDX-License-Identifier: MIT
// Memory that is refused where a target says so: all of its program's allocations come from here.
#pragma once

#include <cstdlib>
#include <new>

namespace quorel {

inline int allocationsLeft = 0; // up to the one that fails; 0: none fails

} // namespace quorel

[[gnu::noinline]] void* operator new(std::size_t bytes, const std::nothrow_t&) noexcept
{
    if (quorel::allocationsLeft == 1)
        return nullptr; // as each that follows
    if (quorel::allocationsLeft > 1)
        --quorel::allocationsLeft;
    return std::malloc(bytes != 0 ? bytes : 1);
}

[[gnu::noinline]] void* operator new(std::size_t bytes)
{
    if (void* memory = operator new(bytes, std::nothrow))
        return memory;
    throw std::bad_alloc();
}

[[gnu::noinline]] void operator delete(void* memory) noexcept
{
    std::free(memory);
}

[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept
{
    std::free(memory);
}
