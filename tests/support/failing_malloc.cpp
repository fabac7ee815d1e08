// SPDX-License-Identifier: MIT
// The allocations of C, which fail as those of failing_memory.cpp do; `new` ends in them.
#include "tests/support/failing_memory.h"

#include <cerrno>
#include <cstddef>
#include <cstdlib>

// The system's own, which these stand before.
extern "C" {
void* __libc_malloc(std::size_t bytes);
void* __libc_calloc(std::size_t count, std::size_t bytes);
void* __libc_realloc(void* memory, std::size_t bytes);
void* __libc_memalign(std::size_t alignment, std::size_t bytes);
}

namespace {

bool fails() noexcept
{
    if (!quorel::allocationFails(quorel::Counted::all))
        return false;
    errno = ENOMEM;
    return true;
}

} // namespace

extern "C" {

void* malloc(std::size_t bytes)
{
    return fails() ? nullptr : __libc_malloc(bytes);
}

void* calloc(std::size_t count, std::size_t bytes)
{
    return fails() ? nullptr : __libc_calloc(count, bytes);
}

void* realloc(void* memory, std::size_t bytes)
{
    return bytes != 0 && fails() ? nullptr : __libc_realloc(memory, bytes);
}

void* memalign(std::size_t alignment, std::size_t bytes)
{
    return fails() ? nullptr : __libc_memalign(alignment, bytes);
}

void* aligned_alloc(std::size_t alignment, std::size_t bytes)
{
    return memalign(alignment, bytes);
}

int posix_memalign(void** memory, std::size_t alignment, std::size_t bytes)
{
    void* const made = memalign(alignment, bytes);
    if (made == nullptr)
        return ENOMEM;
    *memory = made;
    return 0;
}
}
