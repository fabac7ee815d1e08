// SPDX-License-Identifier: MIT
#include "speaker/square_matrix.h"

#include <gtest/gtest.h>

#include <string>

namespace quorel {
namespace {

std::string textOf(auto&& failing)
{
    try {
        failing();
    } catch (const std::invalid_argument& failure) {
        return failure.what();
    }
    return "no std::invalid_argument";
}

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
    EXPECT_EQ(textOf([&] { static_cast<void>(matrix(0, 0)); }), "SquareMatrix: index out of bounds");
}

TEST(SquareMatrix, ARowOfAnotherLengthFails)
{
    const auto text = "SquareMatrix: initializer list must be square";
    EXPECT_EQ(textOf([] { SquareMatrix({{1, 2}, {3}}); }), text);
    EXPECT_EQ(textOf([] { SquareMatrix({{1, 2, 3}, {4, 5, 6}}); }), text);
    EXPECT_EQ(textOf([] { SquareMatrix({{}}); }), text);
}

TEST(SquareMatrix, ARowAtTheOrderIsOutOfBounds)
{
    SquareMatrix matrix = {{1, 2}, {3, 4}};
    const SquareMatrix& fixed = matrix;
    EXPECT_EQ(textOf([&] { static_cast<void>(fixed(2, 0)); }), "SquareMatrix: index out of bounds");
    EXPECT_EQ(textOf([&] { matrix(2, 0) = 1; }), "SquareMatrix: index out of bounds");
    EXPECT_EQ(textOf([&] { matrix(~std::uint64_t{0}, 0) = 1; }), "SquareMatrix: index out of bounds");
}

} // namespace
} // namespace quorel
