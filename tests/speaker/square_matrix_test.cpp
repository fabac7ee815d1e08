// SPDX-License-Identifier: MIT
#include "speaker/square_matrix.h"

#include "tests/support/failure.h"

#include <gtest/gtest.h>

#include <string>

namespace quorel {
namespace {

TEST(SquareMatrix, EntriesStandWhereTheListsPutThem)
{
    const SquareMatrix matrix = {{1, 2, 3}, {4, 5, 6}, {7, 8, 9}};
    EXPECT_EQ(matrix.order(), 3U);
    for (std::uint64_t row = 0; row < 3; ++row)
        for (std::uint64_t column = 0; column < 3; ++column)
            EXPECT_EQ(matrix(row, column), static_cast<double>(3 * row + column + 1));
}

TEST(SquareMatrix, AnEntryCanBeWritten)
{
    SquareMatrix matrix = {{1, 2}, {3, 4}};
    matrix(1, 0) = 30;
    EXPECT_EQ(matrix(0, 0), 1);
    EXPECT_EQ(matrix(0, 1), 2);
    EXPECT_EQ(matrix(1, 0), 30);
    EXPECT_EQ(matrix(1, 1), 4);
}

TEST(SquareMatrix, AnEmptyListMakesAnEmptyMatrix)
{
    const SquareMatrix matrix(std::initializer_list<std::initializer_list<double>>{});
    EXPECT_EQ(matrix.order(), 0U);
    EXPECT_EQ(failureText<std::invalid_argument>([&] { static_cast<void>(matrix(0, 0)); }), "SquareMatrix: index out of bounds");
}

TEST(SquareMatrix, ARowOfAnotherLengthFails)
{
    const auto text = "SquareMatrix: initializer list must be square";
    EXPECT_EQ(failureText<std::invalid_argument>([] { SquareMatrix({{1, 2}, {3}}); }), text);
    EXPECT_EQ(failureText<std::invalid_argument>([] { SquareMatrix({{1, 2, 3}, {4, 5, 6}}); }), text);
    EXPECT_EQ(failureText<std::invalid_argument>([] { SquareMatrix({{}}); }), text);
}

TEST(SquareMatrix, ARowAtTheOrderIsOutOfBounds)
{
    SquareMatrix matrix = {{1, 2}, {3, 4}};
    const SquareMatrix& fixed = matrix;
    EXPECT_EQ(failureText<std::invalid_argument>([&] { static_cast<void>(fixed(2, 0)); }), "SquareMatrix: index out of bounds");
    EXPECT_EQ(failureText<std::invalid_argument>([&] { matrix(2, 0) = 1; }), "SquareMatrix: index out of bounds");
    EXPECT_EQ(failureText<std::invalid_argument>([&] { matrix(~std::uint64_t{0}, 0) = 1; }), "SquareMatrix: index out of bounds");
}

} // namespace
} // namespace quorel
