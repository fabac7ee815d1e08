// SPDX-License-Identifier: MIT
#include "speaker/scale_mixer.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <string>
#include <vector>

namespace quorel {
namespace {

TEST(ScaleMixer, ARowOfOneForChannel0CopiesChannel0ToTheLeft)
{
    const ScaleMixer<3> mixer({{{1.0F, 0.0F, 0.0F}, {0.0F, 0.0F, 0.0F}}});
    std::vector<float> in = {0.1F, 5.0F, 6.0F, 0.2F, 7.0F, 8.0F};
    Buffer<float, 2> out(16);
    mixer.process({in.data(), 2}, out);
    EXPECT_EQ(out.size(), 2U);
    EXPECT_EQ(out.channel(0)[0], 0.1F);
    EXPECT_EQ(out.channel(0)[1], 0.2F);
    EXPECT_EQ(out.channel(1)[0], 0.0F);
}

TEST(ScaleMixer, SumsEightChannelsWithTheirGains)
{
    std::mt19937 random(1);
    std::uniform_real_distribution<float> level(-1.0F, 1.0F);
    ScaleMixer<8>::Gains gains{};
    for (auto& row : gains)
        for (float& gain : row)
            gain = level(random);
    std::vector<float> in(8 * 100);
    for (float& x : in)
        x = level(random);
    Buffer<float, 2> out(100);
    ScaleMixer<8>(gains).process({in.data(), 100}, out);
    for (std::size_t r = 0; r < 2; ++r)
        for (std::size_t i = 0; i < 100; ++i) {
            double sum = 0.0;
            for (std::size_t k = 0; k < 8; ++k)
                sum += static_cast<double>(in[i * 8 + k]) * static_cast<double>(gains[r][k]);
            // Sixteen roundings of values below 8.
            EXPECT_NEAR(static_cast<double>(out.channel(r)[i]), sum, 16 * 8 * 0x1p-24);
        }
}

TEST(ScaleMixer, AcceptsAnEmptyBlock)
{
    Buffer<float, 2> out(16);
    out.setSize(9);
    ScaleMixer<1>({{{1.0F}, {1.0F}}}).process({nullptr, 0}, out);
    EXPECT_EQ(out.size(), 0U);
}

TEST(ScaleMixer, TakesAsManyFramesAsTheOutputHolds)
{
    std::vector<float> in(16, 0.5F);
    Buffer<float, 2> out(16);
    ScaleMixer<1>({{{1.0F}, {2.0F}}}).process({in.data(), 16}, out);
    EXPECT_EQ(out.size(), 16U);
    EXPECT_EQ(out.channel(1)[15], 1.0F);
}

TEST(ScaleMixer, RefusesMoreFramesThanTheOutputHolds)
{
    std::vector<float> in(17);
    Buffer<float, 2> out(16);
    try {
        ScaleMixer<1>({{{1.0F}, {1.0F}}}).process({in.data(), 17}, out);
        FAIL() << "17 frames were accepted";
    } catch (const std::invalid_argument& error) {
        EXPECT_STREQ(error.what(), "ScaleMixer: out buffer too small");
    }
    EXPECT_EQ(out.size(), 0U);
}

} // namespace
} // namespace quorel
