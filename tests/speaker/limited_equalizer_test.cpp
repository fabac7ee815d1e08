// SPDX-License-Identifier: MIT
#include "speaker/limited_equalizer.h"

#include "core/buffer_arithmetic.h"
#include "speaker/built_in.h"
#include "speaker/compressor_tables.h"
#include "tests/support/noise.h"

#include <gtest/gtest.h>

#include <bit>

namespace quorel {
namespace {

// The three stages and their buses.
struct Bus {
    Bus() { equalizer.design({6.0, -5.0, 3.0, 2.0, -4.0, 1.0, -6.0, 5.0, 3.0}); }

    Compressor<2> first{renderAttack, renderRelease, renderCurve};
    Equalizer equalizer = builtInEqualizer();
    Compressor<2> second{renderAttack, renderRelease, renderCurve};
    Buffer<float, 2> mix{848};
    Buffer<float, 2> side{848};
};

void fill(Buffer<float, 2>& buffer, std::size_t n, std::uint32_t seed)
{
    for (std::size_t ear = 0; ear < 2; ++ear) {
        const auto noise = normalNoise(n, 0.8F, 2 * seed + static_cast<std::uint32_t>(ear)); // beyond the limiters' knee
        std::copy(noise.begin(), noise.end(), buffer.channel(ear));
    }
    buffer.setSize(n);
}

void expectSameBits(const Buffer<float, 2>& a, const Buffer<float, 2>& b)
{
    ASSERT_EQ(a.size(), b.size());
    for (std::size_t ear = 0; ear < 2; ++ear)
        for (std::size_t i = 0; i < a.size(); ++i)
            ASSERT_EQ(std::bit_cast<std::uint32_t>(a.channel(ear)[i]), std::bit_cast<std::uint32_t>(b.channel(ear)[i]))
                << "ear " << ear << ", frame " << i;
}

// One stream in blocks of all kinds, of which some come from a buffer of their own and some bring a room.
TEST(LimitedEqualizer, GivesTheBitsOfItsStagesOneAfterAnother)
{
    Bus pass, stages;
    Buffer<float, 2> direct(848), room(848);
    std::uint32_t seed = 1;
    for (const std::size_t n : {1, 7, 8, 64, 119, 120, 121, 239, 240, 241, 361, 480, 480, 481, 847, 848}) {
        SCOPED_TRACE(testing::Message() << "block of " << n);
        const bool withRoom = seed % 2 == 0;
        const bool inPlace = seed % 3 == 0;
        fill(direct, n, ++seed);
        fill(room, n, seed + 100);
        for (Bus* bus : {&pass, &stages}) {
            fill(bus->mix, n, seed);
            fill(bus->side, n, seed + 100);
        }
        limitedEqualizer(rows(std::as_const(inPlace ? pass.mix : direct)), withRoom, n, pass.first, pass.equalizer, pass.second,
                         pass.mix, pass.side);
        stages.first.process(direct, stages.mix);
        if (withRoom)
            stages.mix += room;
        stages.equalizer.process(stages.mix, stages.side);
        stages.second.process(stages.side, stages.side);
        expectSameBits(pass.mix, stages.mix);
        expectSameBits(pass.side, stages.side);
    }
}

TEST(LimitedEqualizer, AcceptsAnEmptyBlock)
{
    Bus bus;
    limitedEqualizer(rows(std::as_const(bus.mix)), true, 0, bus.first, bus.equalizer, bus.second, bus.mix, bus.side);
    EXPECT_EQ(bus.mix.size(), 0U);
    EXPECT_EQ(bus.side.size(), 0U);
}

} // namespace
} // namespace quorel
