// SPDX-License-Identifier: MIT
// What several benchmarks begin with: noise.
#pragma once

#include <cstddef>
#include <random>

namespace quorel::bench {

// The same noise at every call, evenly spread up to the peak.
inline void fillWithNoise(float* x, std::size_t n, float peak = 1.0F)
{
    std::mt19937 random(1);
    std::uniform_real_distribution<float> uniform(-peak, peak);
    for (std::size_t i = 0; i < n; ++i)
        x[i] = uniform(random);
}

} // namespace quorel::bench
