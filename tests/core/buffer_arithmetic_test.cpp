// SPDX-License-Identifier: MIT
#include "core/buffer_arithmetic.h"

#include "tests/support/failure.h"

#include <gtest/gtest.h>

#include <string>

namespace quorel {
namespace {

template <std::size_t C>
Buffer<float, C> filled(std::uint64_t size, float step)
{
    Buffer<float, C> buffer(size == 0 ? 16 : size);
    for (std::size_t c = 0; c < C; ++c)
        for (std::uint64_t i = 0; i < size; ++i)
            buffer.channel(c)[i] = step * static_cast<float>(i + 1) + static_cast<float>(c);
    buffer.setSize(size);
    return buffer;
}

// Every value here is a small multiple of 1/4, so that float arithmetic is exact.
template <std::size_t C>
void expectSum()
{
    SCOPED_TRACE(C);
    auto a = filled<C>(21, 0.5F);
    const auto b = filled<C>(21, 0.25F);
    a += b;
    EXPECT_EQ(a.size(), 21U);
    for (std::size_t c = 0; c < C; ++c)
        for (std::size_t i = 0; i < 21; ++i)
            EXPECT_EQ(a.channel(c)[i], 0.75F * static_cast<float>(i + 1) + 2.0F * static_cast<float>(c));
    EXPECT_EQ(failureText<std::invalid_argument>([&] { a += filled<C>(20, 1.0F); }),
              "BufferArithmetic: Buffer size does not match: Add +=");
    EXPECT_EQ(failureText<std::invalid_argument>([&] { a += filled<C>(22, 1.0F); }),
              "BufferArithmetic: Buffer size does not match: Add +=");
}

TEST(BufferArithmetic, AddAddsChannelToChannel)
{
    expectSum<1>();
    expectSum<2>();
}

template <std::size_t C>
void expectScaled()
{
    SCOPED_TRACE(C);
    auto b = filled<C>(21, 0.25F);
    b *= 0.5F;
    EXPECT_EQ(b.size(), 21U);
    for (std::size_t c = 0; c < C; ++c)
        for (std::size_t i = 0; i < 21; ++i)
            EXPECT_EQ(b.channel(c)[i], (0.25F * static_cast<float>(i + 1) + static_cast<float>(c)) * 0.5F);
}

template <std::size_t C>
void expectProducts()
{
    SCOPED_TRACE(C);
    const auto row = filled<1>(21, 0.5F);
    auto a = filled<C>(21, 0.25F);
    a *= row;
    EXPECT_EQ(a.size(), 21U);
    for (std::size_t c = 0; c < C; ++c)
        for (std::size_t i = 0; i < 21; ++i)
            EXPECT_EQ(a.channel(c)[i], (0.25F * static_cast<float>(i + 1) + static_cast<float>(c)) * row.channel(0)[i]);
    EXPECT_EQ(failureText<std::invalid_argument>([&] { a *= filled<1>(20, 1.0F); }),
              "BufferArithmetic: Buffer size does not match: Mul *=");
    EXPECT_EQ(failureText<std::invalid_argument>([&] { a *= filled<1>(22, 1.0F); }),
              "BufferArithmetic: Buffer size does not match: Mul *=");
    expectScaled<C>();
}

TEST(BufferArithmetic, MulByARowAndByAScalarReachEveryChannel)
{
    expectProducts<1>();
    expectProducts<2>();
    expectProducts<3>();
    expectProducts<4>();
    expectProducts<5>();
    expectProducts<6>();
    expectProducts<7>();
    expectProducts<8>();
    expectScaled<12>();
}

TEST(BufferArithmetic, MulToOutSetsItsSize)
{
    const auto a = filled<2>(21, 0.25F);
    const auto row = filled<1>(21, 0.5F);
    Buffer<float, 2> out(32);
    multiply(a, row, out);
    EXPECT_EQ(out.size(), 21U);
    for (std::size_t c = 0; c < 2; ++c)
        for (std::size_t i = 0; i < 21; ++i)
            EXPECT_EQ(out.channel(c)[i], a.channel(c)[i] * row.channel(0)[i]);
    out.setSize(0);
    multiply(a, 3.0F, out);
    EXPECT_EQ(out.size(), 21U);
    for (std::size_t c = 0; c < 2; ++c)
        for (std::size_t i = 0; i < 21; ++i)
            EXPECT_EQ(out.channel(c)[i], a.channel(c)[i] * 3.0F);
}

TEST(BufferArithmetic, MulToOutMayFillTheOutput)
{
    const auto in = filled<2>(32, 0.5F);
    Buffer<float, 2> out(32);
    multiply(in, filled<1>(32, 1.0F), out);
    EXPECT_EQ(out.size(), 32U);
    EXPECT_EQ(out.channel(1)[31], 17.0F * 32.0F);
    out.setSize(0);
    multiply(in, 2.0F, out);
    EXPECT_EQ(out.size(), 32U);
    EXPECT_EQ(out.channel(1)[31], 17.0F * 2.0F);
}

TEST(BufferArithmetic, AddOfDifferentSizesIsRefused)
{
    auto a = filled<2>(20, 1.0F);
    EXPECT_EQ(failureText<std::invalid_argument>([&] { a += filled<2>(21, 1.0F); }),
              "BufferArithmetic: Buffer size does not match: Add +=");
    EXPECT_EQ(a.channel(0)[0], 1.0F);
}

TEST(BufferArithmetic, MulByARowOfAnotherSizeIsRefused)
{
    auto a = filled<2>(20, 1.0F);
    EXPECT_EQ(failureText<std::invalid_argument>([&] { a *= filled<1>(21, 1.0F); }),
              "BufferArithmetic: Buffer size does not match: Mul *=");
}

TEST(BufferArithmetic, MulToOutByARowOfAnotherSizeOrBeyondItsCapacityIsRefused)
{
    const auto a = filled<2>(20, 1.0F);
    Buffer<float, 2> out(32);
    Buffer<float, 2> small(16);
    EXPECT_EQ(failureText<std::invalid_argument>([&] { multiply(a, filled<1>(21, 1.0F), out); }),
              "BufferArithmetic: Buffer size does not match: Mul");
    EXPECT_EQ(failureText<std::invalid_argument>([&] { multiply(a, filled<1>(20, 1.0F), small); }),
              "BufferArithmetic: Buffer size does not match: Mul");
    EXPECT_EQ(small.size(), 0U);
}

TEST(BufferArithmetic, MulToOutByAScalarBeyondItsCapacityIsRefused)
{
    const auto a = filled<2>(20, 1.0F);
    Buffer<float, 2> small(16);
    EXPECT_EQ(failureText<std::invalid_argument>([&] { multiply(a, 2.0F, small); }),
              "BufferArithmetic: Buffer size does not match: Mul");
}

TEST(BufferArithmetic, EmptyBlocksFailInTheKernel)
{
    auto a = filled<2>(0, 1.0F);
    const auto b = filled<2>(0, 1.0F);
    const auto row = filled<1>(0, 1.0F);
    Buffer<float, 2> out(16);
    try {
        a += b;
        FAIL() << "an empty sum was accepted";
    } catch (const ipps::Error& error) {
        EXPECT_EQ(error.status, ippStsSizeErr);
    }
    EXPECT_EQ(failureText<ipps::Error>([&] { a *= row; }), "ippStsSizeErr");
    EXPECT_EQ(failureText<ipps::Error>([&] { a *= 2.0F; }), "ippStsSizeErr");
    EXPECT_EQ(failureText<ipps::Error>([&] { multiply(a, row, out); }), "ippStsSizeErr");
    EXPECT_EQ(failureText<ipps::Error>([&] { multiply(a, 2.0F, out); }), "ippStsSizeErr");
}

} // namespace
} // namespace quorel
