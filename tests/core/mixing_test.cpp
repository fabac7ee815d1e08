// SPDX-License-Identifier: MIT
#include "core/kernels/mixing.h"

#include "tests/core/variants.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <random>
#include <string>
#include <vector>

namespace quorel {
namespace {

// Runs every test with one variant of the kernels in use.
class Mixing : public WithVariant {};

INSTANTIATE_TEST_SUITE_P(Variant, Mixing, testing::ValuesIn(testedVariants()), variantName);

// A row that takes pair p's sum or difference, added or subtracted, by the bits of `pattern`.
PairMix mixOf(unsigned pattern)
{
    PairMix mix{};
    for (std::size_t p = 0; p < PairMix::pairs; ++p) {
        const bool difference = (pattern >> p & 1U) != 0;
        mix.term[p] = static_cast<std::uint8_t>((difference ? PairMix::difference : PairMix::sum) + p);
        mix.sign[p] = p > 0 && (pattern >> (6 + p) & 1U) != 0 ? -1.0F : 1.0F;
    }
    return mix;
}

// The order of the additions is fixed, so every bit is.
TEST_P(Mixing, RowsAreSumsOfPairsInOrderAtEveryLengthAndAlignment)
{
    constexpr float guard = 12345.0F;
    std::mt19937 random(80);
    std::uniform_real_distribution<float> level(-1.0F, 1.0F);
    for (const std::size_t rows : {0U, 1U, 5U, 12U})
        for (const std::size_t n : {1, 2, 3, 4, 5, 7, 8, 9, 15, 16, 17, 31, 32, 33, 63, 64, 65, 127, 128, 129, 480, 1000}) {
            std::vector<PairMix> mix;
            for (std::size_t r = 0; r < rows; ++r)
                mix.push_back(mixOf(static_cast<unsigned>(random())));
            mix.push_back(PairMix{}); // never read
            std::array<std::vector<float>, 12> in, more, out;
            std::array<const float*, 12> from{}, added{};
            std::array<float*, 12> to{};
            for (std::size_t c = 0; c < 12; ++c) {
                for (auto* row : {&in[c], &more[c]}) {
                    row->resize(n + 16);
                    std::generate(row->begin(), row->end(), [&] { return level(random); });
                }
                out[c].assign(n + 32, guard);
                from[c] = in[c].data() + c;
                added[c] = random() % 3 == 0 ? nullptr : more[c].data() + 12 - c;
                to[c] = out[c].data() + (7 * c + n) % 16;
            }
            const float gain = n % 2 == 0 ? 1.0F : level(random);
            const auto input = [&](std::size_t c, std::size_t i) {
                return (added[c] != nullptr ? from[c][i] + added[c][i] : from[c][i]) * gain;
            };
            ASSERT_EQ(mixPairs(from.data(), added.data(), gain, to.data(), mix.data(), rows, static_cast<std::int32_t>(n)),
                      ippStsNoErr);
            for (std::size_t r = 0; r < rows; ++r) {
                for (std::size_t i = 0; i < n; ++i) {
                    float sum = 0.0F;
                    for (std::size_t p = 0; p < PairMix::pairs; ++p) {
                        const float even = input(2 * p, i), odd = input(2 * p + 1, i);
                        const float term = mix[r].term[p] < PairMix::difference ? even + odd : even - odd;
                        sum = p == 0 ? term : mix[r].sign[p] > 0 ? sum + term : sum - term;
                    }
                    ASSERT_EQ(to[r][i], sum) << "row " << r << ", sample " << i << " of " << n;
                }
                std::fill_n(to[r], n, guard);
            }
            for (const auto& row : out)
                ASSERT_EQ(std::count(row.begin(), row.end(), guard), static_cast<std::ptrdiff_t>(row.size()));
        }
}

TEST_P(Mixing, WhatIsNotFiniteStaysInItsSample)
{
    std::array<std::vector<float>, 12> in, out;
    in.fill(std::vector<float>(100, 0.5F));
    out.fill(std::vector<float>(100));
    in[3][50] = std::numeric_limits<float>::quiet_NaN();
    in[4][51] = std::numeric_limits<float>::infinity();
    std::array<const float*, 12> from{};
    std::array<float*, 12> to{};
    const std::vector<PairMix> mix(12, mixOf(0xABC));
    for (std::size_t c = 0; c < 12; ++c) {
        from[c] = in[c].data();
        to[c] = out[c].data();
    }
    const std::array<const float*, 12> none{};
    ASSERT_EQ(mixPairs(from.data(), none.data(), 1.0F, to.data(), mix.data(), 12, 100), ippStsNoErr);
    for (const auto& row : out)
        for (std::size_t i = 0; i < 100; ++i)
            EXPECT_EQ(std::isfinite(row[i]), i != 50 && i != 51);
}

TEST(MixPairs, ChecksItsArguments)
{
    std::vector<float> x(8), y(8);
    std::array<const float*, 12> from{};
    std::array<float*, 12> to{};
    from.fill(x.data());
    to.fill(y.data());
    const std::vector<PairMix> mix(12, mixOf(0));
    const std::array<const float*, 12> none{};
    const auto mixPairs = [&none](const float* const* in, float* const* out, const PairMix* rows, std::size_t count,
                                  std::int32_t n) { return quorel::mixPairs(in, none.data(), 0.5F, out, rows, count, n); };
    EXPECT_EQ(quorel::mixPairs(from.data(), nullptr, 0.5F, to.data(), mix.data(), 12, 8), -8);
    EXPECT_EQ(mixPairs(nullptr, to.data(), mix.data(), 12, 8), -8);
    EXPECT_EQ(mixPairs(from.data(), nullptr, mix.data(), 12, 8), -8);
    EXPECT_EQ(mixPairs(from.data(), to.data(), nullptr, 12, 8), -8);
    EXPECT_EQ(mixPairs(from.data(), to.data(), mix.data(), 12, 0), -6);
    from[11] = nullptr;
    EXPECT_EQ(mixPairs(from.data(), to.data(), mix.data(), 12, 0), -8);
    from[11] = x.data();
    to[3] = nullptr;
    EXPECT_EQ(mixPairs(from.data(), to.data(), mix.data(), 4, 8), -8);
    EXPECT_EQ(mixPairs(from.data(), to.data(), mix.data(), 3, 8), 0); // a row that is not asked for
}

} // namespace
} // namespace quorel
