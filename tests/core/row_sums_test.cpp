// SPDX-License-Identifier: MIT
#include "core/kernels/row_sums.h"

#include "core/kernels.h"
#include "tests/core/variants.h"

#include <gtest/gtest.h>

#include <array>
#include <bit>
#include <cmath>
#include <limits>
#include <random>
#include <string>
#include <vector>

namespace quorel {
namespace {

constexpr float guard = 12345.0F;

// Rows of noise, each of them as far off the alignment as its number says.
class Rows {
public:
    Rows(std::size_t count, std::size_t length, std::uint32_t seed)
    {
        std::mt19937 random(seed);
        std::uniform_real_distribution<float> level(-1.0F, 1.0F);
        for (std::size_t r = 0; r < count; ++r) {
            std::vector<float>& row = rows.emplace_back(r + length);
            for (float& x : row)
                x = level(random);
            pointers.push_back(row.data() + r);
        }
    }

    float& at(std::size_t row, std::size_t i) { return rows[row][row + i]; }
    double operator()(std::size_t row, std::size_t i) const { return static_cast<double>(pointers[row][i]); }
    const float* const* list() const { return pointers.data(); }

private:
    std::vector<std::vector<float>> rows;
    std::vector<const float*> pointers;
};

// Runs every test with one variant of the kernels in use.
class RowSums : public WithVariant {};

INSTANTIATE_TEST_SUITE_P(Variant, RowSums, testing::ValuesIn(testedVariants()), variantName);

TEST_P(RowSums, ASumOfRowsIsThatOfOneProductAfterTheOtherBitByBit)
{
    for (std::size_t count = 1; count <= 12; ++count) {
        for (std::size_t n = 1; n <= 150; ++n) {
            const Rows rows(count, n, static_cast<std::uint32_t>(n));
            std::vector<float> gains(count);
            for (std::size_t r = 0; r < count; ++r)
                gains[r] = 0.7F - 0.13F * static_cast<float>(r);
            std::vector<float> wanted(n);
            ASSERT_EQ(ippsMulC_32f(rows.list()[0], gains[0], wanted.data(), static_cast<std::int32_t>(n)), ippStsNoErr);
            for (std::size_t r = 1; r < count; ++r)
                ASSERT_EQ(ippsAddProductC_32f(rows.list()[r], gains[r], wanted.data(), static_cast<std::int32_t>(n)),
                          ippStsNoErr);

            std::vector<float> sum(n + 2, guard);
            ASSERT_EQ(sumRows(rows.list(), gains.data(), count, sum.data() + 1, static_cast<std::int32_t>(n)), ippStsNoErr);
            ASSERT_TRUE(sum.front() == guard && sum.back() == guard);
            for (std::size_t i = 0; i < n; ++i)
                ASSERT_EQ(std::bit_cast<std::uint32_t>(sum[i + 1]), std::bit_cast<std::uint32_t>(wanted[i]))
                    << count << " rows, length " << n << ", element " << i;
        }
    }
}

TEST_P(RowSums, NotANumberReachesItsOwnElementAlone)
{
    constexpr std::size_t n = 101;
    for (std::size_t where = 0; where < n; ++where) {
        Rows rows(3, n, 1);
        rows.at(1, where) = std::numeric_limits<float>::quiet_NaN();
        const std::array<float, 3> gains = {1.0F, 2.0F, 3.0F};
        std::vector<float> sum(n);
        ASSERT_EQ(sumRows(rows.list(), gains.data(), 3, sum.data(), n), ippStsNoErr);
        for (std::size_t i = 0; i < n; ++i)
            ASSERT_EQ(std::isnan(sum[i]), i == where);
    }
}

// The products of the definition: real numbers first and last, complex ones between.
double product(const Rows& a, const Rows& x, std::size_t row, std::size_t i, std::size_t n)
{
    if (i == 0 || i == n - 1)
        return a(row, i) * x(row, i);
    return i % 2 == 1 ? a(row, i) * x(row, i) - a(row, i + 1) * x(row, i + 1)
                      : a(row, i - 1) * x(row, i) + a(row, i) * x(row, i - 1);
}

TEST_P(RowSums, TwoSumsOfPackedProductsAreThoseOfTheDefinition)
{
    std::vector<std::size_t> lengths = {1024};
    for (std::size_t n = 2; n <= 150; n += 2)
        lengths.push_back(n);
    for (std::size_t count = 1; count <= 8; ++count) {
        for (const std::size_t n : lengths) {
            const Rows x(count, n, 1);
            const Rows a(count, n, 2);
            const Rows b(count, n, 3);
            std::vector<float> first(n + 2, guard);
            std::vector<float> second(n + 2, guard);
            ASSERT_EQ(sumProductsPack(x.list(), a.list(), b.list(), count, first.data() + 1, second.data() + 1,
                                      static_cast<std::int32_t>(n)),
                      ippStsNoErr);
            ASSERT_TRUE(first.front() == guard && first.back() == guard && second.front() == guard && second.back() == guard);
            for (std::size_t i = 0; i < n; ++i) {
                double ofA = 0.0;
                double ofB = 0.0;
                for (std::size_t r = 0; r < count; ++r) {
                    ofA += product(a, x, r, i, n);
                    ofB += product(b, x, r, i, n);
                }
                // 2 * count terms, each below 1, and as many sums, each below 2 * count: every one is rounded by 2^-24 of itself.
                const double terms = 2.0 * static_cast<double>(count);
                const double allowed = 0x1p-24 * (terms + terms * terms);
                ASSERT_NEAR(static_cast<double>(first[i + 1]), ofA, allowed) << count << " rows, length " << n << ", " << i;
                ASSERT_NEAR(static_cast<double>(second[i + 1]), ofB, allowed) << count << " rows, length " << n << ", " << i;
            }
        }
    }
}

TEST(RowSumArguments, NullIsTestedBeforeTheLength)
{
    const Rows rows(2, 8, 1);
    const std::array<float, 2> gains = {1.0F, 1.0F};
    std::array<float, 8> first{};
    std::array<float, 8> second{};
    const float* const* x = rows.list();
    EXPECT_EQ(sumRows(nullptr, gains.data(), 2, first.data(), 0), ippStsNullPtrErr);
    EXPECT_EQ(sumRows(x, nullptr, 2, first.data(), 0), ippStsNullPtrErr);
    EXPECT_EQ(sumRows(x, gains.data(), 2, nullptr, 0), ippStsNullPtrErr);
    EXPECT_EQ(sumRows(x, gains.data(), 2, first.data(), 0), ippStsSizeErr);
    EXPECT_EQ(sumProductsPack(nullptr, x, x, 2, first.data(), second.data(), 0), ippStsNullPtrErr);
    EXPECT_EQ(sumProductsPack(x, nullptr, x, 2, first.data(), second.data(), 0), ippStsNullPtrErr);
    EXPECT_EQ(sumProductsPack(x, x, nullptr, 2, first.data(), second.data(), 0), ippStsNullPtrErr);
    EXPECT_EQ(sumProductsPack(x, x, x, 2, nullptr, second.data(), 0), ippStsNullPtrErr);
    EXPECT_EQ(sumProductsPack(x, x, x, 2, first.data(), nullptr, 0), ippStsNullPtrErr);
    EXPECT_EQ(sumProductsPack(x, x, x, 2, first.data(), second.data(), -1), ippStsSizeErr);
    EXPECT_EQ(first, (std::array<float, 8>{}));
}

} // namespace
} // namespace quorel
