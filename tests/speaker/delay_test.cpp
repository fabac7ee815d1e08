// SPDX-License-Identifier: MIT
#include "speaker/delay.h"

#include "speaker/speaker_tables.h"
#include "tests/support/failure.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>
#include <string>
#include <type_traits>
#include <vector>

// Samples are whole numbers, told apart by channel and frame and exact in floats: all comparisons are exact.

namespace quorel {
namespace {

// Frame t of channel c, never 0.
float sample(std::size_t c, std::uint64_t t)
{
    return static_cast<float>(100000 * c + t + 1);
}

// What channel c gives at frame t when it is delayed by d.
float delayed(std::size_t c, std::uint64_t t, std::uint64_t d)
{
    return t < d ? 0.0F : sample(c, t - d);
}

// The stream of `sample`, fed to a Delay block by block behind a history that must not be heard.
template <std::size_t N>
struct Stream {
    PaddedBuffer<N> in{1024, 32};
    Buffer<float, N> out{512};
    std::uint64_t t = 0; // the block's first frame

    void fill(std::uint64_t n)
    {
        for (std::size_t c = 0; c < N; ++c) {
            std::fill_n(in.channel(c), in.capacity(), std::numeric_limits<float>::quiet_NaN());
            std::fill_n(out.channel(c), out.capacity(), std::numeric_limits<float>::quiet_NaN());
            for (std::uint64_t i = 0; i < n; ++i)
                in.channel(c)[in.overlap() + i] = sample(c, t + i);
        }
        in.setSize(in.overlap() + n);
    }

    // One block of n frames against the delays that are in force.
    void expectBlock(Delay<N>& delay, std::uint64_t n, const std::array<std::uint64_t, N>& inForce)
    {
        fill(n);
        delay.process(in, out);
        ASSERT_EQ(out.size(), n);
        for (std::size_t c = 0; c < N; ++c)
            for (std::uint64_t i = 0; i < n; ++i)
                ASSERT_EQ(out.channel(c)[i], delayed(c, t + i, inForce[c])) << "channel " << c << ", frame " << t + i;
        t += n;
    }
};

Delay<1> delayOf(std::uint64_t frames)
{
    return Delay<1>(std::array{frames});
}

TEST(Delay, ShortBlocksComeOutTheDelayLaterAcrossTheirBorders)
{
    auto delay = delayOf(48);
    Stream<1> stream;
    for (int block = 0; block < 10; ++block)
        stream.expectBlock(delay, 32, {48});
}

TEST(Delay, BlocksLongerThanTheDelayTakeTheirEndFromThemselves)
{
    auto delay = delayOf(48);
    Stream<1> stream;
    stream.expectBlock(delay, 64, {48});
    EXPECT_EQ(stream.out.channel(0)[47], 0.0F);
    EXPECT_EQ(stream.out.channel(0)[48], 1.0F);
    EXPECT_EQ(stream.out.channel(0)[63], 16.0F);
    stream.expectBlock(delay, 64, {48});
    EXPECT_EQ(stream.out.channel(0)[0], 17.0F); // the first of the last 48 frames
}

TEST(Delay, ABlockOfExactlyTheDelaysLengthFails)
{
    auto delay = delayOf(48);
    Stream<1> stream;
    for (int repetition = 0; repetition < 2; ++repetition) {
        stream.fill(48);
        EXPECT_EQ(failureText<ipps::Error>([&] { delay.process(stream.in, stream.out); }), "ippStsSizeErr");
        EXPECT_EQ(stream.out.size(), 0U);
    }
    stream.expectBlock(delay, 47, {48});
    stream.expectBlock(delay, 49, {48});
}

TEST(Delay, AFailedBlockAdvancesTheChannelsBelowAndNoOther)
{
    Delay<3> delay(std::array<std::uint64_t, 3>{64, 48, 64});
    Stream<3> stream;
    stream.expectBlock(delay, 32, {64, 48, 64});
    stream.fill(48);
    EXPECT_EQ(failureText<ipps::Error>([&] { delay.process(stream.in, stream.out); }), "ippStsSizeErr");
    EXPECT_EQ(stream.out.size(), 32U); // of the block before
    for (std::uint64_t i = 0; i < 48; ++i) {
        EXPECT_EQ(stream.out.channel(0)[i], delayed(0, 32 + i, 64));
        EXPECT_EQ(stream.out.channel(1)[i], delayed(1, 32 + i, 48));
        EXPECT_TRUE(std::isnan(stream.out.channel(2)[i]));
    }

    // Channel 0 has heard frames 0 to 79, the others 0 to 31.
    stream.t = 80;
    stream.fill(16);
    delay.process(stream.in, stream.out);
    for (std::uint64_t i = 0; i < 16; ++i) {
        EXPECT_EQ(stream.out.channel(0)[i], sample(0, 16 + i));
        EXPECT_EQ(stream.out.channel(1)[i], 0.0F);
        EXPECT_EQ(stream.out.channel(2)[i], 0.0F);
    }
    stream.t = 96;
    stream.fill(32);
    delay.process(stream.in, stream.out);
    for (std::uint64_t i = 0; i < 32; ++i) {
        EXPECT_EQ(stream.out.channel(0)[i], sample(0, 32 + i));
        EXPECT_EQ(stream.out.channel(1)[i], sample(1, i));
        EXPECT_EQ(stream.out.channel(2)[i], i < 16 ? 0.0F : sample(2, i - 16));
    }
}

TEST(Delay, ARequestedDelayTakesEffectRoundedUpTo16)
{
    for (const auto& [requested, inForce] :
         {std::pair<std::uint64_t, std::uint64_t>{1, 16}, {16, 16}, {17, 32}, {38, 48}, {40, 48}, {44, 48}, {48, 48}, {51, 64}}) {
        SCOPED_TRACE(requested);
        auto delay = delayOf(requested);
        Stream<1> stream;
        for (std::uint64_t n : {200U, 7U, 1U, 33U, 100U})
            stream.expectBlock(delay, n, {inForce});
    }
}

template <std::size_t N>
void expectAnyCutting()
{
    const std::array<std::uint64_t, 8> requested = {44, 16, 100, 1, 300, 51, 65, 400};
    const std::array<std::uint64_t, 8> inForce = {48, 16, 112, 16, 304, 64, 80, 400};
    constexpr unsigned seed = 27;
    SCOPED_TRACE("channels " + std::to_string(N) + ", seed " + std::to_string(seed));
    std::array<std::uint64_t, N> d{};
    std::copy_n(inForce.begin(), N, d.begin());
    Delay<N> delay{std::span(requested).template first<N>()};
    Stream<N> stream;
    std::mt19937 random(seed);
    for (int block = 0; block < 400; ++block) {
        std::uint64_t n = 0;
        do // short and long ones, and none that fails
            n = std::uniform_int_distribution<std::uint64_t>(1, block % 2 == 0 ? 20 : 512)(random);
        while (std::find(d.begin(), d.end(), n) != d.end());
        stream.expectBlock(delay, n, d);
        if (testing::Test::HasFatalFailure())
            return;
    }
}

TEST(Delay, EveryChannelHasItsOwnDelayInAnyCuttingIntoBlocks)
{
    expectAnyCutting<1>();
    expectAnyCutting<2>();
    expectAnyCutting<3>();
    expectAnyCutting<4>();
    expectAnyCutting<5>();
    expectAnyCutting<6>();
    expectAnyCutting<7>();
    expectAnyCutting<8>();
}

TEST(Delay, RefusesMoreFramesThanTheOutputHoldsAndChangesNothing)
{
    auto delay = delayOf(48);
    Stream<1> stream;
    stream.expectBlock(delay, 30, {48});
    Buffer<float, 1> small(16);
    small.setSize(5);
    stream.fill(17);
    EXPECT_EQ(failureText<std::invalid_argument>([&] { delay.process(stream.in, small); }), "Delay: out buffer too small");
    EXPECT_EQ(small.size(), 5U);
    EXPECT_EQ(small.channel(0)[0], 0.0F);
    stream.expectBlock(delay, 100, {48});
}

TEST(Delay, RefusesAnEmptyBlockAndChangesNothing)
{
    auto delay = delayOf(48);
    Stream<1> stream;
    stream.expectBlock(delay, 30, {48});
    for (const std::uint64_t size : {0U, 20U, 32U}) { // up to the whole history
        stream.in.setSize(size);
        EXPECT_EQ(failureText<std::invalid_argument>([&] { delay.process(stream.in, stream.out); }), "Delay: in buffer empty");
        EXPECT_EQ(stream.out.size(), 30U);
    }
    stream.expectBlock(delay, 100, {48});
}

TEST(Delay, ADelayOfNothingCannotBeBuilt)
{
    EXPECT_EQ(failureText<UninitializedBuffer>([] { delayOf(0); }), "Buffer not initialized");
}

TEST(Delay, MovesWithItsStateAndNeverCopies)
{
    static_assert(std::is_nothrow_move_constructible_v<Delay<8>> && std::is_nothrow_move_assignable_v<Delay<8>>);
    static_assert(!std::is_copy_constructible_v<Delay<8>> && !std::is_copy_assignable_v<Delay<8>>);

    auto first = delayOf(48);
    Stream<1> stream;
    stream.expectBlock(first, 40, {48});
    auto second = std::move(first);
    stream.expectBlock(second, 100, {48});
    stream.fill(10);
    EXPECT_EQ(failureText<UninitializedBuffer>([&] { first.process(stream.in, stream.out); }), "Buffer not initialized");
}

TEST(Delay, TheTabledPreDelaysBecome48FramesAndForBackLeft64)
{
    std::array<std::uint64_t, 8> requested{};
    for (std::size_t s = 0; s < requested.size(); ++s)
        requested[s] = speakerTable[s].preDelay;
    Delay<8> delay(requested);
    PaddedBuffer<8> in(160, 16);
    Buffer<float, 8> out(144);
    in.setSize(160);
    for (std::size_t s = 0; s < 8; ++s)
        in.channel(s)[16] = 1.0F;
    delay.process(in, out);
    for (std::size_t s = 0; s < 8; ++s)
        for (std::size_t i = 0; i < 144; ++i)
            EXPECT_EQ(out.channel(s)[i], i == (speakerTable[s].bit == 0x10 ? 64U : 48U) ? 1.0F : 0.0F) << s << ", " << i;
}

} // namespace
} // namespace quorel
