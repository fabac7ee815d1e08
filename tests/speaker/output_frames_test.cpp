// SPDX-License-Identifier: MIT
#include "speaker/output_frames.h"

#include "core/interleaved_view.h"
#include "tests/support/failure.h"
#include "tests/support/ramp.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace quorel {
namespace {

TEST(OutputFrames, HaveEightSlotsOfWhichSixAreZero)
{
    const auto in = ramp(50);
    std::vector<float> frames(60 * 8, 9.0F);
    InterleavedView out{frames.data(), 60};
    writeFrames(in, out, 0.5F);
    EXPECT_EQ(out.frames, 50U);
    for (std::size_t i = 0; i < 60; ++i)
        for (std::size_t slot = 0; slot < 8; ++slot) {
            const float level = 0.5F * static_cast<float>(i + 1);
            const float expected = i >= 50 ? 9.0F : slot == 0 ? level : slot == 1 ? -level : 0.0F;
            EXPECT_EQ(frames[i * 8 + slot], expected);
        }
}

TEST(OutputFrames, AnEmptyBlockWritesNothing)
{
    const auto in = ramp(0);
    std::vector<float> frames(8, 9.0F);
    InterleavedView out{frames.data(), 1};
    writeFrames(in, out, 1.0F);
    EXPECT_EQ(out.frames, 0U);
    EXPECT_EQ(frames, std::vector<float>(8, 9.0F));
}

TEST(OutputFrames, ABlockMayFillTheOutput)
{
    const auto in = ramp(3);
    std::vector<float> frames(3 * 8, 9.0F);
    InterleavedView out{frames.data(), 3};
    writeFrames(in, out, 1.0F);
    EXPECT_EQ(out.frames, 3U);
    EXPECT_EQ(frames[2 * 8], 3.0F);
}

TEST(OutputFrames, ABlockBeyondTheOutputIsRefused)
{
    const auto in = ramp(2);
    std::vector<float> frames(8, 9.0F);
    InterleavedView out{frames.data(), 1};
    EXPECT_EQ(failureText<std::invalid_argument>([&] { writeFrames(in, out, 1.0F); }), "PassThrough: out buffer too small");
    EXPECT_EQ(frames, std::vector<float>(8, 9.0F));
    EXPECT_EQ(out.frames, 1U);
}

} // namespace
} // namespace quorel
