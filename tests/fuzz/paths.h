// SPDX-License-Identifier: MIT
// A signal path of a kind and layout that a fuzzer chooses, and blocks through it that are as long as they are said to be: a step
// beside them is the sanitizer's to find.
#pragma once

#include "core/signal_path.h"
#include "settings/control_block.h"
#include "tests/fuzz/fuzz.h"

#include <array>
#include <bit>
#include <exception>
#include <limits>
#include <vector>

namespace quorel {

inline constexpr std::array<std::uint32_t, 8> usualMasks = {0x4, 0x3, 0x7, 0x33, 0x37, 0x3F, 0x61F, 0x63F};

struct FuzzedPath {
    FuzzedPath(bool render, std::uint32_t channels, std::uint32_t mask, std::uint32_t maxFrames, std::uint32_t rate)
        : slots(channels),
          path(render ? SignalPath(SignalPath::Speaker{}, static_cast<std::int32_t>(channels), mask, maxFrames, rate)
                      : SignalPath(SignalPath::Microphone{}, static_cast<std::int32_t>(channels), mask, maxFrames, rate)),
          render(render)
    {
    }

    // One of the layouts that streams have.
    static FuzzedPath usual(FuzzInput& input)
    {
        const auto channels = input.below(8) + 1;
        const bool render = input.below(2) == 0;
        const std::uint32_t other = render ? 96000 : 16000; // at which nothing is rendered
        const std::uint32_t rate = input.below(4) != 3 ? 48000 : other;
        return {render, channels, usualMasks.at(channels - 1), 480, rate};
    }

    // A copied frame is as wide as the input's; a rendered one has eight slots. False when the block is refused.
    bool run(std::uint64_t inFrames, std::uint64_t outFrames, FuzzInput& input)
    {
        std::vector<float> in(inFrames * slots);
        std::vector<float> out(outFrames * (render ? 8 : slots));
        const auto kind = input.below(4);
        constexpr auto limits = std::numeric_limits<float>();
        constexpr std::array<float, 4> edges = {limits.quiet_NaN(), limits.infinity(), limits.denorm_min(), limits.max()};
        const float edge = edges.at(input.below(edges.size()));
        for (std::size_t i = 0; i < in.size(); ++i)
            in[i] = kind == 0                 ? 0
                    : kind == 3 && i % 7 == 0 ? edge
                                              : static_cast<float>(static_cast<int>(i * 7919 % 200) - 100) / 100;
        try {
            require(path->process(in.data(), inFrames, out.data(), outFrames) == outFrames, "the length is given back");
            return true;
        } catch (const std::exception&) {
            return false;
        }
    }

    std::size_t slots;
    SignalPath path;
    bool render;
};

} // namespace quorel
