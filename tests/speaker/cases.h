// SPDX-License-Identifier: MIT
// What the tests of the render stages share: repeatable material, exact comparison, and how a failure is caught whole.
#pragma once

#include "core/buffer.h"

#include "tests/support/failure.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <random>
#include <string>

namespace quorel {

// body.template operator()<N>() for N of 1 to 8.
template <class Body>
void forChannelCounts(Body body)
{
    const auto run = [&]<std::size_t N>() {
        SCOPED_TRACE("channels: " + std::to_string(N));
        body.template operator()<N>();
    };
    [&]<std::size_t... c>(std::index_sequence<c...>)
    {
        (run.template operator()<c + 1>(), ...);
    }
    (std::make_index_sequence<8>{});
}

// White noise of standard deviation 1.
class Noise {
public:
    explicit Noise(std::uint32_t seed) : engine(seed) {}

    float operator()() { return normal(engine); }

    // A whole number from `low` to `high`.
    std::uint64_t between(std::uint64_t low, std::uint64_t high)
    {
        return std::uniform_int_distribution<std::uint64_t>(low, high)(engine);
    }

    // `n` frames behind the first `offset` samples of each row; the size counts both.
    template <std::size_t C>
    void fill(Buffer<float, C>& buffer, std::uint64_t n, float scale = 1.0F, std::uint64_t offset = 0)
    {
        for (std::size_t c = 0; c < C; ++c)
            for (std::uint64_t i = 0; i < n; ++i)
                buffer.channel(c)[offset + i] = scale * (*this)();
        buffer.setSize(offset + n);
    }

private:
    std::mt19937 engine;
    std::normal_distribution<float> normal;
};

template <std::size_t C>
void fillWith(Buffer<float, C>& buffer, std::uint64_t n, float value)
{
    for (std::size_t c = 0; c < C; ++c)
        std::fill_n(buffer.channel(c), n, value);
    buffer.setSize(n);
}

inline std::uint32_t bits(float x)
{
    return std::bit_cast<std::uint32_t>(x);
}

// Whether the valid samples of two buffers are the same bit by bit.
template <std::size_t C>
::testing::AssertionResult sameBits(const Buffer<float, C>& a, const Buffer<float, C>& b)
{
    if (a.size() != b.size())
        return ::testing::AssertionFailure() << "sizes " << a.size() << " and " << b.size();
    for (std::size_t c = 0; c < C; ++c)
        for (std::uint64_t i = 0; i < a.size(); ++i)
            if (bits(a.channel(c)[i]) != bits(b.channel(c)[i]))
                return ::testing::AssertionFailure()
                       << "channel " << c << ", frame " << i << ": " << a.channel(c)[i] << " and " << b.channel(c)[i];
    return ::testing::AssertionSuccess();
}

inline bool isSubnormal(float x)
{
    return std::fpclassify(x) == FP_SUBNORMAL;
}

} // namespace quorel
