// SPDX-License-Identifier: MIT
#include "core/kernels/frames.h"

#include "tests/core/variants.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <random>
#include <vector>

namespace quorel {
namespace {

// Runs every test with one variant of the kernels in use.
class Frames : public WithVariant {};

INSTANTIATE_TEST_SUITE_P(Variant, Frames, testing::ValuesIn(testedVariants()), variantName);

TEST_P(Frames, DeinterleaveSplitsEveryChannelCountAndLength)
{
    constexpr float guard = -1.0F;
    for (std::size_t channels = 1; channels <= 8; ++channels)
        for (std::size_t n = 1; n <= 40; ++n) {
            std::vector<float> frames(channels * n + 1);
            for (std::size_t k = 0; k < frames.size(); ++k)
                frames[k] = static_cast<float>(k);
            const float* from = frames.data() + n % 2; // aligned to a float alone
            std::vector<std::vector<float>> out(channels, std::vector<float>(n + 1, guard));
            std::vector<float*> rows;
            for (std::vector<float>& row : out)
                rows.push_back(row.data());
            ASSERT_EQ(deinterleave(from, channels, rows.data(), static_cast<std::int32_t>(n)), ippStsNoErr);
            for (std::size_t c = 0; c < channels; ++c) {
                for (std::size_t i = 0; i < n; ++i)
                    ASSERT_EQ(out[c][i], from[i * channels + c]) << channels << " channels, frame " << i;
                ASSERT_EQ(out[c][n], guard);
            }
        }
}

TEST_P(Frames, StereoFramesAreLeftRightAndSixZerosAtEveryLength)
{
    constexpr float guard = -1.0F;
    for (std::size_t n = 1; n <= 40; ++n) {
        std::vector<float> left(n), right(n), frames(8 * n + 2, guard);
        for (std::size_t i = 0; i < n; ++i) {
            left[i] = static_cast<float>(i + 1);
            right[i] = -2.0F * static_cast<float>(i + 1);
        }
        float* const to = frames.data() + 1; // aligned to a float alone
        ASSERT_EQ(stereoFrames(left.data(), right.data(), 0.5F, to, static_cast<std::int32_t>(n)), ippStsNoErr);
        for (std::size_t i = 0; i < n; ++i)
            for (std::size_t k = 0; k < 8; ++k)
                ASSERT_EQ(to[8 * i + k], k == 0 ? 0.5F * left[i] : k == 1 ? 0.5F * right[i] : 0.0F) << "frame " << i;
        ASSERT_EQ(frames.front(), guard);
        ASSERT_EQ(frames.back(), guard);
    }
}

// Sums in the order of the channels: each of at most sixteen operations rounds what is below 8, or two of them together.
TEST_P(Frames, FramesFoldToStereoForEveryChannelCountAndLength)
{
    constexpr float guard = 12345.0F;
    std::mt19937 random(81);
    std::uniform_real_distribution<float> level(-1.0F, 1.0F);
    for (std::size_t channels = 1; channels <= 8; ++channels)
        for (std::size_t n = 1; n <= 40; ++n) {
            std::vector<float> frames(channels * n + 1), gains(2 * channels), left(n + 1, guard), right(n + 1, guard);
            for (auto* row : {&frames, &gains})
                std::generate(row->begin(), row->end(), [&] { return level(random); });
            const float* from = frames.data() + n % 2; // aligned to a float alone
            ASSERT_EQ(foldToStereo(from, gains.data(), channels, left.data(), right.data(), static_cast<std::int32_t>(n)),
                      ippStsNoErr);
            for (std::size_t i = 0; i < n; ++i) {
                double l = 0, r = 0;
                for (std::size_t k = 0; k < channels; ++k) {
                    l += static_cast<double>(from[i * channels + k]) * static_cast<double>(gains[k]);
                    r += static_cast<double>(from[i * channels + k]) * static_cast<double>(gains[channels + k]);
                }
                ASSERT_NEAR(static_cast<double>(left[i]), l, 16 * 8 * 0x1p-25) << channels << " channels, frame " << i;
                ASSERT_NEAR(static_cast<double>(right[i]), r, 16 * 8 * 0x1p-25) << channels << " channels, frame " << i;
            }
            ASSERT_EQ(left[n], guard);
            ASSERT_EQ(right[n], guard);
        }
}

TEST(FrameKernels, CheckTheirArguments)
{
    std::vector<float> x(64), y(8), z(8);
    EXPECT_EQ(foldToStereo(nullptr, x.data(), 8, y.data(), z.data(), 8), -8);
    EXPECT_EQ(foldToStereo(x.data(), nullptr, 8, y.data(), z.data(), 8), -8);
    EXPECT_EQ(foldToStereo(x.data(), x.data(), 8, nullptr, z.data(), 8), -8);
    EXPECT_EQ(foldToStereo(x.data(), x.data(), 8, y.data(), nullptr, 0), -8);
    EXPECT_EQ(foldToStereo(x.data(), x.data(), 8, y.data(), z.data(), 0), -6);

    std::array<float*, 2> rows = {y.data(), z.data()};
    EXPECT_EQ(deinterleave(nullptr, 2, rows.data(), 8), -8);
    EXPECT_EQ(deinterleave(x.data(), 2, nullptr, 8), -8);
    EXPECT_EQ(deinterleave(x.data(), 2, rows.data(), 0), -6);
    rows[1] = nullptr;
    EXPECT_EQ(deinterleave(x.data(), 2, rows.data(), 0), -8);

    EXPECT_EQ(stereoFrames(nullptr, z.data(), 1.0F, x.data(), 8), -8);
    EXPECT_EQ(stereoFrames(y.data(), nullptr, 1.0F, x.data(), 8), -8);
    EXPECT_EQ(stereoFrames(y.data(), z.data(), 1.0F, nullptr, 8), -8);
    EXPECT_EQ(stereoFrames(y.data(), z.data(), 1.0F, x.data(), -1), -6);
}

} // namespace
} // namespace quorel
