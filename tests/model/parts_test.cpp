// SPDX-License-Identifier: MIT
#include "tests/model/parts.h"

#include "tests/model/speaker_model_cases.h"
#include "tests/support/failure.h"

#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <limits>
#include <numbers>

namespace quorel::model {
namespace {

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

TEST(ModelParts, ALimiterAttacksIn1MillisecondAndReleasesIn400)
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

} // namespace
} // namespace quorel::model
