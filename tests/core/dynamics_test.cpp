// SPDX-License-Identifier: MIT
#include "core/kernels/dynamics.h"

#include "tests/core/variants.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <limits>
#include <random>
#include <vector>

namespace quorel {
namespace {

constexpr float infinity = std::numeric_limits<float>::infinity();
constexpr float nan = std::numeric_limits<float>::quiet_NaN();

// Holds 0.75 up to level 0.5, falls to 1.5, rises from 0.25 there to 2 and holds 1 from there. Few of its products are exact.
constexpr std::array<GainSegment, 4> curve = {
    {{0.0F, 0.75F, 0.0F}, {0.5F, 0.75F, -0.53F}, {1.5F, 0.25F, 1.47F}, {2.0F, 1.0F, 0.0F}}};
constexpr Dynamics dynamics = {0.3F, 0.007F, curve.data(), curve.size()};

float gainAt(float level)
{
    if (level < 0.5F)
        return 0.75F;
    if (level < 1.5F)
        return (level - 0.5F) * -0.53F + 0.75F;
    return level < 2.0F ? (level - 1.5F) * 1.47F + 0.25F : 1.0F;
}

// The other one of two: faster, on a curve that falls from 1 above level 1.
constexpr std::array<GainSegment, 3> otherCurve = {{{0.0F, 1.0F, 0.0F}, {1.0F, 1.0F, -0.31F}, {3.0F, 0.38F, 0.0F}}};
constexpr Dynamics otherDynamics = {0.9F, 0.05F, otherCurve.data(), otherCurve.size()};

// One frame, each operation rounded by itself.
void definition(std::vector<float>& envelope, const std::vector<float>& x, std::vector<float>& y)
{
    float peak = 0.0F;
    for (std::size_t c = 0; c < x.size(); ++c) {
        const float level = std::fabs(x[c]);
        envelope[c] += (envelope[c] > level ? dynamics.release : dynamics.attack) * (level - envelope[c]);
        if (envelope[c] > peak)
            peak = envelope[c];
    }
    for (std::size_t c = 0; c < x.size(); ++c)
        y[c] = gainAt(peak) * x[c];
}

// `channels` rows of n samples each, at addresses of their own alignments; behind each row stands a guard.
struct Rows {
    Rows(std::size_t channels, std::size_t n, std::size_t offset)
        : n(n), stride(n + 21), samples(channels * stride + offset, guard)
    {
        for (std::size_t c = 0; c < channels; ++c)
            row.push_back(samples.data() + offset + c * stride);
    }

    bool guardsIntact() const
    {
        for (const float* r : row)
            for (std::size_t i = n; i < stride; ++i)
                if (r[i] != guard)
                    return false;
        return true;
    }

    static constexpr float guard = 77.0F;
    std::size_t n;
    std::size_t stride;
    std::vector<float> samples;
    std::vector<float*> row;
};

// Sound whose level wanders over the whole curve, with some of what no sound is.
void fill(Rows& rows, std::mt19937& random, bool odd)
{
    std::uniform_real_distribution<float> unit(-1.0F, 1.0F);
    const float level = std::exp(3.0F * unit(random));
    for (float* r : rows.row)
        for (std::size_t i = 0; i < rows.n; ++i)
            r[i] = level * unit(random);
    constexpr std::array special = {infinity, -infinity, nan, -nan, -0.0F, 1e-42F, 3e38F};
    for (std::size_t k = 0; odd && k < 2; ++k)
        rows.row[random() % rows.row.size()][random() % rows.n] = special[random() % special.size()];
}

// Runs every test with one variant of the kernels in use.
class Dynamic : public WithVariant {};

INSTANTIATE_TEST_SUITE_P(Variant, Dynamic, testing::ValuesIn(testedVariants()), variantName);

std::uint32_t bits(float x)
{
    return std::isnan(x) ? 0x7FC00000U : std::bit_cast<std::uint32_t>(x);
}

// What a run gives is defined to the bit, in every variant.
TEST_P(Dynamic, CompressHasTheBitsOfTheDefinitionInRowsOfAnyKind)
{
    std::vector<std::size_t> lengths = {127, 128, 129, 480, 848};
    for (std::size_t n = 1; n <= 70; ++n)
        lengths.push_back(n);
    std::mt19937 random(17);
    for (std::size_t channels = 1; channels <= Dynamics::maxChannels; ++channels) {
        std::vector<float> envelope(channels), wanted(channels), frame(channels), sound(channels);
        for (const std::size_t n : lengths) {
            SCOPED_TRACE(testing::Message() << channels << " rows of " << n);
            const bool odd = n % 5 == 0;
            Rows in(channels, n, n % 7);
            Rows out(channels, n, (n + 3) % 8);
            fill(in, random, odd);
            const std::vector<const float*> from(in.row.begin(), in.row.end());
            std::vector<std::vector<float>> expected(n, sound);
            for (std::size_t i = 0; i < n; ++i) {
                for (std::size_t c = 0; c < channels; ++c)
                    frame[c] = in.row[c][i];
                definition(wanted, frame, expected[i]);
            }
            for (float& e : wanted)
                e = e < 1e-30F ? 0.0F : e;
            Rows& into = n % 2 == 0 ? in : out; // in place at every other length
            ASSERT_EQ(compress(&dynamics, envelope.data(), from.data(), into.row.data(), channels, length32(n)), ippStsNoErr);
            for (std::size_t c = 0; c < channels; ++c) {
                for (std::size_t i = 0; i < n; ++i)
                    ASSERT_EQ(bits(into.row[c][i]), bits(expected[i][c])) << "row " << c << ", sample " << i;
                ASSERT_EQ(bits(envelope[c]), bits(wanted[c]));
            }
            ASSERT_TRUE(in.guardsIntact() && out.guardsIntact());
            if (odd) { // not-a-number would stay for good
                envelope.assign(channels, 0.25F);
                wanted = envelope;
            }
        }
    }
}

TEST_P(Dynamic, TwoBesideEachOtherHaveTheBitsOfEachByItself)
{
    std::mt19937 random(18);
    std::array<float, 4> envelope{}, wanted{};
    for (const std::size_t n : {1, 2, 3, 4, 5, 7, 8, 9, 15, 16, 17, 31, 64, 120, 127, 480}) {
        SCOPED_TRACE(testing::Message() << n << " frames");
        const bool odd = n % 5 == 0;
        Rows in(4, n, n % 7), out(4, n, (n + 3) % 8), alone(4, n, n % 5);
        fill(in, random, odd);
        const std::vector<const float*> from(in.row.begin(), in.row.end());
        ASSERT_EQ(compress(&dynamics, wanted.data(), from.data(), alone.row.data(), 2, length32(n)), ippStsNoErr);
        ASSERT_EQ(compress(&otherDynamics, &wanted[2], &from[2], &alone.row[2], 2, length32(n)), ippStsNoErr);
        Rows& into = n % 2 == 0 ? in : out; // in place at every other length
        ASSERT_EQ(compressTwo(&dynamics, &otherDynamics, envelope.data(), from.data(), into.row.data(), length32(n)),
                  ippStsNoErr);
        for (std::size_t c = 0; c < 4; ++c) {
            for (std::size_t i = 0; i < n; ++i)
                ASSERT_EQ(bits(into.row[c][i]), bits(alone.row[c][i])) << "row " << c << ", sample " << i;
            ASSERT_EQ(bits(envelope[c]), bits(wanted[c]));
        }
        ASSERT_TRUE(in.guardsIntact() && out.guardsIntact());
        if (odd) // not-a-number would stay for good
            envelope = wanted = {0.25F, 0.5F, 0.75F, 1.0F};
    }
}

TEST_P(Dynamic, CompressTwoChecksItsArguments)
{
    float sample = 0.5F;
    std::array<float, 4> envelope = {0.25F, 0.25F, 0.25F, 0.25F};
    const std::array<const float*, 4> in = {&sample, &sample, &sample, &sample};
    const std::array<float*, 4> out = {&sample, &sample, &sample, &sample};
    const std::array<float*, 4> short3 = {&sample, &sample, &sample, nullptr};
    const std::array<const float*, 4> from3 = {&sample, &sample, &sample, nullptr};
    EXPECT_EQ(compressTwo(nullptr, &dynamics, envelope.data(), in.data(), out.data(), 0), ippStsNullPtrErr);
    EXPECT_EQ(compressTwo(&dynamics, nullptr, envelope.data(), in.data(), out.data(), 1), ippStsNullPtrErr);
    EXPECT_EQ(compressTwo(&dynamics, &dynamics, nullptr, in.data(), out.data(), 1), ippStsNullPtrErr);
    EXPECT_EQ(compressTwo(&dynamics, &dynamics, envelope.data(), nullptr, out.data(), 1), ippStsNullPtrErr);
    EXPECT_EQ(compressTwo(&dynamics, &dynamics, envelope.data(), in.data(), nullptr, 1), ippStsNullPtrErr);
    EXPECT_EQ(compressTwo(&dynamics, &dynamics, envelope.data(), from3.data(), out.data(), 1), ippStsNullPtrErr);
    EXPECT_EQ(compressTwo(&dynamics, &dynamics, envelope.data(), in.data(), short3.data(), 1), ippStsNullPtrErr);
    EXPECT_EQ(compressTwo(&dynamics, &dynamics, envelope.data(), in.data(), out.data(), 0), ippStsSizeErr);
    EXPECT_EQ(sample, 0.5F);
    EXPECT_EQ(envelope[3], 0.25F);
}

TEST_P(Dynamic, CompressChecksItsArguments)
{
    float sample = 0.5F;
    float envelope = 0.25F;
    const std::array<const float*, 2> in = {&sample, nullptr};
    const std::array<float*, 2> out = {&sample, nullptr};
    EXPECT_EQ(compress(nullptr, &envelope, in.data(), out.data(), 1, 0), ippStsNullPtrErr);
    EXPECT_EQ(compress(&dynamics, nullptr, in.data(), out.data(), 1, 1), ippStsNullPtrErr);
    EXPECT_EQ(compress(&dynamics, &envelope, nullptr, out.data(), 1, 1), ippStsNullPtrErr);
    EXPECT_EQ(compress(&dynamics, &envelope, in.data(), nullptr, 1, 1), ippStsNullPtrErr);
    EXPECT_EQ(compress(&dynamics, &envelope, in.data(), out.data(), 2, 1), ippStsNullPtrErr);
    EXPECT_EQ(compress(&dynamics, &envelope, in.data(), out.data(), 1, 0), ippStsSizeErr);
    EXPECT_EQ(compress(&dynamics, &envelope, in.data(), out.data(), 1, -1), ippStsSizeErr);
    EXPECT_EQ(sample, 0.5F);
    EXPECT_EQ(envelope, 0.25F);
}

} // namespace
} // namespace quorel
