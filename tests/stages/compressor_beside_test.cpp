// SPDX-License-Identifier: MIT
// Two compressors that run beside each other.
#include "stages/compressor.h"

#include "speaker/compressor_tables.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstdint>
#include <vector>

namespace quorel {
namespace {

// The limiter takes its time, the other one follows at once and turns loud samples down by half.
class CompressorBeside : public testing::Test {
protected:
    static Compressor<2> limiter() { return Compressor<2>(renderAttack, renderRelease, renderCurve); }
    static Compressor<2> quick()
    {
        constexpr std::array<GainPoint, 2> curve{{{0.5F, 1.0F}, {1.0F, 0.5F}}};
        return Compressor<2>(0.9F, 0.3F, curve);
    }

    // Four rows of sines, each of a pace of its own; of each two the loud one is now the one and now the other.
    CompressorBeside()
    {
        for (std::size_t r = 0; r < 4; ++r)
            for (std::size_t i = 0; i < frames; ++i)
                in[r][i] = (i / 60 % 2 == r % 2 ? 1.6F : 0.4F) * std::sin(0.1F * static_cast<float>((r + 1) * i));
    }

    static constexpr std::size_t frames = 300;
    std::array<std::vector<float>, 4> in{std::vector<float>(frames), std::vector<float>(frames), std::vector<float>(frames),
                                         std::vector<float>(frames)};
};

// What each has heard stays its own from block to block; a block of no frames changes nothing.
TEST_F(CompressorBeside, EachGivesBlockByBlockWhatItGivesAlone)
{
    auto one = limiter();
    auto other = quick();
    auto together = in;
    std::size_t at = 0;
    for (const std::size_t n : {100U, 0U, 1U, 150U, 49U}) {
        const auto row = [at](auto& rows, std::size_t r) { return rows[r].data() + at; };
        one.processBeside(other, {row(in, 0), row(in, 1)}, {row(together, 0), row(together, 1)}, {row(in, 2), row(in, 3)},
                          {row(together, 2), row(together, 3)}, n);
        at += n;
    }
    auto alone = in;
    limiter().process({in[0].data(), in[1].data()}, {alone[0].data(), alone[1].data()}, frames);
    quick().process({in[2].data(), in[3].data()}, {alone[2].data(), alone[3].data()}, frames);
    EXPECT_EQ(at, frames);
    EXPECT_EQ(together, alone);
    EXPECT_NE(alone, in);
}

} // namespace
} // namespace quorel
