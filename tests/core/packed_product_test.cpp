// SPDX-License-Identifier: MIT
// The product of two packed spectra, bin by bin.
#include "core/kernels/transforms.h"

#include "tests/core/variants.h"
#include "tests/support/noise.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <vector>

namespace quorel {
namespace {

// Runs every test with one variant of the kernels in use.
class PackedProduct : public WithVariant {};

INSTANTIATE_TEST_SUITE_P(Variant, PackedProduct, testing::ValuesIn(testedVariants()), variantName);

// By the definition, each element rounded once: two products and a sum in double are exact enough for that.
std::vector<double> packedProduct(const std::vector<float>& a, const std::vector<float>& b)
{
    const auto at = [](const std::vector<float>& p, std::size_t i) { return static_cast<double>(p[i]); };
    std::vector<double> product(a.size());
    product[0] = at(a, 0) * at(b, 0);
    std::size_t i = 1;
    for (; i + 1 < a.size(); i += 2) {
        product[i] = at(a, i) * at(b, i) - at(a, i + 1) * at(b, i + 1);
        product[i + 1] = at(a, i) * at(b, i + 1) + at(a, i + 1) * at(b, i);
    }
    if (i < a.size())
        product[i] = at(a, i) * at(b, i);
    return product;
}

// Factors lie below 1: two products and a sum of single precision miss the exact value by less than three half ulps of 2.
constexpr float productTolerance = 3.0F * 0.5F * 2.0F * std::numeric_limits<float>::epsilon();

TEST_P(PackedProduct, IsTheDefinitionAtEveryLengthAndAlignment)
{
    for (std::size_t n = 1; n <= 1100; n = n < 70 ? n + 1 : n + 191)
        for (const std::size_t shift : {0U, 1U, 5U}) {
            const auto a = noise(n + shift, 11);
            const auto b = noise(n + 2 * shift, 12);
            std::vector<float> y(n + shift + 1, 77.0F);
            const float* x = a.data() + shift;
            const float* h = b.data() + 2 * shift;
            ASSERT_EQ(ippsMulPack_32f(x, h, y.data() + shift, length32(n)), ippStsNoErr);
            const auto expected = packedProduct({x, x + n}, {h, h + n});
            for (std::size_t i = 0; i < n; ++i)
                EXPECT_NEAR(y[i + shift], expected[i], productTolerance) << "length " << n << " element " << i;
            EXPECT_EQ(std::count(y.begin(), y.begin() + static_cast<std::ptrdiff_t>(shift), 77.0F), static_cast<int>(shift));
            EXPECT_EQ(y.back(), 77.0F);
        }
}

TEST_P(PackedProduct, MayStandInEitherFactor)
{
    for (const std::size_t n : {1U, 2U, 3U, 4U, 16U, 31U, 32U, 33U, 34U, 1023U, 1024U}) {
        const auto a = noise(n, 13);
        const auto b = noise(n, 14);
        std::vector<float> apart(n);
        ASSERT_EQ(ippsMulPack_32f(a.data(), b.data(), apart.data(), length32(n)), ippStsNoErr);
        auto first = a;
        ASSERT_EQ(ippsMulPack_32f(first.data(), b.data(), first.data(), length32(n)), ippStsNoErr);
        EXPECT_EQ(first, apart);
        auto second = b;
        ASSERT_EQ(ippsMulPack_32f(a.data(), second.data(), second.data(), length32(n)), ippStsNoErr);
        EXPECT_EQ(second, apart);
        auto square = a;
        ASSERT_EQ(ippsMulPack_32f(square.data(), square.data(), square.data(), length32(n)), ippStsNoErr);
        const auto expected = packedProduct(a, a);
        for (std::size_t i = 0; i < n; ++i)
            EXPECT_NEAR(square[i], expected[i], productTolerance);
    }
}

TEST_P(PackedProduct, KeepsAnInfinityInItsBin)
{
    auto a = noise(1024, 17);
    const auto b = noise(1024, 18);
    a[2 * 100 - 1] = std::numeric_limits<float>::infinity();
    std::vector<float> y(1024);
    ASSERT_EQ(ippsMulPack_32f(a.data(), b.data(), y.data(), 1024), ippStsNoErr);
    for (std::size_t i = 0; i < 1024; ++i)
        EXPECT_EQ(std::isfinite(y[i]), i != 199 && i != 200) << i;
}

} // namespace
} // namespace quorel
