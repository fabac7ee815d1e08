// SPDX-License-Identifier: MIT
// The frequency-domain stage with its levels and a block, for its tests.
#pragma once

#include "microphone/frequency_domain_proc.h"

#include "tests/microphone/signals.h"

#include <algorithm>
#include <cmath>

namespace quorel {

inline const float tenDbDown = std::pow(10.0F, -0.5F);

inline std::uint64_t hopOf(std::uint32_t rate)
{
    return microphoneRate(rate)->hop;
}

// A stage with its levels and a block in which it works in place, the same samples in every channel.
template <std::size_t N>
struct Stage {
    explicit Stage(std::uint32_t rate) : hop(hopOf(rate)), block(8 * hop), stage(rate, levels.data()) {}

    // In blocks of `frames` samples. The last channel is handed back.
    std::vector<float> run(const std::vector<float>& x, std::size_t frames)
    {
        std::vector<float> y;
        for (std::size_t i = 0; i < x.size(); i += frames) {
            for (std::size_t c = 0; c < N; ++c)
                std::copy_n(x.begin() + static_cast<std::ptrdiff_t>(i), frames, block.channel(c));
            block.setSize(frames);
            stage.process(block, block, writeBack, measureLevels, levels.data());
            EXPECT_EQ(block.size(), frames);
            y.insert(y.end(), block.channel(N - 1), block.channel(N - 1) + frames);
        }
        return y;
    }
    std::vector<float> run(const std::vector<float>& x) { return run(x, hop); }

    std::uint64_t hop;
    Buffer<float, N> block;
    std::array<float, 10> levels{5, 5, 5, 5, 5, 5, 5, 5, 5, 5};
    FrequencyDomainProc<N> stage;
    bool writeBack = true;
    bool measureLevels = true;
};

} // namespace quorel
