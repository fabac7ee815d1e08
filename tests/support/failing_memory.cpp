// SPDX-License-Identifier: MIT
#include "tests/support/failing_memory.h"

#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <new>

namespace quorel {
namespace {

std::atomic<long> count = 0;
std::atomic<long> failing = 0;
std::atomic<bool> onwards = false;
std::atomic<bool> failed = false; // one of those counted
std::atomic<Counted> counts = Counted::all;

} // namespace

void failAllocation(long first, bool onward, Counted counted) noexcept
{
    onwards = onward;
    failing = first;
    counts = counted;
    count = 0;
    failed = false;
}

long allocationsSince() noexcept
{
    return count;
}

bool allocationFailed() noexcept
{
    return failed;
}

bool allocationFails(Counted kind) noexcept
{
    if (counts != kind)
        return false;
    const long number = ++count;
    const long first = failing;
    if (first == 0 || number < first || (number > first && !onwards))
        return false;
    failed = true;
    return true;
}

} // namespace quorel

// A sanitizer's library has forms of its own that do not end in one another, so each that is used stands here.
[[gnu::noinline]] void* operator new(std::size_t bytes, const std::nothrow_t&) noexcept
{
    return quorel::allocationFails(quorel::Counted::own) ? nullptr : std::malloc(bytes != 0 ? bytes : 1);
}

[[gnu::noinline]] void* operator new(std::size_t bytes)
{
    if (void* const memory = operator new(bytes, std::nothrow))
        return memory;
    if (const auto handler = std::get_new_handler(); handler != nullptr)
        handler(); // which throws, or there is no more than before
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
