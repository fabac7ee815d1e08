#include "tests/real_time/allocation_count.h"

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <new>

namespace quorel {
namespace {

// Not one a thread: reaching a thread's own variable may itself allocate.
std::atomic<std::uint64_t> count = 0;

} // namespace

std::uint64_t allocationCount() noexcept
{
    return count;
}

} // namespace quorel

using quorel::count;

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
    ++count;
    return __real_malloc(bytes);
}

void* __wrap_calloc(std::size_t number, std::size_t bytes)
{
    ++count;
    return __real_calloc(number, bytes);
}

void* __wrap_realloc(void* block, std::size_t bytes)
{
    ++count;
    return __real_realloc(block, bytes);
}

void __wrap_free(void* block)
{
    ++count;
    __real_free(block);
}

void* __wrap__aligned_malloc(std::size_t bytes, std::size_t alignment)
{
    ++count;
    return __real__aligned_malloc(bytes, alignment);
}

void __wrap__aligned_free(void* block)
{
    ++count;
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
    ++count;
    return __libc_malloc(bytes);
}

void* calloc(std::size_t number, std::size_t bytes)
{
    ++count;
    return __libc_calloc(number, bytes);
}

void* realloc(void* block, std::size_t bytes)
{
    ++count;
    return __libc_realloc(block, bytes);
}

void* memalign(std::size_t alignment, std::size_t bytes)
{
    ++count;
    return __libc_memalign(alignment, bytes);
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
    ++count;
    __libc_free(block);
}
}

#endif
