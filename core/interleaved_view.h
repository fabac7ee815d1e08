// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

namespace quorel {

// Interleaved samples that belong to somebody else: sample i of channel c of N stands at data[i * N + c].
struct InterleavedView {
    float* data;
    std::uint64_t frames;
};

} // namespace quorel
