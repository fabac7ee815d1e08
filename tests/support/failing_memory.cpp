// SPDX-License-Identifier: MIT
#include "tests/support/failing_memory.h"

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <new>

// The system's own, which these stand before.
extern "C" {
void* __libc_malloc(std::size_t bytes);
void* __libc_calloc(std::size_t count, std::size_t bytes);
void* __libc_realloc(void* memory, std::size_t bytes);
void* __libc_memalign(std::size_t alignment, std::size_t bytes);
}

namespace quorel {
namespace {

std::atomic<long> count = 0;
std::atomic<long> failing = 0;
std::atomic<bool> onwards = false;
std::atomic<Counted> counts = Counted::all;

bool fails(Counted kind) noexcept
{
    if (counts != kind)
        return false;
    const long number = ++count;
    const long first = failing;
    if (first == 0 || number < first || (number > first && !onwards))
        return false;
    errno = ENOMEM;
    return true;
}

void* madeOrThrown(std::size_t bytes, std::size_t alignment)
{
    if (void* const memory = fails(Counted::own) ? nullptr : aligned_alloc(alignment, bytes); memory != nullptr)
        return memory;
    if (const auto handler = std::get_new_handler(); handler != nullptr)
        handler(); // which throws, or there is no more than before
    throw std::bad_alloc();
}

} // namespace

void failAllocation(long first, bool onward, Counted counted) noexcept
{
    onwards = onward;
    failing = first;
    counts = counted;
    count = 0;
}

long allocationsSince() noexcept
{
    return count;
}

} // namespace quorel

extern "C" {

void* malloc(std::size_t bytes)
{
    return quorel::fails(quorel::Counted::all) ? nullptr : __libc_malloc(bytes);
}

void* calloc(std::size_t count, std::size_t bytes)
{
    return quorel::fails(quorel::Counted::all) ? nullptr : __libc_calloc(count, bytes);
}

void* realloc(void* memory, std::size_t bytes)
{
    return bytes != 0 && quorel::fails(quorel::Counted::all) ? nullptr : __libc_realloc(memory, bytes);
}

void* memalign(std::size_t alignment, std::size_t bytes)
{
    return quorel::fails(quorel::Counted::all) ? nullptr : __libc_memalign(alignment, bytes);
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

// The other forms of `new` end in these.
void* operator new(std::size_t bytes)
{
    return quorel::madeOrThrown(bytes, __STDCPP_DEFAULT_NEW_ALIGNMENT__);
}

void* operator new(std::size_t bytes, std::align_val_t alignment)
{
    return quorel::madeOrThrown(bytes, static_cast<std::size_t>(alignment));
}

void operator delete(void* memory) noexcept
{
    std::free(memory);
}

void operator delete(void* memory, std::size_t) noexcept
{
    std::free(memory);
}

void operator delete(void* memory, std::align_val_t) noexcept
{
    std::free(memory);
}

void operator delete(void* memory, std::size_t, std::align_val_t) noexcept
{
    std::free(memory);
}
