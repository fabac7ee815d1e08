// SPDX-License-Identifier: MIT
#include "core/buffer.h"

#include "tests/support/failure.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <type_traits>

namespace quorel {
namespace {

TEST(Buffer, FloatCapacityIsRoundedUpTo16AndIsTheStride)
{
    Buffer<float, 2> buffer(17);
    EXPECT_EQ(buffer.capacity(), 32U);
    EXPECT_EQ(buffer.channel(1) - buffer.channel(0), 32);
}

TEST(Buffer, ComplexCapacityIsRoundedUpTo8)
{
    SpectrumBuffer<2> buffer(17);
    EXPECT_EQ(buffer.capacity(), 24U);
    EXPECT_EQ(buffer.channel(1) - buffer.channel(0), 24);
}

TEST(Buffer, AnExactMultipleIsKept)
{
    EXPECT_EQ((Buffer<float, 1>(16).capacity()), 16U);
    EXPECT_EQ((Buffer<float, 1>(1024).capacity()), 1024U);
    EXPECT_EQ(SpectrumBuffer<1>(8).capacity(), 8U);
}

template <typename T, std::size_t C>
void expectAlignedAndZeroed()
{
    for (std::uint64_t capacity = 1; capacity < 70; ++capacity) {
        Buffer<T, C> buffer(capacity);
        EXPECT_EQ(buffer.size(), 0U);
        for (std::size_t c = 0; c < C; ++c) {
            const T* row = buffer.channel(c);
            EXPECT_EQ(reinterpret_cast<std::uintptr_t>(row) % 64, 0U);
            EXPECT_TRUE(std::all_of(row, row + buffer.capacity(), [](T x) { return x == T{}; }));
        }
    }
}

TEST(Buffer, EveryRowStartsOnA64ByteBoundaryAndIsZeroed)
{
    expectAlignedAndZeroed<float, 1>();
    expectAlignedAndZeroed<float, 7>();
    expectAlignedAndZeroed<float, 8>();
    expectAlignedAndZeroed<float, 12>();
    expectAlignedAndZeroed<Complex, 1>();
    expectAlignedAndZeroed<Complex, 8>();
}

TEST(Buffer, OfTheSameCapacityTakesNoContents)
{
    Buffer<float, 2> first(40);
    first.channel(1)[3] = 5.0F;
    first.setSize(40);
    const Buffer<float, 2> second(SameCapacity{}, first);
    EXPECT_EQ(second.capacity(), 48U);
    EXPECT_EQ(second.size(), 0U);
    EXPECT_EQ(second.channel(1)[3], 0.0F);
}

TEST(Buffer, FromAVectorHoldsItsSamples)
{
    std::vector<float> samples(21);
    for (std::size_t i = 0; i < samples.size(); ++i)
        samples[i] = static_cast<float>(i);
    const Buffer<float, 1> buffer(samples);
    EXPECT_EQ(buffer.capacity(), 32U);
    EXPECT_EQ(buffer.size(), 21U);
    EXPECT_TRUE(std::equal(samples.begin(), samples.end(), buffer.channel(0)));
    EXPECT_EQ(buffer.channel(0)[21], 0.0F);
}

TEST(Buffer, OfNoCapacityCannotBeBuilt)
{
    EXPECT_EQ((failureText<UninitializedBuffer>([] { Buffer<float, 2>(0); })), "Buffer not initialized");
    EXPECT_EQ((failureText<UninitializedBuffer>([] { SpectrumBuffer<2>(0); })), "Buffer not initialized");
    EXPECT_EQ((failureText<UninitializedBuffer>([] { Buffer<float, 1>(std::vector<float>{}); })), "Buffer not initialized");
}

TEST(Buffer, AnAbsurdCapacityExhaustsMemory)
{
    EXPECT_THROW((Buffer<float, 8>(std::uint64_t{1} << 60)), std::bad_alloc);
    EXPECT_THROW((Buffer<float, 8>(std::uint64_t{1} << 62)), std::bad_alloc);
}

TEST(Buffer, AMovedFromBufferFailsAtFirstUse)
{
    Buffer<float, 2> first(20);
    first.setSize(20);
    const float* row = first.channel(0);
    Buffer<float, 2> second(std::move(first));
    EXPECT_EQ(second.channel(0), row);
    EXPECT_EQ(second.size(), 20U);
    EXPECT_EQ(first.capacity(), 0U); // NOLINT(bugprone-use-after-move)
    EXPECT_EQ(first.size(), 0U);
    EXPECT_EQ(failureText<UninitializedBuffer>([&] { first.channel(0); }), "Buffer not initialized");
    EXPECT_EQ(failureText<UninitializedBuffer>([&] { std::as_const(first).channel(0); }), "Buffer not initialized");
    EXPECT_EQ(failureText<UninitializedBuffer>([&] { first.clear(); }), "Buffer not initialized");
}

TEST(Buffer, TheUninitializedFailureIsAPlainException)
{
    static_assert(std::is_base_of_v<std::exception, UninitializedBuffer>);
    static_assert(!std::is_base_of_v<std::logic_error, UninitializedBuffer>);
    static_assert(!std::is_base_of_v<std::runtime_error, UninitializedBuffer>);
    static_assert(!std::is_base_of_v<ipps::Error, UninitializedBuffer>);
}

TEST(Buffer, MoveAssignmentTakesOverAndSelfMoveDoesNothing)
{
    Buffer<float, 2> first(20);
    first.channel(1)[0] = 3.0F;
    first.setSize(7);
    Buffer<float, 2> second(100);
    second = std::move(first);
    EXPECT_EQ(second.capacity(), 32U);
    EXPECT_EQ(second.size(), 7U);
    EXPECT_EQ(first.capacity(), 0U); // NOLINT(bugprone-use-after-move)
    auto& same = second;
    second = std::move(same);
    EXPECT_EQ(second.size(), 7U);
    EXPECT_EQ(second.channel(1)[0], 3.0F);
}

TEST(Buffer, MovesAndNeverCopies)
{
    static_assert(std::is_nothrow_move_constructible_v<Buffer<float, 3>> && std::is_nothrow_move_assignable_v<Buffer<float, 3>>);
    static_assert(!std::is_copy_constructible_v<Buffer<float, 3>> && !std::is_copy_assignable_v<Buffer<float, 3>>);
    static_assert(std::is_nothrow_move_constructible_v<PaddedBuffer<3>> && !std::is_copy_constructible_v<PaddedBuffer<3>>);
}

TEST(Buffer, ClearZeroesTheWholeCapacityAndKeepsTheSize)
{
    Buffer<float, 2> buffer(16);
    std::fill_n(buffer.channel(0), 32, 1.0F);
    buffer.setSize(5);
    buffer.clear();
    EXPECT_EQ(buffer.size(), 5U);
    EXPECT_TRUE(std::all_of(buffer.channel(0), buffer.channel(0) + 32, [](float x) { return x == 0.0F; }));
}

TEST(PaddedBuffer, OfCapacityTwiceItsOverlapIsAccepted)
{
    const PaddedBuffer<1> buffer(32, 16);
    EXPECT_EQ(buffer.capacity(), 32U);
    EXPECT_EQ(buffer.overlap(), 16U);
}

TEST(PaddedBuffer, OfLessThanTwiceItsRoundedOverlapIsRefused)
{
    EXPECT_EQ(failureText<std::invalid_argument>([] { PaddedBuffer<1>(31, 17); }), "PaddedBuffer: capacity > overlap failed");
}

TEST(PaddedBuffer, OfAnOverlapBeyondItsCapacityIsAccepted)
{
    const PaddedBuffer<1> buffer(16, 17);
    EXPECT_EQ(buffer.capacity(), 16U);
    EXPECT_EQ(buffer.overlap(), 32U);
}

TEST(PaddedBuffer, WhoseHistoryOverrunsItsRowRefusesToSlide)
{
    PaddedBuffer<2> buffer(16, 17);
    EXPECT_EQ(failureText<ipps::Error>([&] { buffer.slide(); }), "ippStsSizeErr");
}

TEST(PaddedBuffer, AMovedFromOneFailsWhenItSlides)
{
    PaddedBuffer<2> first(64, 16);
    PaddedBuffer<2> second(std::move(first));
    EXPECT_EQ(second.overlap(), 16U);
    EXPECT_NO_THROW(second.slide());
    EXPECT_EQ(failureText<UninitializedBuffer>([&] { first.slide(); }),
              "Buffer not initialized"); // NOLINT(bugprone-use-after-move)
}

TEST(PaddedBuffer, OfThePathsHas1024SamplesAnd176OfHistory)
{
    const PaddedBuffer<8> buffer(1024, 169);
    EXPECT_EQ(buffer.capacity(), 1024U);
    EXPECT_EQ(buffer.overlap(), 176U);
}

TEST(PaddedBuffer, ValidFramesAreWhatFollowsTheHistory)
{
    PaddedBuffer<1> buffer(64, 16);
    EXPECT_EQ(buffer.validFrames(), 0U);
    buffer.setSize(15);
    EXPECT_EQ(buffer.validFrames(), 0U);
    buffer.setSize(16);
    EXPECT_EQ(buffer.validFrames(), 0U);
    buffer.setSize(40);
    EXPECT_EQ(buffer.validFrames(), 24U);
}

TEST(PaddedBuffer, SlideKeepsTheLastOverlapAndClearsTheRest)
{
    PaddedBuffer<3> buffer(256, 30); // an overlap of 32
    for (std::size_t c = 0; c < 3; ++c)
        for (std::size_t i = 0; i < 256; ++i)
            buffer.channel(c)[i] = static_cast<float>(1000 * c + i + 1);
    buffer.setSize(32 + 100);
    buffer.slide();
    EXPECT_EQ(buffer.size(), 32U);
    EXPECT_EQ(buffer.validFrames(), 0U);
    for (std::size_t c = 0; c < 3; ++c)
        for (std::size_t i = 0; i < 256; ++i)
            EXPECT_EQ(buffer.channel(c)[i], i < 32 ? static_cast<float>(1000 * c + 100 + i + 1) : 0.0F);
}

TEST(PaddedBuffer, SlideOfLessThanTheOverlapKeepsTheRowsFront)
{
    PaddedBuffer<1> buffer(64, 16);
    for (std::size_t i = 0; i < 64; ++i)
        buffer.channel(0)[i] = static_cast<float>(i + 1);
    buffer.setSize(10);
    buffer.slide();
    EXPECT_EQ(buffer.size(), 16U);
    for (std::size_t i = 0; i < 64; ++i)
        EXPECT_EQ(buffer.channel(0)[i], i < 16 ? static_cast<float>(i + 1) : 0.0F);
}

} // namespace
} // namespace quorel
