// SPDX-License-Identifier: MIT
// The equaliser and the room of the render model.
#include "tests/model/speaker_model.h"

#include "tests/model/speaker_model_cases.h"
#include "tests/support/failure.h"

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>

namespace quorel::model {
namespace {

// ---------------------------------------------------------------------------
// Equaliser

TEST(SpeakerModelEqualizer, NineGainsOfZeroPassEverySample)
{
    Cascade cascade;
    cascade.design(equalizerSections({}));
    const Signal x = randomSignal(1000, 6);
    const Signal y = cascade.process(x);
    for (std::size_t i = 0; i < x.size(); ++i)
        EXPECT_NEAR(y[i], x[i], 1e-12);
}

TEST(SpeakerModelEqualizer, EqualGainsAreTheGainOfEverySectionAtItsOwnPlace)
{
    std::array<double, 9> gains;
    gains.fill(6.0);
    const auto sections = equalizerSections(gains);
    EXPECT_NEAR(dB(magnitudeAt({sections[0]}, 0.0)), 6.0, 1e-9);
    EXPECT_NEAR(dB(magnitudeAt({sections[0]}, std::numbers::pi)), 0.0, 1e-9);
    EXPECT_NEAR(dB(magnitudeAt({sections[8]}, std::numbers::pi)), 6.0, 1e-9);
    EXPECT_NEAR(dB(magnitudeAt({sections[8]}, 0.0)), 0.0, 1e-9);
    const std::array<double, 9> centres{63, 125, 250, 500, 1000, 2000, 4000, 8000, 16000};
    for (std::size_t b = 1; b < 8; ++b)
        EXPECT_NEAR(dB(magnitudeAt({sections[b]}, angleOf(centres[b]))), 6.0, 1e-9);
}

TEST(SpeakerModelEqualizer, ABandActsOnItsNeighboursThroughTheTransposedMatrix)
{
    // Only band 0 asks for 6 dB, the median is 0: band r gets 6 times entry (0, r) of the matrix
    // as it is handed in. Rows and columns differ in the fifth digit.
    std::array<double, 9> gains{};
    gains[0] = 6.0;
    const auto sections = equalizerSections(gains);
    EXPECT_NEAR(dB(magnitudeAt({sections[0]}, 0.0)), 6.0 * 1.12526229, 1e-9);
    EXPECT_NEAR(dB(magnitudeAt({sections[1]}, angleOf(125))), 6.0 * -0.388185238, 1e-9);
    EXPECT_NEAR(dB(magnitudeAt({sections[2]}, angleOf(250))), 6.0 * 0.0475613812, 1e-9);
    EXPECT_NEAR(dB(magnitudeAt({sections[8]}, std::numbers::pi)), 6.0 * 1.81745703e-07, 1e-12);
}

TEST(SpeakerModelEqualizer, APeaksWidthFollowsTheSineOfTheScaledAngle)
{
    // With t = (cos w - cos w0) / sin w a peak's gain squared is
    // (t^2 + A^2 a^2) / (t^2 + a^2 / A^2): A^4 at its centre, and A^2, half the decibels, at t = a.
    std::array<double, 9> gains;
    gains.fill(6.0);
    const Section peak = equalizerSections(gains)[6]; // 4000 Hz
    const double w0 = angleOf(4000.0);
    const double a = std::sin(w0 / (2.0 * 0.95));
    // Solve (cos w - cos w0) / sin w = a by bisection below w0.
    double low = 1e-3;
    double high = w0;
    for (int step = 0; step < 100; ++step) {
        const double w = (low + high) / 2.0;
        ((std::cos(w) - std::cos(w0)) / std::sin(w) > a ? low : high) = w;
    }
    EXPECT_NEAR(dB(magnitudeAt({peak}, low)), 3.0, 1e-9);
}

// ---------------------------------------------------------------------------
// Room

TEST(SpeakerModelRoom, TheMixingTableIsAHadamardMatrixWithAFirstColumnOfPlus)
{
    for (std::size_t r = 0; r < 12; ++r) {
        EXPECT_EQ(mixingSign(r, 0), 1);
        for (std::size_t s = 0; s < 12; ++s) {
            int product = 0;
            for (std::size_t l = 0; l < 12; ++l)
                product += mixingSign(r, l) * mixingSign(s, l);
            EXPECT_EQ(product, r == s ? 12 : 0);
        }
    }
}

TEST(SpeakerModelRoom, AnAllpassHasEnergyOne)
{
    Allpass allpass(15, 0.72f);
    double energy = 0.0;
    const double g = 0.72f;
    for (int n = 0; n < 2000; ++n) {
        const double y = allpass.process(n == 0 ? 1.0 : 0.0);
        energy += y * y;
        if (n == 0) {
            EXPECT_EQ(y, g);
        } else if (n == 15) {
            EXPECT_NEAR(y, 1.0 - g * g, 1e-15);
        } else if (n == 30) {
            EXPECT_NEAR(y, -g * (1.0 - g * g), 1e-15);
        } else if (n < 45) {
            EXPECT_EQ(y, 0.0);
        }
    }
    EXPECT_NEAR(energy, 1.0, 1e-12);
}

TEST(SpeakerModelRoom, AnImpulseComesOutBehindThePreDelayAndTheShortestTap)
{
    Room room({44}, 480, {1.0}, {});
    Signal x(480, 0.0);
    x[0] = 1.0;
    const Rows y = room.process({x});
    for (std::size_t i = 0; i < 48 + 1; ++i)
        EXPECT_EQ(y[1][i], 0.0);
    EXPECT_NEAR(y[1][48 + 1], firstRight, 1e-9);
    for (std::size_t i = 0; i < 48 + 8; ++i)
        EXPECT_EQ(y[0][i], 0.0);
    EXPECT_NEAR(y[0][48 + 8], 0.28867513 * 0.274194241 * 0.72 * 0.989821017 * 0.427282631, 1e-9);
}

TEST(SpeakerModelRoom, AShortBlockPushesTheTapsBackByWhatItIsShort)
{
    Room room({44}, 480, {1.0}, {});
    Signal x(240, 0.0);
    x[0] = 1.0;
    Signal right;
    for (int block = 0; block < 3; ++block) {
        const Rows y = room.process({x});
        right.insert(right.end(), y[1].begin(), y[1].end());
        x[0] = 0.0;
    }
    for (std::size_t i = 0; i < 48 + 1 + 240; ++i)
        EXPECT_EQ(right[i], 0.0);
    EXPECT_NEAR(right[48 + 1 + 240], firstRight, 1e-9);
}

TEST(SpeakerModelRoom, ALineReturnsAfterItsLengthWhateverTheBlocks)
{
    // Two rooms with one maxFrames, blocks of maxFrames in both; then the same impulse in blocks
    // of other lengths. The feedback loop must not depend on the cutting, the taps do. At the
    // end both are given full blocks, and by then all that is left came round a line.
    const std::vector<std::vector<std::size_t>> cuts{{480, 480, 480, 480, 480}, {100, 380, 479, 1, 480, 7, 473, 480}};
    std::vector<Rows> last;
    for (const auto& cut : cuts) {
        Room room({44}, 480, {1.0}, {});
        bool first = true;
        for (const std::size_t n : cut) {
            Signal x(n, 0.0);
            if (first)
                x[20] = 1.0;
            first = false;
            room.process({x});
        }
        room.process({Signal(480, 0.0)}); // the output filter forgets the cutting: poles at 0.89
        room.process({Signal(480, 0.0)});
        last.push_back(room.process({Signal(480, 0.0)}));
    }
    for (std::size_t ear = 0; ear < 2; ++ear)
        for (std::size_t i = 0; i < 480; ++i)
            EXPECT_NEAR(last[0][ear][i], last[1][ear][i], 1e-15);
}

TEST(SpeakerModelRoom, DecorrelationCrossesTheSides)
{
    const Signal same = randomSignal(140, 7);
    const Signal cross = randomSignal(140, 8);
    Room plain({44}, 480, {1.0}, {});
    Room filtered({44}, 480, same, cross);
    // The output filter is linear and the same on both sides, so the order may be turned round.
    Rows a(2);
    Rows b(2);
    for (int block = 0; block < 6; ++block) {
        Signal x(480, 0.0);
        if (block == 0)
            x = randomSignal(480, 9);
        const Rows p = plain.process({x});
        const Rows f = filtered.process({x});
        for (std::size_t ear = 0; ear < 2; ++ear) {
            a[ear].insert(a[ear].end(), p[ear].begin(), p[ear].end());
            b[ear].insert(b[ear].end(), f[ear].begin(), f[ear].end());
        }
    }
    for (std::size_t ear = 0; ear < 2; ++ear)
        for (std::size_t i = 0; i < a[0].size(); ++i) {
            double expected = 0.0;
            for (std::size_t k = 0; k < 140 && k <= i; ++k)
                expected += same[k] * a[ear][i - k] + cross[k] * a[1 - ear][i - k];
            ASSERT_NEAR(b[ear][i], expected, 1e-12);
        }
}

TEST(SpeakerModelRoom, TheLoopDecaysBecauseOfTheLineFiltersAlone)
{
    Room room({44}, 480, {1.0}, {});
    double first = 0.0;
    double last = 0.0;
    for (int block = 0; block < 400; ++block) {
        Signal x(480, 0.0);
        if (block == 0)
            x[0] = 1.0;
        const Rows y = room.process({x});
        for (std::size_t i = 0; i < 480; ++i)
            (block < 200 ? first : last) += y[0][i] * y[0][i];
    }
    EXPECT_GT(first, 0.0);
    EXPECT_LT(last, 1e-9 * first);
}

TEST(SpeakerModelRoom, ABlockAsLongAsAPreDelayFailsBehindTheChannelsBeforeIt)
{
    // Channel 0 is delayed by 48, channel 1 by 64: a block of 64 fails at channel 1, and the
    // impulse 4 frames before its end stays in channel 0's delay alone.
    Room failing({44, 51}, 480, {1.0}, {});
    Signal x(64, 0.0);
    x[60] = 1.0;
    EXPECT_EQ(failureText<Failure>([&] { failing.process({x, x}); }), "ippStsSizeErr");
    const Rows silence(2, Signal(80, 0.0));
    const Rows y = failing.process(silence);

    Room passing({44, 51}, 480, {1.0}, {});
    Signal only(96, 0.0);
    only[92] = 1.0;
    passing.process({only, Signal(96, 0.0)});
    EXPECT_EQ(y, passing.process(silence));

    Room one({44}, 480, {1.0}, {});
    EXPECT_EQ(failureText<Failure>([&] { one.process({Signal(48, 0.0)}); }), "ippStsSizeErr");
    EXPECT_EQ(failureText<Failure>([&] { one.process({Signal(64, 0.0)}); }), "");
    EXPECT_EQ(failureText<Failure>([&] { one.process({Signal()}); }), "Delay: in buffer empty");
}

TEST(SpeakerModelRoom, ABlockAboveMaxFramesFailsBehindThePreDelays)
{
    Room room({44}, 470, {1.0}, {});
    Signal x(480, 0.0);
    x[479] = 1.0;
    EXPECT_EQ(failureText<Failure>([&] { room.process({x}); }), "DelayLine: internal buffer too small");
    EXPECT_EQ(failureText<Failure>([&] { room.process({Signal(481, 0.0)}); }), "FDN: out buffer too small");
    // The failed block has passed the pre-delay: its last sample comes out at frame 47.
    const Rows y = room.process({Signal(470, 0.0)});
    EXPECT_EQ(y[1][47], 0.0);
    EXPECT_NEAR(y[1][47 + 1], firstRight, 1e-9);
}

} // namespace
} // namespace quorel::model
