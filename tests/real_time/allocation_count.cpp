// SPDX-License-Identifier: MIT
#include "tests/real_time/allocation_count.h"

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <new>

namespace quorel {
namespace {

std::atomic<std::uint64_t> count = 0;
std::atomic<std::int64_t> inUse = 0;
std::atomic<std::uint64_t> untilFailure = 0; // allocations, the one that fails among them; 0: none is to fail, or it has failed

#ifdef __linux__
// Reaching a thread's own variable may itself allocate, unless its place is settled when the program is loaded.
__attribute__((tls_model("initial-exec"))) constinit thread_local std::uint64_t ownCount = 0;
#endif

void countCall()
{
    ++count;
#ifdef __linux__
    ++ownCount;
#endif
}

bool isToFail()
{
    auto left = untilFailure.load();
    while (left != 0 && !untilFailure.compare_exchange_weak(left, left - 1))
        continue;
    return left == 1;
}

template <class Make>
void* counted(Make make)
{
    countCall();
    const bool fails = isToFail();
    void* made = fails ? nullptr : make();
    if (fails)
        errno = ENOMEM;
    inUse += made != nullptr ? 1 : 0;
    return made;
}

void countRelease(const void* block)
{
    countCall();
    inUse -= block != nullptr ? 1 : 0;
}

} // namespace

std::uint64_t allocationCount() noexcept
{
    return count;
}

std::int64_t blocksInUse() noexcept
{
    return inUse;
}

bool failAllocation(std::uint64_t number) noexcept
{
    return untilFailure.exchange(number) == 0;
}

#ifdef __linux__
std::uint64_t threadAllocationCount() noexcept
{
    return ownCount;
}
#endif

} // namespace quorel

using quorel::counted;
using quorel::countRelease;

#ifdef _WIN32

// The linker sends every call of these names in the program to __wrap_ and keeps the originals under __real_.
extern "C" {
void* __real_malloc(std::size_t bytes);
void* __real_calloc(std::size_t number, std::size_t bytes);
void* __real_realloc(void* block, std::size_t bytes);
void __real_free(void* block);
void* __real__aligned_malloc(std::size_t bytes, std::size_t alignment);
void __real__aligned_free(void* block);

void* __wrap_malloc(std::size_t bytes)
{
    return counted([=] { return __real_malloc(bytes); });
}

void* __wrap_calloc(std::size_t number, std::size_t bytes)
{
    return counted([=] { return __real_calloc(number, bytes); });
}

void* __wrap_realloc(void* block, std::size_t bytes)
{
    countRelease(block);
    return counted([=] { return __real_realloc(block, bytes); });
}

void __wrap_free(void* block)
{
    countRelease(block);
    __real_free(block);
}

void* __wrap__aligned_malloc(std::size_t bytes, std::size_t alignment)
{
    return counted([=] { return __real__aligned_malloc(bytes, alignment); });
}

void __wrap__aligned_free(void* block)
{
    countRelease(block);
    __real__aligned_free(block);
}
}

#else

// The C library's allocator behind the names that it exports for replacements like these.
extern "C" {
void* __libc_malloc(std::size_t bytes);
void* __libc_calloc(std::size_t number, std::size_t bytes);
void* __libc_realloc(void* block, std::size_t bytes);
void* __libc_memalign(std::size_t alignment, std::size_t bytes);
void __libc_free(void* block);

void* malloc(std::size_t bytes)
{
    return counted([=] { return __libc_malloc(bytes); });
}

void* calloc(std::size_t number, std::size_t bytes)
{
    return counted([=] { return __libc_calloc(number, bytes); });
}

void* realloc(void* block, std::size_t bytes)
{
    countRelease(block);
    return counted([=] { return __libc_realloc(block, bytes); });
}

void* memalign(std::size_t alignment, std::size_t bytes)
{
    return counted([=] { return __libc_memalign(alignment, bytes); });
}

void* aligned_alloc(std::size_t alignment, std::size_t bytes)
{
    return memalign(alignment, bytes);
}

int posix_memalign(void** block, std::size_t alignment, std::size_t bytes)
{
    *block = memalign(alignment, bytes);
    return *block != nullptr ? 0 : ENOMEM;
}

void free(void* block)
{
    countRelease(block);
    __libc_free(block);
}
}

#endif
