// SPDX-License-Identifier: MIT
#include "speaker/allpass_diffuser.h"

#include "tests/support/failure.h"

#include <gtest/gtest.h>

#include <cmath>
#include <string>

namespace quorel {
namespace {

constexpr std::array<std::uint64_t, 12> delays = {15, 19, 21, 26, 32, 34, 41, 45, 47, 52, 58, 65};

std::array<float, 12> equal(float g)
{
    std::array<float, 12> all{};
    all.fill(g);
    return all;
}

Buffer<float, 12> impulse(std::uint64_t n)
{
    Buffer<float, 12> buffer(n);
    for (std::size_t c = 0; c < 12; ++c)
        buffer.channel(c)[0] = 1.0F;
    buffer.setSize(n);
    return buffer;
}

// The closed form: y[0] = g, y[k*d] = (1 - g^2) * (-g)^(k-1), zero elsewhere.
double response(double g, std::size_t d, std::size_t i)
{
    if (i == 0)
        return g;
    return i % d != 0 ? 0.0 : (1 - g * g) * std::pow(-g, static_cast<double>(i / d - 1));
}

TEST(AllpassDiffuser, EveryLineHasTheClosedFormOfItsImpulseResponse)
{
    std::array<float, 12> g{};
    for (std::size_t c = 0; c < 12; ++c)
        g[c] = 0.9F - 0.15F * static_cast<float>(c);
    AllpassDiffuser diffuser(delays, g);
    const auto in = impulse(1000);
    Buffer<float, 12> out(1000);
    diffuser.process(in, out);
    ASSERT_EQ(out.size(), 1000U);
    for (std::size_t c = 0; c < 12; ++c)
        for (std::size_t i = 0; i < 1000; ++i) // a few roundings of values below 1, fed back with a gain below 10
            ASSERT_NEAR(static_cast<double>(out.channel(c)[i]), response(static_cast<double>(g[c]), delays[c], i), 0x1p-19)
                << "line " << c << ", sample " << i;
}

TEST(AllpassDiffuser, TheEnergyOfTheResponseSumsToOne)
{
    AllpassDiffuser diffuser(delays, equal(0.72F));
    const auto in = impulse(4096);
    Buffer<float, 12> out(4096);
    diffuser.process(in, out);
    EXPECT_EQ(out.channel(0)[0], 0.72F);
    EXPECT_NEAR(static_cast<double>(out.channel(0)[15]), 1 - 0.72 * 0.72, 0x1p-22);
    for (std::size_t c = 0; c < 12; ++c) {
        double energy = 0;
        for (std::size_t i = 0; i < 4096; ++i)
            energy += static_cast<double>(out.channel(c)[i]) * static_cast<double>(out.channel(c)[i]);
        // What is cut off is 0.72^(2 * 4096 / 65) < 1e-17; roundings of 2^-24 on each of the few large taps.
        EXPECT_NEAR(energy, 1.0, 0x1p-21) << "line " << c;
    }
}

TEST(AllpassDiffuser, HistoriesPersistOverBlocks)
{
    AllpassDiffuser diffuser(delays, equal(0.72F));
    const auto in = impulse(10);
    Buffer<float, 12> silence(10);
    silence.setSize(10);
    Buffer<float, 12> out(10);
    for (std::size_t at = 0; at < 500; at += 10) {
        diffuser.process(at == 0 ? in : silence, out);
        for (std::size_t c = 0; c < 12; ++c)
            for (std::size_t i = 0; i < 10; ++i)
                ASSERT_NEAR(static_cast<double>(out.channel(c)[i]), response(0.72, delays[c], at + i), 0x1p-21);
    }
}

TEST(AllpassDiffuser, ABlockBeyondTheOutputsCapacityFails)
{
    AllpassDiffuser diffuser(delays, equal(0.72F));
    const auto in = impulse(17);
    Buffer<float, 12> out(16);
    try {
        diffuser.process(in, out);
        FAIL();
    } catch (const std::invalid_argument& failure) {
        EXPECT_STREQ(failure.what(), "AllpassDiffuser: out buffer too small");
    }
}

TEST(AllpassDiffuser, ABlockOfExactlyTheOutputsCapacityPasses)
{
    AllpassDiffuser diffuser(delays, equal(0.72F));
    const auto in = impulse(16);
    Buffer<float, 12> out(16);
    diffuser.process(in, out);
    EXPECT_EQ(out.size(), 16U);
}

TEST(AllpassDiffuser, AnEmptyBlockIsTheKernelsSizeError)
{
    AllpassDiffuser diffuser(delays, equal(0.72F));
    const Buffer<float, 12> in(16);
    Buffer<float, 12> out(16);
    EXPECT_EQ(failureStatus([&] { diffuser.process(in, out); }), -6);
}

TEST(AllpassDiffuser, ADelayOfNothingIsTheKernelsPositionError)
{
    auto none = delays;
    none[5] = 0;
    EXPECT_EQ(failureStatus([&] { AllpassDiffuser(none, equal(0.72F)); }), -194);
}

TEST(AllpassDiffuser, AMovedDiffuserRunsOnWithItsHistories)
{
    static_assert(std::is_nothrow_move_constructible_v<AllpassDiffuser> && std::is_nothrow_move_assignable_v<AllpassDiffuser>);
    static_assert(!std::is_copy_constructible_v<AllpassDiffuser>);
    AllpassDiffuser first(delays, equal(0.72F));
    auto block = impulse(15);
    Buffer<float, 12> out(15);
    first.process(block, out);
    AllpassDiffuser second(std::move(first));
    block.clear();
    second.process(block, out);
    EXPECT_NEAR(static_cast<double>(out.channel(0)[0]), 1 - 0.72 * 0.72, 0x1p-22);
}

} // namespace
} // namespace quorel
