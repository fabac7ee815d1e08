// SPDX-License-Identifier: MIT
// The render model against closed forms, so that it can stand as the yardstick of the path.

#include "tests/model/speaker_model.h"

#include "tests/support/failure.h"

#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <limits>
#include <numbers>
#include <random>
#include <string>

namespace quorel::model {
namespace {

constexpr std::uint32_t centreMask = 0x4;
constexpr std::uint32_t surroundMask = 0x63F;

Signal randomSignal(std::size_t n, std::uint32_t seed)
{
    std::mt19937 random(seed);
    Signal x(n);
    for (double& sample : x)
        sample = static_cast<double>(random()) / 2147483648.0 - 1.0;
    return x;
}

// Every speaker reaches both ears as it is, the room's decorrelation passes its own side.
SpeakerTables plainTables()
{
    SpeakerTables tables;
    tables.left.fill({1.0});
    tables.right.fill({1.0});
    tables.sameSide = {1.0};
    return tables;
}

RecordFields surroundRecord()
{
    RecordFields fields;
    fields.newRecord = true;
    fields.Settings = 1;
    fields.blockSequence = 1;
    return fields;
}

const RecordFields unchanged{};

std::vector<float> impulse(std::size_t n, std::size_t at, float height = 1.0f)
{
    std::vector<float> x(n, 0.0f);
    x[at] = height;
    return x;
}

// The magnitude of sections in series at an angle, from their transfer functions.
double magnitudeAt(const std::vector<Section>& sections, double w)
{
    const std::complex<double> z1 = std::polar(1.0, -w);
    const std::complex<double> z2 = std::polar(1.0, -2.0 * w);
    double magnitude = 1.0;
    for (const Section& s : sections)
        magnitude *= std::abs(s.b0 + s.b1 * z1 + s.b2 * z2) / std::abs(s.a0 + s.a1 * z1 + s.a2 * z2);
    return magnitude;
}

double angleOf(double hertz)
{
    return 2.0 * std::numbers::pi * hertz / 48000.0;
}

double dB(double ratio)
{
    return 20.0 * std::log10(ratio);
}

// ---------------------------------------------------------------------------
// Parts

TEST(ModelParts, RampsAreRaisedCosinesFromExactlyZeroToOneStepShortOfOne)
{
    const std::size_t L = 480;
    const Ramps ramps(L);
    EXPECT_EQ(ramps.rising[0], 0.0);
    EXPECT_EQ(ramps.falling[0], 1.0);
    EXPECT_LT(ramps.rising[L - 1], 1.0);
    for (std::size_t i = 0; i < L; ++i) {
        const double angle = static_cast<double>(i) * std::numbers::pi / double{L};
        // Single precision: the angle's last place (1.2e-7 at 3), halved, and three roundings
        // below 6e-8.
        EXPECT_NEAR(ramps.rising[i], (1.0 - std::cos(angle)) / 2.0, 2.4e-7);
        EXPECT_NEAR(ramps.rising[i] + ramps.falling[i], 1.0, 6e-8);
    }
}

TEST(ModelParts, AGainOfZeroLeavesNothingOfInfinities)
{
    const double infinity = std::numeric_limits<double>::infinity();
    EXPECT_EQ(scaled({infinity, 1.0}, 0.0), Signal(2, 0.0));
    EXPECT_EQ(scaled({infinity, 1.0}, 0.5), (Signal{infinity, 0.5}));
}

TEST(ModelParts, ACascadeHasTheResponseOfItsTransferFunctions)
{
    const std::vector<Section> sections{{1.0, 0.5, 0.25, 2.0, -1.2, 0.5}, {0.7, -0.2, 0.1, 1.0, 0.3, 0.4}};
    Cascade cascade;
    cascade.design(sections);
    Signal x(400, 0.0);
    x[0] = 1.0;
    // Run in two blocks, so that the held samples count too.
    Signal y = cascade.process(Signal(x.begin(), x.begin() + 3));
    const Signal rest = cascade.process(Signal(x.begin() + 3, x.end()));
    y.insert(y.end(), rest.begin(), rest.end());
    for (const double w : {0.0, 0.1, 1.0, 2.0, 3.1}) {
        std::complex<double> sum = 0.0;
        for (std::size_t n = 0; n < y.size(); ++n)
            sum += y[n] * std::polar(1.0, -w * static_cast<double>(n));
        EXPECT_NEAR(std::abs(sum), magnitudeAt(sections, w), 1e-12);
    }
}

TEST(ModelParts, ACascadeRefusesSectionsWithoutA0OrB0AndKeepsWhatItHad)
{
    Cascade cascade;
    cascade.design({{0.5, 0, 0, 1, 0, 0}});
    EXPECT_EQ(failureText<Failure>([&] { cascade.design({{0, 1, 0, 1, 0, 0}}); }), "ippStsDivByZeroErr");
    EXPECT_EQ(failureText<Failure>([&] { cascade.design({{1, 1, 0, 0, 0, 0}}); }), "ippStsDivByZeroErr");
    EXPECT_EQ(cascade.process({2.0})[0], 1.0);
}

TEST(ModelParts, AFlatPackedSpectrumIsAUnitImpulse)
{
    std::vector<float> packed(1024, 0.0f);
    packed[0] = packed[1023] = 1.0f;
    for (std::size_t k = 1; k < 512; ++k)
        packed[2 * k - 1] = 1.0f;
    const Signal taps = tapsFromPacked(packed.data());
    for (std::size_t n = 0; n < taps.size(); ++n)
        EXPECT_NEAR(taps[n], n == 0 ? 1.0 : 0.0, 1e-12);
}

TEST(ModelParts, PackingAndUnpackingGivesTheTapsAgain)
{
    const Signal taps = randomSignal(1024, 3);
    const Signal again = tapsFromPacked(packedFromTaps(taps).data());
    // 1024 values near 30, each rounded to 2^-24 of itself at most, add up like noise:
    // 30 * 6e-8 * sqrt(2 / 1024) is 8e-8 in the mean.
    for (std::size_t n = 0; n < taps.size(); ++n)
        EXPECT_NEAR(again[n], taps[n], 5e-7);
}

TEST(ModelParts, AWindowConvolvesAcrossBlocksOfAnyLengths)
{
    const Signal x = randomSignal(3000, 4);
    const Signal taps = randomSignal(177, 5);
    Window window(1, 176);
    std::size_t start = 0;
    for (const std::size_t n : {480u, 1u, 848u, 17u, 100u, 700u, 333u}) {
        const auto first = x.begin() + static_cast<std::ptrdiff_t>(start);
        window.slide();
        window.load({Signal(first, first + static_cast<std::ptrdiff_t>(n))});
        const Signal y = window.convolve(0, taps);
        for (std::size_t i = 0; i < n; ++i) {
            double expected = 0.0;
            for (std::size_t k = 0; k < taps.size() && k <= start + i; ++k)
                expected += taps[k] * x[start + i - k];
            ASSERT_NEAR(y[i], expected, 1e-12);
        }
        start += n;
    }
}

TEST(ModelParts, ABlockThatDoesNotFitLeavesTheHistoryAsItStood)
{
    Window window(1, 176);
    Signal x(480, 0.0);
    x[479] = 1.0;
    window.slide();
    window.load({x});
    for (int attempt = 0; attempt < 2; ++attempt) {
        window.slide();
        EXPECT_EQ(failureText<Failure>([&] { window.load({Signal(849, 1.0)}); }), "PassThrough: out buffer too small");
    }
    window.slide();
    window.load({Signal(100, 0.0)});
    Signal expected(100, 0.0);
    expected[9] = 1.0;
    Signal taps(11, 0.0);
    taps[10] = 1.0;
    EXPECT_EQ(window.convolve(0, taps), expected);
}

TEST(ModelParts, AnOverlongResponseTurnsInTheCircleOf1024Frames)
{
    Window window(1, 176);
    Signal taps(1024, 0.0);
    taps[600] = 1.0;
    Signal x(480, 0.0);
    x[450] = 1.0;
    window.slide();
    window.load({x});
    // Index 176 + 450 + 600 is 1226, in the circle 202, which is frame 26 of the block.
    const Signal y = window.convolve(0, taps);
    for (std::size_t i = 0; i < y.size(); ++i)
        EXPECT_EQ(y[i], i == 26 ? 1.0 : 0.0);
}

TEST(ModelParts, ALimiterLeavesWhatStaysBelowFullScale)
{
    GainRider limiter = renderLimiter();
    const Rows y = limiter.process({Signal(5000, 0.5), Signal(5000, -0.5)});
    EXPECT_EQ(y[0], Signal(5000, 0.5));
    EXPECT_EQ(y[1], Signal(5000, -0.5));
}

TEST(ModelParts, ALimiterLooksUpItsCurve)
{
    const GainRider limiter = renderLimiter();
    EXPECT_EQ(limiter.gainFor(0.0), 1.0);
    EXPECT_EQ(limiter.gainFor(1.0), 1.0);
    EXPECT_EQ(limiter.gainFor(1.99526227f), 0.501187205f);
    EXPECT_EQ(limiter.gainFor(50.1187248f), 0.0199526232f);
    EXPECT_EQ(limiter.gainFor(100.0), 0.0199526232f);
    // Half way between 2 and 4 dB in level is half way in gain. The slope is a float.
    EXPECT_NEAR(limiter.gainFor((1.25892544 + 1.58489323) / 2), (0.794328213 + 0.630957365) / 2, 1e-7);
}

TEST(ModelParts, ALimiterAttacksWithATimeConstantOf1MillisecondAndReleasesWith400)
{
    GainRider limiter = renderLimiter();
    // After one time constant of 48 frames the follower stands at 2 (1 - 1/e) = 1.26424.
    Rows y = limiter.process({Signal(48, 2.0), Signal(48, 0.0)});
    EXPECT_NEAR(y[0][47] / 2.0, limiter.gainFor(2.0 * (1.0 - std::exp(-1.0))), 1e-5);
    EXPECT_EQ(y[1][47], 0.0);

    // Settled at 2, then 19200 frames of silence: 2 / e stays below 1, 2 exp(-1/4) does not.
    y = limiter.process({Signal(4800, 2.0), Signal(4800, 0.0)});
    y = limiter.process({Signal(4801, 0.0), Signal(4801, 0.5)});
    // The second channel's own follower stays at 0.5, so the first one's release counts. A
    // single-precision recursion with so small a coefficient is good to about 1e-4 here.
    EXPECT_NEAR(y[1][4800] / 0.5, limiter.gainFor(2.0 * std::exp(-0.25)), 1e-4);
}

TEST(ModelParts, ASinglePrecisionFollowerComesToRestOffItsLevel)
{
    // 1 - exp(-1 / (48000 * 1.2)): from 1.0 down towards 0.75 the steps get smaller than half
    // the last place of a float in [0.5, 1), 2^-25, at a distance of 2^-25 / k = 1.72e-3, and
    // the follower stops there.
    const float release = 1.73609606e-05f;
    GainRider rider(1, 1.0f, release, {{0.5f, 0.5f}, {1.0f, 1.0f}});
    rider.process({{1.0}});
    const Rows y = rider.process({Signal(1000000, 0.75)});
    const double rest = y[0].back() / 0.75; // gain is level on this curve
    EXPECT_NEAR(rest - 0.75, std::ldexp(1.0, -25) / release, 1e-6);
}

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

// The first sample out of the right side is the impulse behind the pre-delay and line 7's tap of
// one frame, through nothing but the leading coefficients.
constexpr double firstRight = 0.28867513 * 0.1524418 * 0.72 * 0.998721898 * 0.427282631;

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

TEST(SpeakerModelRoom, ABlockAsLongAsAPreDelayFailsAndLeavesTheChannelsBeforeItAdvanced)
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

// ---------------------------------------------------------------------------
// The path

TEST(SpeakerModel, AnImpulseBecomesTheResponsePairAcrossTheBlockBorder)
{
    SpeakerTables tables = plainTables();
    tables.left[2] = randomSignal(140, 10);
    tables.right[2] = randomSignal(150, 11);
    SpeakerModel model(1, centreMask, 480, 48000, tables);
    // A quarter of full scale keeps the limiters out.
    const Signal a = model.process(surroundRecord(), impulse(480, 400, 0.25f).data(), 480);
    const Signal b = model.process(unchanged, std::vector<float>(480).data(), 480);
    for (std::size_t i = 0; i < 960; ++i) {
        const Signal& y = i < 480 ? a : b;
        const std::size_t frame = 2 * (i % 480);
        const auto tap = [&](const Signal& taps) { return i >= 400 && i - 400 < taps.size() ? taps[i - 400] : 0.0; };
        // The first block fades from flat to flat, whose ramps add up to 1 within 6e-8.
        EXPECT_NEAR(y[frame], 0.2 * tap(tables.left[2]), 1e-7);
        EXPECT_NEAR(y[frame + 1], 0.2 * tap(tables.right[2]), 1e-7);
    }
}

TEST(SpeakerModel, ChannelsTakeTheSpeakersOfTheMaskInItsOrder)
{
    SpeakerTables tables = plainTables();
    for (std::size_t s = 0; s < speakerCount; ++s) {
        tables.left[s] = {0.01 * static_cast<double>(s + 1)};
        tables.right[s] = {0.1};
    }
    // 5.1 with side speakers: front left, right, centre, low frequency, side left, side right.
    SpeakerModel model(6, 0x60F, 480, 48000, tables);
    std::vector<float> in(480 * 6, 0.0f);
    for (std::size_t c = 0; c < 6; ++c)
        in[(10 + c) * 6 + c] = 1.0f;
    const Signal y = model.process(surroundRecord(), in.data(), 480);
    const std::array<double, 6> expected{1, 2, 3, 4, 7, 8};
    for (std::size_t c = 0; c < 6; ++c) {
        EXPECT_NEAR(y[2 * (10 + c)], 0.008 * expected[c], 1e-8);
        EXPECT_NEAR(y[2 * (10 + c) + 1], 0.08, 1e-8);
    }
}

TEST(SpeakerModel, AFirstRecordOfZerosFadesToTheDownMix)
{
    SpeakerTables tables = plainTables();
    tables.left[2] = tables.right[2] = {}; // silence with the surround effect on
    SpeakerModel model(1, centreMask, 480, 48000, tables);
    const std::vector<float> in(480, 0.5f);
    const Signal a = model.process(unchanged, in.data(), 480);
    const Ramps ramps(480);
    for (std::size_t i = 0; i < 480; ++i)
        EXPECT_NEAR(a[2 * i], 0.8 * 0.25 * ramps.rising[i], 1e-7);
    const Signal b = model.process(unchanged, in.data(), 480);
    for (std::size_t i = 0; i < 480; ++i)
        EXPECT_NEAR(b[2 * i + 1], 0.8 * 0.25, 1e-8);
}

TEST(SpeakerModel, ATransitionRunsTheLimiterOverBothSignals)
{
    SpeakerTables tables = plainTables();
    tables.left[2] = tables.right[2] = {2.0};
    SpeakerModel model(1, centreMask, 480, 48000, tables);
    const std::vector<float> in(480, 1.5f);
    const Signal y = model.process(unchanged, in.data(), 480); // surround on, then off

    GainRider direct = renderLimiter();
    GainRider output = renderLimiter();
    const Rows old = direct.process(Rows(2, Signal(480, 3.0)));
    const Rows fresh = direct.process(Rows(2, Signal(480, 0.75)));
    const Ramps ramps(480);
    Rows mix(2);
    mix[0] = crossfade(old[0], fresh[0], ramps);
    mix[1] = mix[0];
    const Rows expected = output.process(mix);
    for (std::size_t i = 0; i < 480; ++i)
        EXPECT_NEAR(y[2 * i], 0.8 * expected[0][i], 1e-6);
}

TEST(SpeakerModel, TheConvolversHistoryStandsStillWhileTheSurroundEffectIsOff)
{
    SpeakerTables tables = plainTables();
    tables.left[2] = Signal(11, 0.0);
    tables.left[2][10] = 1.0;
    SpeakerModel model(1, centreMask, 480, 48000, tables);
    RecordFields on = surroundRecord();
    model.process(on, impulse(480, 479, 0.5f).data(), 480);
    const std::vector<float> silence(480);
    RecordFields off = on;
    off.Settings = 0;
    off.blockSequence = 2;
    // The fade to the down-mix still runs the convolver, on a block with an impulse near its
    // end; the blocks after it do not.
    model.process(off, impulse(480, 475, 0.5f).data(), 480);
    for (int block = 0; block < 3; ++block)
        for (const double sample : model.process(unchanged, silence.data(), 480))
            EXPECT_NEAR(sample, 0.0, 1e-12);
    on.blockSequence = 3;
    const Signal y = model.process(on, silence.data(), 480);
    const Ramps ramps(480);
    for (std::size_t i = 0; i < 480; ++i)
        EXPECT_NEAR(y[2 * i], i == 5 ? 0.4 * ramps.rising[5] : 0.0, 1e-9);
}

TEST(SpeakerModel, SwitchingTheReverbOffRunsTheRoomForOneMoreBlock)
{
    SpeakerModel model(1, centreMask, 480, 48000, plainTables());
    RecordFields fields = surroundRecord();
    fields.Reverb = 170; // 0 dB
    model.process(fields, impulse(480, 0, 0.25f).data(), 480);
    const std::vector<float> silence(480);

    Room room({44}, 480, {1.0}, {});
    Signal x(480, 0.0);
    x[0] = 0.25;
    room.process({x});
    Rows tail = room.process({Signal(480, 0.0)});
    Signal y = model.process(unchanged, silence.data(), 480);
    for (std::size_t i = 0; i < 480; ++i)
        EXPECT_NEAR(y[2 * i], 0.8 * tail[0][i], 1e-9);

    fields.Reverb = 0;
    fields.blockSequence = 2;
    tail = room.process({Signal(480, 0.0)});
    const Ramps ramps(480);
    y = model.process(fields, silence.data(), 480);
    for (std::size_t i = 0; i < 480; ++i)
        EXPECT_NEAR(y[2 * i], 0.8 * tail[0][i] * ramps.falling[i], 1e-9);
    EXPECT_FALSE(model.reverbPending());
    for (int block = 0; block < 3; ++block)
        for (const double sample : model.process(unchanged, silence.data(), 480))
            EXPECT_NEAR(sample, 0.0, 1e-12);

    // Back on, the tail goes on from where it stood.
    fields.Reverb = 170;
    fields.blockSequence = 3;
    tail = room.process({Signal(480, 0.0)});
    y = model.process(fields, silence.data(), 480);
    for (std::size_t i = 0; i < 480; ++i)
        EXPECT_NEAR(y[2 * i + 1], 0.8 * tail[1][i] * ramps.rising[i], 1e-9);
}

TEST(SpeakerModel, AReverbGainThatChangesWithTheSurroundEffectOffWaitsForItsReturn)
{
    SpeakerModel model(1, centreMask, 480, 48000, plainTables());
    RecordFields fields = surroundRecord();
    const std::vector<float> silence(480);
    model.process(fields, silence.data(), 480);
    fields.Settings = 0;
    fields.blockSequence = 2;
    model.process(fields, silence.data(), 480);
    EXPECT_FALSE(model.reverbPending());
    fields.Reverb = 170;
    fields.blockSequence = 3;
    for (int block = 0; block < 3; ++block) {
        model.process(block == 0 ? fields : unchanged, silence.data(), 480);
        EXPECT_TRUE(model.reverbPending());
    }
    fields.Settings = 1;
    fields.blockSequence = 4;
    model.process(fields, silence.data(), 480);
    EXPECT_FALSE(model.reverbPending());
}

TEST(SpeakerModel, TheReverbGainFollowsItsLaw)
{
    // 1 is 10^((27/255 - 18) / 20), 255 is +9 dB. The gain scales the tail, seen one block after
    // the fade.
    for (const auto& [value, expected] : {std::pair{1u, 0.12744}, std::pair{170u, 1.0}, std::pair{255u, 2.8184}}) {
        SpeakerTables tables = plainTables();
        tables.left[2] = tables.right[2] = {};
        SpeakerModel model(1, centreMask, 480, 48000, tables);
        RecordFields fields = surroundRecord();
        fields.Reverb = value;
        const std::vector<float> silence(480);
        model.process(fields, silence.data(), 480);
        const Signal y = model.process(unchanged, impulse(480, 0).data(), 480);
        EXPECT_NEAR(y[2 * 49 + 1] / (0.8 * firstRight), expected, 5e-5 * expected);
    }
}

TEST(SpeakerModel, ANewCurveStartsFromSilenceUnderItsRamp)
{
    SpeakerModel model(1, centreMask, 480, 48000, plainTables());
    RecordFields fields = surroundRecord();
    const Signal x = randomSignal(1440, 12);
    std::vector<float> in(x.size());
    for (std::size_t i = 0; i < x.size(); ++i)
        in[i] = static_cast<float>(0.2 * x[i]);
    model.process(fields, in.data(), 480);
    fields.blockSequence = 2;
    fields.EQBand = {127, 0, -127, 20, 0, 60, 0, 0, 127};
    const Signal y = model.process(fields, in.data() + 480, 480);
    EXPECT_FALSE(model.equalizerPending());
    const Signal after = model.process(unchanged, in.data() + 960, 480);

    std::array<double, 9> gains{};
    for (std::size_t b = 0; b < 9; ++b)
        gains[b] = fields.EQBand[b] * 6.0 / 127.0;
    Cascade curve;
    curve.design(equalizerSections(gains));
    const Signal fresh = curve.process(Signal(in.begin() + 480, in.end()));
    const Ramps ramps(480);
    for (std::size_t i = 0; i < 480; ++i) {
        EXPECT_NEAR(y[2 * i], 0.8 * (in[480 + i] * ramps.falling[i] + fresh[i] * ramps.rising[i]), 1e-7);
        EXPECT_NEAR(after[2 * i], 0.8 * fresh[480 + i], 1e-7);
    }
}

TEST(SpeakerModel, AGainThatLeavesNoCurveFailsOnceAndKeepsTheOldOne)
{
    // -10^8 dB or so makes the low shelf's leading coefficient 0.
    SpeakerModel model(1, centreMask, 480, 48000, plainTables());
    RecordFields fields = surroundRecord();
    const std::vector<float> in(480, 0.25f);
    model.process(fields, in.data(), 480);
    fields.blockSequence = 2;
    fields.EQBand.fill(-2000000000);
    EXPECT_EQ(failureText<Failure>([&] { model.process(fields, in.data(), 480); }), "ippStsDivByZeroErr");
    EXPECT_NEAR(model.process(unchanged, in.data(), 480)[0], 0.2, 1e-7);
}

TEST(SpeakerModel, ADeliveredSetServesFromTheNextBlockOn)
{
    SpeakerModel model(2, 0x3, 480, 48000, plainTables());
    std::vector<float> set;
    for (const double gain : {0.1, 0.2, 0.3, 0.4}) { // left of both channels, right of both
        const auto packed = packedFromTaps({gain});
        set.insert(set.end(), packed.begin(), packed.end());
    }
    RecordFields fields = surroundRecord();
    fields.hrtfId = 7;
    fields.hrtfLength = 1024;
    fields.hrtfChannels = 2;
    fields.hrtfData = set.data();
    std::vector<float> in(960, 0.0f);
    in[2 * 20] = 1.0f;
    in[2 * 30 + 1] = 1.0f;
    Signal y = model.process(fields, in.data(), 480);
    EXPECT_NEAR(y[2 * 20], 0.08, 1e-7);
    EXPECT_NEAR(y[2 * 30], 0.16, 1e-7);
    EXPECT_NEAR(y[2 * 20 + 1], 0.24, 1e-7);
    EXPECT_NEAR(y[2 * 30 + 1], 0.32, 1e-7);

    // The same id with other data changes nothing; an id of 0 is a change like any other.
    std::fill(set.begin(), set.end(), 0.0f);
    fields.blockSequence = 2;
    y = model.process(fields, in.data(), 480);
    EXPECT_NEAR(y[2 * 20], 0.08, 1e-7);
    fields.blockSequence = 3;
    fields.hrtfId = 0;
    y = model.process(fields, in.data(), 480);
    EXPECT_NEAR(y[2 * 20], 0.0, 1e-12);
}

TEST(SpeakerModel, ARefusedSetIsRefusedAgainAtEveryBlockUntilTheNextRecord)
{
    SpeakerModel model(2, 0x3, 480, 48000, plainTables());
    const std::vector<float> in(960, 0.1f);
    RecordFields fields = surroundRecord();
    model.process(fields, in.data(), 480);
    fields.blockSequence = 2;
    fields.Settings = 0;
    fields.hrtfId = 7;
    fields.hrtfLength = 1024;
    fields.hrtfChannels = 8;
    EXPECT_EQ(failureText<Failure>([&] { model.process(fields, in.data(), 480); }),
              "quorel::DirectPath<2,float>::set: channels must match");
    EXPECT_EQ(failureText<Failure>([&] { model.process(unchanged, in.data(), 480); }),
              "quorel::DirectPath<2,float>::set: channels must match");
    EXPECT_TRUE(model.surroundWasOn());
    fields.hrtfChannels = 2;
    fields.hrtfLength = 512;
    // The refused record's number was never taken over, so it may come again.
    EXPECT_EQ(failureText<Failure>([&] { model.process(fields, in.data(), 480); }),
              "quorel::DirectPath<2,float>::set: size must match");
    fields.hrtfLength = 1024;
    EXPECT_EQ(failureText<Failure>([&] { model.process(fields, in.data(), 480); }), "ippStsNullPtrErr");
    fields.hrtfId = 0;
    EXPECT_EQ(failureText<Failure>([&] { model.process(fields, in.data(), 480); }), "");
    EXPECT_FALSE(model.surroundWasOn());
}

TEST(SpeakerModel, ARecordWithTheLastNumberIsTakenOverWithoutATranslation)
{
    SpeakerModel model(1, centreMask, 480, 48000, plainTables());
    const std::vector<float> in(480, 0.1f);
    RecordFields fields = surroundRecord();
    fields.Settings = 0;
    // The number that stands for "none yet".
    fields.blockSequence = 0xFFFFFFFF;
    model.process(fields, in.data(), 480);
    EXPECT_TRUE(model.surroundWasOn());
    fields.blockSequence = 5;
    model.process(fields, in.data(), 480);
    EXPECT_FALSE(model.surroundWasOn());
    fields.Settings = 1;
    model.process(fields, in.data(), 480);
    EXPECT_FALSE(model.surroundWasOn());
}

TEST(SpeakerModel, BlockLengthsHaveTheirLimitsByStage)
{
    const std::vector<float> in(8 * 2000, 0.1f);
    SpeakerModel model(8, surroundMask, 850, 48000, plainTables());
    RecordFields fields = surroundRecord();
    EXPECT_EQ(failureText<Failure>([&] { model.process(fields, in.data(), 848); }), "");
    EXPECT_EQ(failureText<Failure>([&] { model.process(unchanged, in.data(), 849); }), "PassThrough: out buffer too small");
    fields.Settings = 0;
    fields.blockSequence = 2;
    model.process(fields, in.data(), 480);
    EXPECT_EQ(failureText<Failure>([&] { model.process(unchanged, in.data(), 864); }), "");
    EXPECT_EQ(failureText<Failure>([&] { model.process(unchanged, in.data(), 865); }), "ScaleMixer: out buffer too small");
    EXPECT_EQ(failureText<Failure>([&] { model.process(unchanged, in.data(), 480, 479); }), "PassThrough: out buffer too small");

    SpeakerModel small(8, surroundMask, 470, 48000, plainTables());
    fields = surroundRecord();
    EXPECT_EQ(failureText<Failure>([&] { small.process(fields, in.data(), 481); }), "Compressor: out buffer too small");
    EXPECT_EQ(failureText<Failure>([&] { small.process(unchanged, in.data(), 480); }), "DelayLine: internal buffer too small");
    EXPECT_EQ(failureText<Failure>([&] { small.process(unchanged, in.data(), 48); }), "ippStsSizeErr");
    EXPECT_EQ(failureText<Failure>([&] { small.process(unchanged, in.data(), 64); }), "ippStsSizeErr");
    EXPECT_EQ(failureText<Failure>([&] { small.process(unchanged, in.data(), 470); }), "");
}

TEST(SpeakerModel, AFailedBlocksFramesAreInTheConvolversHistory)
{
    SpeakerTables tables = plainTables();
    tables.left[2] = Signal(11, 0.0);
    tables.left[2][10] = 1.0;
    SpeakerModel model(1, centreMask, 480, 48000, tables);
    RecordFields fields = surroundRecord();
    fields.Reverb = 1;
    EXPECT_EQ(failureText<Failure>([&] { model.process(fields, impulse(48, 47, 0.5f).data(), 48); }), "ippStsSizeErr");
    EXPECT_TRUE(model.reverbPending());
    const Signal y = model.process(unchanged, std::vector<float>(480).data(), 480);
    EXPECT_NEAR(y[2 * 9], 0.4, 1e-7);
}

TEST(SpeakerModel, AnEmptyBlockFailsInTheRoomOrPassesAndLeavesFadesPending)
{
    SpeakerModel model(1, centreMask, 480, 48000, plainTables());
    RecordFields fields = surroundRecord();
    EXPECT_EQ(failureText<Failure>([&] { model.process(fields, nullptr, 0); }), "Delay: in buffer empty");
    const std::vector<float> in(480, 0.1f);
    model.process(unchanged, in.data(), 480);
    fields.blockSequence = 2;
    fields.Settings = 0;
    fields.EQBand[4] = 100;
    EXPECT_TRUE(model.process(fields, nullptr, 0).empty());
    EXPECT_TRUE(model.surroundWasOn());
    EXPECT_TRUE(model.equalizerPending());
}

TEST(SpeakerModel, AtAnotherRateABlockIsCopied)
{
    SpeakerModel model(2, 0x3, 480, 44100, plainTables());
    const std::vector<float> in{0.1f, -0.2f, 3.0f, 4.0f};
    EXPECT_EQ(model.process(surroundRecord(), in.data(), 2), Signal(in.begin(), in.end()));
    EXPECT_EQ(failureText<Failure>([&] { model.process(unchanged, in.data(), 2, 1); }), "PassThrough: out buffer too small");
    EXPECT_EQ(failureText<Failure>([&] { model.process(unchanged, in.data(), 0); }), "ippStsSizeErr");
}

TEST(SpeakerModel, AMaskMustNameAsManySpeakersAsThereAreChannels)
{
    const std::string text = "quorel::SpeakerPath<2,float>::SpeakerPath: number of active channels in channelMask "
                             "does not match CH_IN";
    EXPECT_EQ(failureText<Failure>([] { SpeakerModel(2, 0x1, 480, 48000, plainTables()); }), text);
    EXPECT_EQ(failureText<Failure>([] { SpeakerModel(2, 0xFF, 480, 48000, plainTables()); }), text);
    EXPECT_EQ(failureText<Failure>([] { SpeakerModel(2, 0x43, 480, 48000, plainTables()); }), "");
    EXPECT_EQ(failureText<Failure>([] { SpeakerModel(2, 0x3, 1073, 48000, plainTables()); }),
              "DelayLine: Length of delayLineBuffer is too short");
    EXPECT_EQ(failureText<Failure>([] { SpeakerModel(2, 0x3, 1072, 48000, plainTables()); }), "");
}

} // namespace
} // namespace quorel::model
