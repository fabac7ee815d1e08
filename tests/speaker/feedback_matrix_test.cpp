// SPDX-License-Identifier: MIT
#include "speaker/feedback_matrix.h"

#include <gtest/gtest.h>

#include <random>
#include <string>

namespace quorel {
namespace {

// The reverberator's table: expanded, a Hadamard matrix.
constexpr FeedbackMatrix::Table hadamard = {{{11, 11, 11, 11, 11, 11},
                                             {10, 10, 11, 10, 0, 10},
                                             {10, 1, 1, 11, 0, 1},
                                             {11, 0, 10, 11, 10, 0},
                                             {10, 10, 1, 1, 11, 0},
                                             {10, 1, 0, 10, 11, 10},
                                             {10, 0, 10, 1, 1, 11},
                                             {11, 0, 1, 0, 10, 11},
                                             {11, 10, 0, 10, 1, 1},
                                             {11, 11, 0, 1, 0, 10},
                                             {10, 11, 10, 0, 10, 1},
                                             {11, 1, 11, 0, 1, 0}}};

constexpr std::uint64_t frames = 37;

Buffer<float, 12> noise(std::uint64_t n = frames)
{
    std::mt19937 random(31);
    std::uniform_real_distribution<float> level(-1.0F, 1.0F);
    Buffer<float, 12> buffer(n);
    for (std::size_t c = 0; c < 12; ++c)
        std::generate_n(buffer.channel(c), n, [&] { return level(random); });
    buffer.setSize(n);
    return buffer;
}

Buffer<float, 12> onesOnLine(std::size_t line)
{
    Buffer<float, 12> buffer(frames);
    std::fill_n(buffer.channel(line), frames, 1.0F);
    buffer.setSize(frames);
    return buffer;
}

// The sign of line c in an entry: the tens for the even line of the pair, the ones for the odd.
float sign(int entry, std::size_t c)
{
    return (c % 2 == 0 ? entry / 10 : entry % 10) == 1 ? 1.0F : -1.0F;
}

void expectRow(const Buffer<float, 12>& out, std::size_t r, float level)
{
    for (std::size_t i = 0; i < frames; ++i)
        ASSERT_EQ(out.channel(r)[i], level) << "row " << r << ", frame " << i;
}

TEST(FeedbackMatrix, EveryLineReachesEveryRowWithTheSignOfItsEntry)
{
    FeedbackMatrix matrix(hadamard, frames);
    for (std::size_t c = 0; c < 12; ++c) {
        const auto in = onesOnLine(c);
        Buffer<float, 12> out(frames);
        matrix.process(in, out);
        ASSERT_EQ(out.size(), frames);
        for (std::size_t r = 0; r < 12; ++r)
            expectRow(out, r, sign(hadamard[r][c / 2], c));
    }
}

TEST(FeedbackMatrix, LineZeroReachesAllRowsWithPlus)
{
    FeedbackMatrix matrix(hadamard, frames);
    const auto in = onesOnLine(0);
    Buffer<float, 12> out(frames);
    matrix.process(in, out);
    for (std::size_t r = 0; r < 12; ++r)
        expectRow(out, r, 1.0F);
}

TEST(FeedbackMatrix, LineOneFollowsTheFirstEntriesSign)
{
    FeedbackMatrix matrix(hadamard, frames);
    const auto in = onesOnLine(1);
    Buffer<float, 12> out(frames);
    matrix.process(in, out);
    for (std::size_t r = 0; r < 12; ++r)
        expectRow(out, r, hadamard[r][0] == 11 ? 1.0F : -1.0F);
}

TEST(FeedbackMatrix, EnergyGrowsByTwelveForTheHadamardTable)
{
    FeedbackMatrix matrix(hadamard, frames);
    const auto in = noise();
    Buffer<float, 12> out(frames);
    matrix.process(in, out);
    for (std::size_t i = 0; i < frames; ++i) {
        double before = 0, after = 0;
        for (std::size_t c = 0; c < 12; ++c) {
            before += static_cast<double>(in.channel(c)[i]) * static_cast<double>(in.channel(c)[i]);
            after += static_cast<double>(out.channel(c)[i]) * static_cast<double>(out.channel(c)[i]);
        }
        EXPECT_NEAR(after, 12 * before, 1e-5 * before); // six additions of half a unit of 2^-24 each, on twelve rows
    }
}

// The order in which a row is summed is fixed, so its roundings are too: the first pair's term, then one term after the other.
TEST(FeedbackMatrix, RowsAreSummedFromTheFirstPairToTheLastInSinglePrecision)
{
    FeedbackMatrix matrix(hadamard, 480);
    for (const std::uint64_t n : {1, 2, 15, 16, 17, 31, 64, 65, 479, 480}) {
        const auto in = noise(n);
        Buffer<float, 12> out(n);
        matrix.process(in, out);
        for (std::size_t r = 0; r < 12; ++r)
            for (std::size_t i = 0; i < n; ++i) {
                float sum = 0.0F;
                for (std::size_t p = 0; p < 6; ++p) {
                    const int entry = hadamard[r][p];
                    const float even = in.channel(2 * p)[i], odd = in.channel(2 * p + 1)[i];
                    const float term = entry == 11 || entry == 0 ? even + odd : even - odd;
                    sum = p == 0 ? term : entry >= 10 ? sum + term : sum - term;
                }
                ASSERT_EQ(out.channel(r)[i], sum) << "row " << r << ", frame " << i << " of " << n;
            }
    }
}

TEST(FeedbackMatrix, NothingPersistsBetweenBlocks)
{
    FeedbackMatrix matrix(hadamard, frames);
    const auto loud = noise();
    const auto one = onesOnLine(0);
    Buffer<float, 12> out(frames);
    matrix.process(loud, out);
    matrix.process(one, out);
    expectRow(out, 11, 1.0F);
}

TEST(FeedbackMatrix, AFirstEntryOfZeroActsLikeTen)
{
    auto odd = hadamard;
    odd[3][0] = 0;
    odd[4][0] = 77;
    FeedbackMatrix matrix(odd, frames);
    const auto in = onesOnLine(1);
    Buffer<float, 12> out(frames);
    matrix.process(in, out);
    expectRow(out, 3, -1.0F);
    expectRow(out, 4, -1.0F);
    const auto first = onesOnLine(0);
    matrix.process(first, out);
    expectRow(out, 3, 1.0F);
    expectRow(out, 4, 1.0F);
}

TEST(FeedbackMatrix, AZeroInALaterColumnSubtractsThePairsSum)
{
    FeedbackMatrix matrix(hadamard, frames);
    Buffer<float, 12> in(frames);
    std::fill_n(in.channel(2), frames, 1.0F);
    std::fill_n(in.channel(3), frames, 2.0F);
    in.setSize(frames);
    Buffer<float, 12> out(frames);
    matrix.process(in, out);
    expectRow(out, 3, -3.0F);
}

TEST(FeedbackMatrix, AnIllegalEntryIsFoundInTheFirstBlockAndNotBefore)
{
    auto bad = hadamard;
    bad[5][3] = 2;
    FeedbackMatrix matrix(bad, frames);
    const auto in = onesOnLine(0);
    Buffer<float, 12> out(frames);
    for (int block = 0; block < 2; ++block) {
        try {
            matrix.process(in, out);
            FAIL();
        } catch (const std::invalid_argument&) {
            FAIL() << "a size error";
        } catch (const ipps::Error&) {
            FAIL() << "a kernel's error";
        } catch (const IllegalMixingMatrix& failure) { // derives directly from std::exception
            EXPECT_STREQ(failure.what(), "FeedbackMatrix: Illegal content in mixingMatrix.");
        }
    }
    static_assert(std::is_base_of_v<std::exception, IllegalMixingMatrix>);
}

TEST(FeedbackMatrix, AnIllegalEntryLeavesTheRowsBeforeItWritten)
{
    auto bad = hadamard;
    bad[5][5] = -1;
    FeedbackMatrix matrix(bad, frames);
    const auto in = onesOnLine(0);
    Buffer<float, 12> out(frames);
    EXPECT_THROW(matrix.process(in, out), IllegalMixingMatrix);
    for (std::size_t r = 0; r < 5; ++r)
        expectRow(out, r, 1.0F);
    for (std::size_t r = 6; r < 12; ++r)
        expectRow(out, r, 0.0F);
    EXPECT_EQ(out.size(), 0U);
}

TEST(FeedbackMatrix, ABlockBeyondTheOutputsCapacityFails)
{
    FeedbackMatrix matrix(hadamard, 64);
    const auto in = noise(17);
    Buffer<float, 12> out(16);
    try {
        matrix.process(in, out);
        FAIL();
    } catch (const std::invalid_argument& failure) {
        EXPECT_STREQ(failure.what(), "FeedbackMatrix: out buffer too small");
    }
}

TEST(FeedbackMatrix, ABlockOfExactlyTheOutputsCapacityPasses)
{
    FeedbackMatrix matrix(hadamard, 16);
    const auto in = noise(16);
    Buffer<float, 12> out(16);
    matrix.process(in, out);
    EXPECT_EQ(out.size(), 16U);
}

TEST(FeedbackMatrix, AnEmptyBlockIsTheKernelsSizeError)
{
    FeedbackMatrix matrix(hadamard, 16);
    const Buffer<float, 12> in(16);
    Buffer<float, 12> out(16);
    try {
        matrix.process(in, out);
        FAIL();
    } catch (const ipps::Error& failure) {
        EXPECT_EQ(failure.status, -6);
    }
}

TEST(FeedbackMatrix, AMovedFromBufferIsReported)
{
    FeedbackMatrix matrix(hadamard, 16);
    auto in = noise(16);
    Buffer<float, 12> out(16);
    auto taken = std::move(out);
    in.setSize(0);
    EXPECT_THROW(matrix.process(in, out), std::exception);
    auto gone = std::move(in);
    try {
        matrix.process(in, taken); // NOLINT(bugprone-use-after-move): that is the test
        FAIL();
    } catch (const std::exception& failure) {
        EXPECT_STREQ(failure.what(), "Buffer not initialized");
    }
}

TEST(FeedbackMatrix, AMovedMatrixMixesOn)
{
    static_assert(std::is_nothrow_move_constructible_v<FeedbackMatrix> && std::is_nothrow_move_assignable_v<FeedbackMatrix>);
    FeedbackMatrix first(hadamard, frames);
    FeedbackMatrix second(std::move(first));
    const auto in = onesOnLine(0);
    Buffer<float, 12> out(frames);
    second.process(in, out);
    expectRow(out, 0, 1.0F);
}

} // namespace
} // namespace quorel
