// SPDX-License-Identifier: MIT
#include "stages/pass_through.h"

#include "tests/support/failure.h"
#include "tests/support/ramp.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace quorel {
namespace {

TEST(PassThrough, CopiesWithItsGain)
{
    const auto in = ramp(50);
    Buffer<float, 2> out(50);
    PassThrough::process(in, out, 0.5F);
    EXPECT_EQ(out.size(), 50U);
    for (std::size_t c = 0; c < 2; ++c)
        for (std::size_t i = 0; i < 50; ++i)
            EXPECT_EQ(out.channel(c)[i], 0.5F * in.channel(c)[i]);
}

TEST(PassThrough, FromABufferToItselfAppliesNoGainAndSetsTheSize)
{
    auto buffer = ramp(50);
    PassThrough::process(buffer, buffer, 0.5F);
    EXPECT_EQ(buffer.size(), 50U);
    EXPECT_EQ(buffer.channel(0)[49], 50.0F);
}

TEST(PassThrough, OfAnEmptyBlockFailsUnlessItIsToItself)
{
    auto in = ramp(0);
    Buffer<float, 2> out(16);
    try {
        PassThrough::process(in, out, 1.0F);
        FAIL() << "an empty block was copied";
    } catch (const ipps::Error& error) {
        EXPECT_EQ(error.status, ippStsSizeErr);
    }
    EXPECT_NO_THROW(PassThrough::process(in, in, 1.0F));
    EXPECT_EQ(in.size(), 0U);
}

TEST(PassThrough, ABlockMayFillTheWholeCapacity)
{
    const auto in = ramp(32);
    Buffer<float, 2> out(32);
    PassThrough::process(in, out, 2.0F);
    EXPECT_EQ(out.size(), out.capacity());
    EXPECT_EQ(out.channel(1)[31], -64.0F);

    std::vector<float> frames(2 * 31, 3.0F);
    PassThrough::deinterleave({frames.data(), 31}, out, 1);
    EXPECT_EQ(out.size(), out.capacity());
    EXPECT_EQ(out.channel(1)[31], 3.0F);
}

TEST(PassThrough, BeyondTheOutputsCapacityIsRefused)
{
    const auto in = ramp(33);
    Buffer<float, 2> out(32);
    EXPECT_EQ(failureText<std::invalid_argument>([&] { PassThrough::process(in, out, 1.0F); }),
              "PassThrough: out buffer too small");
    EXPECT_EQ(out.size(), 0U);
}

} // namespace
} // namespace quorel
