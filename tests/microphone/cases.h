// SPDX-License-Identifier: MIT
// What the tests of the capture stages share: the swept channel counts and rates, and how a failure is caught whole.
#pragma once

#include "core/buffer.h"

#include "tests/support/failure.h"

#include <gtest/gtest.h>

#include <array>
#include <complex>
#include <cstdint>
#include <string>

namespace quorel {

// body.template operator()<N>() for N of 1, 2 and 8.
template <class Body>
void forChannelCounts(Body body)
{
    const auto run = [&]<std::size_t N>() {
        SCOPED_TRACE("channels: " + std::to_string(N));
        body.template operator()<N>();
    };
    run.template operator()<1>();
    run.template operator()<2>();
    run.template operator()<8>();
}

constexpr std::array<std::uint32_t, 2> bothRates = {16000, 48000};

// body.template operator()<N>(rate) for every swept channel count at both rates.
template <class Body>
void forRatesAndChannelCounts(Body body)
{
    for (const std::uint32_t rate : bothRates) {
        SCOPED_TRACE("rate: " + std::to_string(rate));
        forChannelCounts([&]<std::size_t N>() { body.template operator()<N>(rate); });
    }
}

// The same value in every band of every channel, `frames` times.
template <std::size_t N>
SpectrumBuffer<N> constantBands(std::uint64_t bands, Complex value, std::uint64_t frames = 1)
{
    SpectrumBuffer<N> buffer(bands * frames);
    for (std::size_t c = 0; c < N; ++c)
        std::fill_n(buffer.channel(c), bands * frames, value);
    buffer.setSize(bands * frames);
    return buffer;
}

} // namespace quorel
