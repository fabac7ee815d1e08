// SPDX-License-Identifier: MIT
#pragma once

#include "core/buffer.h"

#include <cstddef>
#include <cstdint>

namespace quorel {

// 1, 2, 3... on the left, the negative of it on the right, in a buffer for 100 frames.
inline Buffer<float, 2> ramp(std::uint64_t size)
{
    Buffer<float, 2> buffer(100);
    for (std::size_t c = 0; c < 2; ++c)
        for (std::uint64_t i = 0; i < size; ++i)
            buffer.channel(c)[i] = static_cast<float>(i + 1) * (c == 0 ? 1.0F : -1.0F);
    buffer.setSize(size);
    return buffer;
}

} // namespace quorel
