// SPDX-License-Identifier: MIT
// What the kernels' families share in their signatures: complex samples, and lengths.
#pragma once

#include "core/status.h"

#include <complex>
#include <cstddef>
#include <cstdint>

namespace quorel {

// One complex sample: real part first. Kernels read arrays of it as pairs of floats.
using Complex = std::complex<float>;

// The length of a buffer's row as a kernel takes it: 64-bit sizes are cut to 32 bits.
constexpr std::int32_t length32(std::uint64_t size) noexcept
{
    return static_cast<std::int32_t>(size);
}

} // namespace quorel
