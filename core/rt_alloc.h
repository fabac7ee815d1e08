// SPDX-License-Identifier: MIT
// rt_alloc gives sample memory: aligned to 64 bytes and, as a best effort, pinned in physical memory, so that the audio
// thread meets no page fault.
//
// A block that cannot be pinned has its pages brought in and is used all the same; the only failure a caller sees is
// std::bad_alloc. Each refused lock raises the process's limits for good: many streams in one process leave a large working
// set behind.
#pragma once

#include <algorithm>
#include <cstdint>
#include <memory>

namespace quorel {

// `bytes` of memory on a 64-byte boundary, uninitialised; null for 0 bytes. Not for the audio thread.
void* rt_alloc(std::uint64_t bytes);

// Releases a block of rt_alloc; there is no separate unpinning.
void rt_free(void* block) noexcept;

struct RtDelete {
    void operator()(void* block) const noexcept { rt_free(block); }
};

// Owns a block of rt_alloc.
template <typename T>
using RtPointer = std::unique_ptr<T, RtDelete>;

// n samples of nothing.
template <typename T>
RtPointer<T> zeroedRow(std::uint64_t n)
{
    RtPointer<T> row(static_cast<T*>(rt_alloc(n * sizeof(T))));
    std::fill_n(row.get(), n, T());
    return row;
}

} // namespace quorel
