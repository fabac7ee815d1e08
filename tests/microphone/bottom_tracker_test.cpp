// SPDX-License-Identifier: MIT
#include "microphone/bottom_tracker.h"

#include "microphone/microphone_tables.h"
#include "tests/microphone/cases.h"
#include "tests/microphone/tracker_stream.h"

#include <cmath>
#include <limits>
#include <random>

namespace quorel {
namespace {

constexpr float infinity = std::numeric_limits<float>::infinity();
constexpr float notANumber = std::numeric_limits<float>::quiet_NaN();

// The floors of all bands after a further frame with the same magnitude in each.
template <std::size_t N>
std::vector<float> floors(BottomTracker<N>& tracker, float magnitude)
{
    Buffer<float, N> out(gainBandCount);
    tracker.process(constantBands<N>(gainBandCount, magnitude), out);
    return {out.channel(N - 1), out.channel(N - 1) + gainBandCount};
}

TEST(BottomTracker, SilenceBringsBands1To15ToTheirLowerLimitAndKeepsThemThere)
{
    forChannelCounts([]<std::size_t N>() {
        const BottomTrackerTables tables = noiseTrackerTables();
        BottomTracker<N> tracker(tables);
        std::vector<float> floor;
        // The longest way: 1.776e-5 down to 5.6e-6 by 4 percent a frame takes 29 frames.
        for (int frame = 0; frame < 40; ++frame)
            floor = floors(tracker, 0.0F);
        for (std::size_t b = 1; b < gainBandCount; ++b)
            EXPECT_EQ(floor[b], tables.lowerLimit[b]) << "band " << b;
        EXPECT_EQ(floors(tracker, 0.0F)[7], tables.lowerLimit[7]);
    });
}

TEST(BottomTracker, AFloorThatStartsBelowItsLimitIsLiftedInTheFirstSilentFrame)
{
    const BottomTrackerTables tables = noiseTrackerTables();
    BottomTracker<1> tracker(tables);
    const std::vector<float> floor = floors(tracker, 0.0F);
    for (std::size_t b = 4; b < gainBandCount; ++b) {
        ASSERT_LT(tables.initialFloor[b], tables.lowerLimit[b]);
        EXPECT_EQ(floor[b], tables.lowerLimit[b]);
    }
}

TEST(BottomTracker, AFloorOfExactlyTheSmoothedValueDoesNotFall)
{
    // A smoothing of 1 makes the smoothed value the magnitude itself; 1 > 0.7 is steady, so the floor rises by half.
    BottomTrackerTables tables{{1.0F}, {0.0F}, {0.5F}, {0.9F}, {0.9F}, {0.7F}, {1.0F}, 0.0F};
    BottomTracker<1> tracker(tables);
    Buffer<float, 1> out(1);
    tracker.process(constantBands<1>(1, 1.0F), out);
    EXPECT_EQ(out.channel(0)[0], 1.5F);
}

TEST(BottomTracker, OfASteadyToneTheFloorCreepsUpToTheToneAndStaysAStepAround)
{
    forChannelCounts([]<std::size_t N>() {
        const BottomTrackerTables tables = noiseTrackerTables();
        BottomTracker<N> tracker(tables);
        std::vector<float> floor;
        // From 1e-5 to 0.01 by half a percent a frame takes 1400 frames.
        for (int frame = 0; frame < 2500; ++frame)
            floor = floors(tracker, 0.01F);
        for (int frame = 0; frame < 200; ++frame) {
            floor = floors(tracker, 0.01F);
            for (std::size_t b = 1; b < gainBandCount; ++b) {
                // One fall with the slower of the two factors and epsilon below, one step above; rounding is far smaller.
                EXPECT_LE(floor[b], 0.01F * (1.0F + tables.riseStep[b]) * 1.00001F) << "band " << b;
                EXPECT_GE(floor[b], 0.01F * 0.96F - 2e-7F) << "band " << b;
            }
        }
    });
}

TEST(BottomTracker, ABurstMovesTheFloorOnceItsSmoothedValueIsPastTheOnset)
{
    BottomTracker<1> tracker(noiseTrackerTables());
    for (int frame = 0; frame < 3000; ++frame)
        static_cast<void>(floors(tracker, 0.001F));
    std::vector<float> before = floors(tracker, 0.001F);
    while (before[3] > 0.001F) // from below the tone, so that no falling is due
        before = floors(tracker, 0.001F);
    double smoothed = 0.001;
    int held = 0;
    for (;; ++held) {
        smoothed += 0.0606000423 * (0.1 - smoothed);
        const float floor = floors(tracker, 0.1F)[3];
        if (smoothed > 0.7 * 0.1) {
            EXPECT_GT(floor, before[3]);
            break;
        }
        EXPECT_EQ(floor, before[3]) << "frame " << held;
    }
    EXPECT_GT(held, 15); // 80 ms
}

TEST(BottomTracker, TheFloorOfBand0InSilenceGrowsByItsFactorToInfinity)
{
    // Required: the fast factor of band 0 is above 1, so that its falling floor climbs to infinity within 50 frames.
    forChannelCounts([]<std::size_t N>() {
        BottomTracker<N> tracker(noiseTrackerTables());
        double expected = 7.9870224e-06;
        int frame = 0;
        for (; frame < 50; ++frame) {
            expected = expected * 9.60000038 - 1.1920929e-7;
            const float floor = floors(tracker, 0.0F)[0];
            if (floor == infinity)
                break;
            EXPECT_NEAR(floor / expected, 1.0, 50 * 1.2e-7) << frame; // two roundings a frame
        }
        EXPECT_LT(frame, 50);
        EXPECT_GT(expected, double{std::numeric_limits<float>::max()});
        EXPECT_EQ(floors(tracker, 0.5F)[0], infinity);
        EXPECT_EQ(floors(tracker, 0.0F)[0], infinity);
    });
}

TEST(BottomTracker, AnOnsetArmsTheFastFallAndAFallingFrameTheSlowOne)
{
    // By hand, with a smoothing of a half, limits of 0 and no epsilon. In use: fast 0.5; armed: slow 0.75.
    //   p    x      T before  branch                      T after
    //   2    1      1         onset, 1 <= 0.7 * 2         1         arms fast
    //   1    1      1         steady, x > 0.7             1.25      fast into use
    //   0    0.5    1.25      falls by 0.5                0.625     arms slow
    //   0    0.25   0.625     falls by 0.5                0.3125    arms slow
    //   0.5  0.375  0.3125    steady, 0.375 > 0.35        0.390625  slow into use
    //   0    0.1875 0.390625  falls by 0.75               0.29296875
    BottomTracker<1> tracker({{0.5F}, {0.0F}, {0.25F}, {0.75F}, {0.5F}, {0.7F}, {1.0F}, 0.0F});
    Buffer<float, 1> out(1);
    const std::vector<std::pair<float, float>> frames = {{2.0F, 1.0F},    {1.0F, 1.25F},     {0.0F, 0.625F},
                                                         {0.0F, 0.3125F}, {0.5F, 0.390625F}, {0.0F, 0.29296875F}};
    for (const auto& [magnitude, expected] : frames) {
        tracker.process(constantBands<1>(1, magnitude), out);
        EXPECT_EQ(out.channel(0)[0], expected);
    }
}

TEST(BottomTracker, StartsWithTheFastFallInUseAndTheSlowOneArmed)
{
    // A smoothing of 1 makes the smoothed value the magnitude itself; limits of 0 and no epsilon.
    const BottomTrackerTables tables{{1.0F}, {0.0F}, {0.25F}, {0.75F}, {0.5F}, {0.7F}, {1.0F}, 0.0F};
    Buffer<float, 1> out(1);
    BottomTracker<1> falling(tables);
    falling.process(constantBands<1>(1, 0.0F), out);
    EXPECT_EQ(out.channel(0)[0], 0.5F);

    BottomTracker<1> steady(tables); // a steady frame puts the armed factor into use
    steady.process(constantBands<1>(1, 2.0F), out);
    EXPECT_EQ(out.channel(0)[0], 1.25F);
    steady.process(constantBands<1>(1, 0.0F), out);
    EXPECT_EQ(out.channel(0)[0], 1.25F * 0.75F);
}

TEST(BottomTracker, ChannelsAndCutsOfTheStreamDoNotMatter)
{
    expectChannelsAndCutsNotToMatter<BottomTracker>(noiseTrackerTables(), 1e-4F);
}

TEST(BottomTracker, ARisingFloorRisesByEpsilonAtLeastEvenFromZero)
{
    BottomTracker<1> tracker({{1.0F}, {0.0F}, {0.25F}, {0.75F}, {0.5F}, {0.7F}, {0.0F}, 0.125F});
    Buffer<float, 1> out(1);
    tracker.process(constantBands<1>(1, 1.0F), out);
    EXPECT_EQ(out.channel(0)[0], 0.125F);
    tracker.process(constantBands<1>(1, 1.0F), out);
    EXPECT_EQ(out.channel(0)[0], 0.25F);
}

TEST(BottomTracker, NoFrameRunsNothingAndEmptiesTheOutput)
{
    forChannelCounts([]<std::size_t N>() {
        BottomTracker<N> tracker(noiseTrackerTables());
        SpectrumBuffer<N> in(gainBandCount);
        Buffer<float, N> out(gainBandCount);
        out.channel(0)[0] = 7.0F;
        out.setSize(3);
        tracker.process(in, out);
        EXPECT_EQ(out.size(), 0U);
        EXPECT_EQ(out.channel(0)[0], 7.0F);
    });
}

TEST(BottomTracker, FramesBeyondTheOutputsCapacityFail)
{
    forChannelCounts([]<std::size_t N>() {
        BottomTracker<N> tracker(noiseTrackerTables());
        const auto in = constantBands<N>(gainBandCount, 0.5F, 2);
        Buffer<float, N> out(gainBandCount);
        EXPECT_EQ(failureText<std::invalid_argument>([&] { tracker.process(in, out); }), "BottomTracker: out buffer too small");
    });
}

// Written from the rules, in double precision. The floor is taken over from the tracker after every frame, so that a decision
// which rounding has turned cannot spread: within `doubt` of a threshold the branch is the one whose floor was handed out.
TEST(BottomTracker, EveryFrameFollowsTheRulesInDoublePrecision)
{
    constexpr double doubt = 1e-5;
    constexpr double tolerance = 5e-7; // two roundings of 2^-24 of the floor and its tables
    const BottomTrackerTables tables = noiseTrackerTables();
    forChannelCounts([&]<std::size_t N>() {
        constexpr std::size_t bands = gainBandCount;
        struct Band {
            double smoothed = 0.0, floor, factor, armed;
        };
        std::vector<Band> state(N * bands);
        for (std::size_t k = 0; k < state.size(); ++k)
            state[k] = {0.0, tables.initialFloor[k % bands], tables.fastFall[k % bands], tables.slowFall[k % bands]};
        BottomTracker<N> tracker(tables);
        std::mt19937 random(5);
        std::normal_distribution<float> normal;
        SpectrumBuffer<N> in(bands);
        Buffer<float, N> out(bands);
        in.setSize(bands);
        float loudness = 1e-3F;
        int fell = 0, rose = 0, stayed = 0;
        for (int frame = 0; frame < 3000; ++frame) {
            if (frame % 100 == 0)
                loudness = std::pow(10.0F, -1.0F - 4.0F * std::uniform_real_distribution<float>()(random));
            for (std::size_t c = 0; c < N; ++c)
                for (std::size_t b = 0; b < bands; ++b)
                    in.channel(c)[b] = {loudness * normal(random), loudness * normal(random)};
            tracker.process(in, out);
            for (std::size_t k = 0; k < N * bands; ++k) {
                const std::size_t b = k % bands;
                const double heard = out.channel(k / bands)[b];
                const double p = std::abs(std::complex<double>(in.channel(k / bands)[b]));
                Band& s = state[k];
                if (std::isinf(heard)) { // band 0
                    ASSERT_EQ(b, 0U);
                    continue;
                }
                s.smoothed += double{tables.smoothing[b]} * (p - s.smoothed);
                const double down = std::max(s.floor * s.factor - double{tables.epsilon}, double{tables.lowerLimit[b]});
                const double up = s.floor + std::max(s.floor * double{tables.riseStep[b]}, double{tables.epsilon});
                const double limit = double{tables.onsetRatio[b]} * p;
                const auto near = [&](double value) { return std::abs(heard - value) <= tolerance * value; };
                bool falls = s.floor > s.smoothed;
                bool steady = s.smoothed > limit;
                if (std::abs(s.floor - s.smoothed) < doubt * s.floor)
                    falls = near(down);
                if (std::abs(limit - s.smoothed) < doubt * limit)
                    steady = near(up);
                const double expected = falls ? down : steady ? up : s.floor;
                ASSERT_TRUE(near(expected)) << "frame " << frame << " band " << b << ": " << heard << ", not " << expected;
                if (falls)
                    s.armed = tables.slowFall[b], ++fell;
                else if (steady)
                    s.factor = s.armed, ++rose;
                else
                    s.armed = tables.fastFall[b], ++stayed;
                s.floor = heard;
            }
        }
        EXPECT_GT(fell, 1000);
        EXPECT_GT(rose, 1000);
        EXPECT_GT(stayed, 1000);
    });
}

TEST(BottomTracker, AFrameThatIsNotANumberFreezesTheFloorForGood)
{
    // Required: the smoothed magnitude never leaves not-a-number, and every comparison with it ends as an onset.
    for (const float bad : {notANumber, infinity}) {
        BottomTracker<1> tracker(noiseTrackerTables());
        for (int frame = 0; frame < 100; ++frame)
            static_cast<void>(floors(tracker, 0.001F));
        const std::vector<float> before = floors(tracker, 0.001F);
        EXPECT_EQ(floors(tracker, bad), before);
        for (int frame = 0; frame < 100; ++frame)
            EXPECT_EQ(floors(tracker, 0.5F), before);
    }
}

} // namespace
} // namespace quorel
