// What several benchmarks begin with: a variant of the kernels in use, and noise.
#pragma once

#include "core/kernels/kernel_table.h"

#include <cstddef>
#include <random>

namespace quorel::bench {

// Puts a variant into use for the length of a benchmark.
class InUse {
public:
    explicit InUse(const kernels::KernelTable& variant) { kernels::use(variant); }
    ~InUse() { kernels::use(before); }
    InUse(const InUse&) = delete;
    InUse& operator=(const InUse&) = delete;

private:
    const kernels::KernelTable& before = kernels::active();
};

// The same noise at every call, evenly spread up to the peak.
inline void fillWithNoise(float* x, std::size_t n, float peak = 1.0F)
{
    std::mt19937 random(1);
    std::uniform_real_distribution<float> uniform(-peak, peak);
    for (std::size_t i = 0; i < n; ++i)
        x[i] = uniform(random);
}

} // namespace quorel::bench
