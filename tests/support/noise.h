// SPDX-License-Identifier: MIT
// Noise to feed what is tested: the same for the same seed.
#pragma once

#include <algorithm>
#include <cstddef>
#include <random>
#include <vector>

namespace quorel {

// Evenly spread from -peak to peak.
inline std::vector<float> noise(std::size_t length, unsigned seed, float peak = 1.0F)
{
    std::mt19937 random(seed);
    std::uniform_real_distribution<float> level(-peak, peak);
    std::vector<float> samples(length);
    std::generate(samples.begin(), samples.end(), [&] { return level(random); });
    return samples;
}

// Normally distributed about 0.
inline std::vector<float> normalNoise(std::size_t length, float deviation = 0.1F, unsigned seed = 1)
{
    std::mt19937 random(seed);
    std::normal_distribution<float> normal(0.0F, deviation);
    std::vector<float> samples(length);
    std::generate(samples.begin(), samples.end(), [&] { return normal(random); });
    return samples;
}

} // namespace quorel
