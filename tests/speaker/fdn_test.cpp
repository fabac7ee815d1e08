// SPDX-License-Identifier: MIT
#include "speaker/fdn.h"

#include "speaker/built_in.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <string>
#include <vector>

namespace quorel {
namespace {

constexpr Speakers<8> sevenPointOne = {0, 1, 2, 3, 4, 5, 6, 7};

// A room with the path's part: the padded input that it reads.
template <std::size_t N>
class Rig {
public:
    explicit Rig(const Speakers<N>& speakers, std::uint64_t maxFrames = 480) : fdn(builtInRoom<N>(speakers, maxFrames)) {}

    // The stereo tail of a block in which channel c holds one sample at its start, or silence.
    Buffer<float, 2> process(std::uint64_t n, float sample = 0.0F, std::size_t c = 0)
    {
        input.slide();
        input.channel(c)[input.overlap()] = sample;
        input.setSize(input.overlap() + n);
        Buffer<float, 2> out(1072);
        fdn.process(input, out);
        return out;
    }

    std::string refusal(std::uint64_t n, std::uint64_t capacity = 1072)
    {
        input.slide();
        input.setSize(input.overlap() + n);
        Buffer<float, 2> out(capacity);
        try {
            fdn.process(input, out);
        } catch (const std::exception& error) {
            return error.what();
        }
        return "accepted";
    }

    PaddedBuffer<N> input{2048, 176};
    FDN<N> fdn;
};

double energyOf(const Buffer<float, 2>& out, std::uint64_t from, std::uint64_t to)
{
    double sum = 0.0;
    for (std::size_t c = 0; c < 2; ++c)
        for (std::uint64_t i = from; i < to; ++i)
            sum += std::pow(static_cast<double>(out.channel(c)[i]), 2);
    return sum;
}

TEST(FDN, AnImpulseBecomesADenseDecayingTailBehindThePreDelay)
{
    Rig<1> rig({0});
    const auto first = rig.process(480, 1.0F);
    EXPECT_LT(energyOf(first, 0, 48), 1e-12) << "no energy comes out before 48 frames";
    EXPECT_GT(energyOf(first, 48, 480), 1e-4);
    std::vector<double> energies;
    for (int block = 0; block < 60; ++block)
        energies.push_back(energyOf(rig.process(480), 0, 480));
    // Every tap gain follows a decay of 60 dB in 5401 frames, and the line filters keep to it at the least decayed frequency
    // within a factor: after 60 blocks, 28800 frames, the tail is far below -60 dB of its start.
    EXPECT_LT(energies.back(), 1e-6 * energies.front());
    for (std::size_t block = 10; block < energies.size(); ++block)
        EXPECT_LT(energies[block], energies[block - 10]);
    // Dense: in the third block, 1000 frames behind the impulse, hardly a frame is still.
    Rig<1> again({0});
    again.process(480, 1.0F);
    again.process(480);
    const auto third = again.process(480);
    int still = 0;
    for (std::size_t i = 0; i < 480; ++i)
        still += std::abs(third.channel(0)[i]) < 1e-6F;
    EXPECT_LT(still, 10);
}

TEST(FDN, ABlockOfThePreDelaysLengthFailsAndAnyOtherPasses)
{
    Rig<8> rig(sevenPointOne); // delays of 48 frames, and 64 on back left
    for (std::uint64_t n = 1; n <= 480; ++n)
        EXPECT_EQ(rig.refusal(n), n == 48 || n == 64 ? "ippStsSizeErr" : "accepted") << n;
}

TEST(FDN, OneShortDelayPassesABlockOf64)
{
    Rig<1> rig({0});
    EXPECT_EQ(rig.refusal(64), "accepted");
    EXPECT_EQ(rig.refusal(48), "ippStsSizeErr");
}

TEST(FDN, AnEmptyBlockIsRefused)
{
    Rig<1> rig({0});
    EXPECT_EQ(rig.refusal(0), "Delay: in buffer empty");
}

TEST(FDN, AnOutputTooSmallIsRefused)
{
    Rig<1> rig({0});
    EXPECT_EQ(rig.refusal(33, 32), "FDN: out buffer too small");
}

TEST(FDN, ABlockBeyondMaxFramesFailsInAStage)
{
    Rig<1> rig({0}, 470); // buffers of 480
    EXPECT_EQ(rig.refusal(471), "DelayLine: internal buffer too small");
    EXPECT_EQ(rig.refusal(481), "Delay: out buffer too small");
}

TEST(FDN, ChannelsHaveTailsOfTheirOwn)
{
    // Until the shortest line has come round, a tail is a signed sum of the same taps; from then on the lines drift apart.
    std::vector<std::vector<float>> tails(8);
    for (std::size_t c = 0; c < 8; ++c) {
        Rig<8> rig(sevenPointOne);
        rig.process(480, 1.0F, c);
        for (int block = 1; block < 12; ++block) {
            const auto out = rig.process(480);
            if (block >= 3)
                tails[c].insert(tails[c].end(), out.channel(0), out.channel(0) + 480);
        }
    }
    for (std::size_t a = 0; a < 8; ++a)
        for (std::size_t b = a + 1; b < 8; ++b) {
            double product = 0.0;
            double powers[2] = {};
            for (std::size_t i = 0; i < tails[a].size(); ++i) {
                product += static_cast<double>(tails[a][i]) * static_cast<double>(tails[b][i]);
                powers[0] += std::pow(static_cast<double>(tails[a][i]), 2);
                powers[1] += std::pow(static_cast<double>(tails[b][i]), 2);
            }
            EXPECT_LT(std::abs(product), 0.5 * std::sqrt(powers[0] * powers[1])) << a << " and " << b;
        }
}

TEST(FDN, DecaysThroughSilenceWithoutLingeringAmongTheDenormals)
{
    Rig<2> rig({0, 1});
    std::mt19937 random(1);
    std::uniform_real_distribution<float> level(-1.0F, 1.0F);
    double loudest = 0.0;
    for (int block = 0; block < 100; ++block) {
        rig.input.slide();
        for (std::size_t c = 0; c < 2; ++c)
            for (std::size_t i = 0; i < 480; ++i)
                rig.input.channel(c)[176 + i] = level(random);
        rig.input.setSize(176 + 480);
        Buffer<float, 2> out(480);
        rig.fdn.process(rig.input, out);
        loudest = std::max(loudest, energyOf(out, 0, 480));
    }
    int denormal = 0;
    for (int block = 0; block < 6000; ++block) { // a minute
        const auto out = rig.process(480);
        EXPECT_LE(energyOf(out, 0, 480), loudest);
        if (block >= 5990)
            for (std::size_t c = 0; c < 2; ++c)
                denormal += static_cast<int>(std::count_if(out.channel(c), out.channel(c) + 480,
                                                           [](float x) { return std::fpclassify(x) == FP_SUBNORMAL; }));
    }
    EXPECT_EQ(denormal, 0);
}

} // namespace
} // namespace quorel
