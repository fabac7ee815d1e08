// SPDX-License-Identifier: MIT
// Cache lines: what sample memory is aligned to and rounded up to.
#pragma once

#include <cstddef>
#include <cstdint>

namespace quorel {

constexpr std::size_t cacheLine = 64; // bytes, the width of the widest register too

// `n` rounded up to a whole multiple of `unit`, a power of two.
constexpr std::uint64_t roundedUp(std::uint64_t n, std::uint64_t unit) noexcept
{
    return (n & ~(unit - 1)) + ((n & (unit - 1)) != 0 ? unit : 0);
}

// `bytes` rounded up to whole cache lines.
constexpr std::size_t wholeLines(std::size_t bytes) noexcept
{
    return roundedUp(bytes, cacheLine);
}

// The first line boundary in storage that may begin anywhere and has room for a line more.
inline std::byte* firstLine(void* storage) noexcept
{
    const auto address = reinterpret_cast<std::uintptr_t>(storage);
    return static_cast<std::byte*>(storage) + (wholeLines(address) - address);
}

} // namespace quorel
