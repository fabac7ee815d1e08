// SPDX-License-Identifier: MIT
// The trackers of the capture model, its gain law and its referee.
#include "tests/model/microphone_model.h"

#include "tests/model/microphone_model_cases.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>

namespace quorel::model {
namespace {

// ---------------------------------------------------------------------------
// Trackers

TEST(MicrophoneModelFloor, InSilenceBandZeroGrowsToInfinityAndTheOthersReachTheirLimit)
{
    FloorTracker tracker(0);
    const std::vector<float> silence(16, 0.0f);
    std::vector<float> bottom = tracker.process(silence, noDoubt, nobody);
    EXPECT_NEAR(bottom[0], 7.9870224e-06 * 9.6 - 1.1920929e-7, 1e-11);
    EXPECT_NEAR(bottom[1], 1.57356262e-05 * 0.96 - 1.1920929e-7, 1e-11);
    EXPECT_EQ(bottom[4], 6.07967377e-06f); // its initial floor lies below the limit
    EXPECT_EQ(bottom[15], 1.40666962e-05f);
    for (int frame = 1; frame < 50; ++frame)
        bottom = tracker.process(silence, noDoubt, nobody);
    EXPECT_EQ(bottom[0], std::numeric_limits<float>::infinity());
    const float limits[] = {7.74860382e-06f, 5.60283661e-06f, 5.00679016e-06f};
    for (std::size_t b = 1; b <= 3; ++b)
        EXPECT_EQ(bottom[b], limits[b - 1]);
}

TEST(MicrophoneModelFloor, AnOnsetFreezesTheFloorUntilItHasLastedAndThenTheFloorClimbs)
{
    FloorTracker tracker(0);
    const std::vector<float> loud(16, 1.0f);
    // 1 - 0.9394^n passes 0.7 between n = 19 and n = 20.
    std::vector<float> bottom;
    for (int frame = 1; frame <= 19; ++frame)
        bottom = tracker.process(loud, noDoubt, nobody);
    EXPECT_EQ(bottom[5], 2.62260437e-06f);
    EXPECT_EQ(bottom[0], 7.9870224e-06f); // an onset before band 0 got to grow
    double expected = 2.62260437e-06;
    for (int frame = 20; frame <= 119; ++frame) {
        bottom = tracker.process(loud, noDoubt, nobody);
        // Where the step is smaller than epsilon, the floor rises by epsilon.
        expected += std::max(expected * 0.00499999523, 1.1920929e-7);
        // 100 steps of single precision, each good to half a last place or so of 6e-8.
        EXPECT_NEAR(bottom[5], expected, 1e-5 * expected);
    }
}

TEST(MicrophoneModelFloor, TheArmedFactorComesIntoUseWithASteadyFrame)
{
    // Follow band 15, which climbs by a tenth per frame from a magnitude of 1: it reaches the
    // smoothed value 1 after ln(1 / 2.4e-7) / ln 1.1 = 160 frames or so, then swings about it.
    FloorTracker tracker(0);
    const std::vector<float> loud(16, 1.0f);
    float last = 0.0f;
    std::vector<float> ratios;
    for (int frame = 0; frame < 400; ++frame) {
        const float now = tracker.process(loud, noDoubt, nobody)[15];
        if (frame > 300)
            ratios.push_back(now / last);
        last = now;
    }
    // The onset at the start armed the fast fall, the first steady frame took it into use; the
    // first fall armed the slow one, and the next rise took that into use.
    for (const float ratio : ratios)
        EXPECT_TRUE(std::fabs(ratio - 0.97f) < 1e-5f || std::fabs(ratio - 1.1f) < 1e-5f) << ratio;
}

TEST(MicrophoneModelLevel, AStepIsHalvedUntilTheEstimateIsNearAndThenHeld)
{
    LevelTracker tracker(Decision::Tracker::Signal, 0, 1, signalRates());
    const double expected[] = {0.5, 0.75, 0.875, 0.9375};
    for (const double level : expected)
        EXPECT_EQ(tracker.process({1.0f}, noDoubt, nobody)[0], level);
    // 0.9 is below 0.9375: held, creeping by 7.6e-6 of the distance.
    EXPECT_NEAR(tracker.process({1.0f}, noDoubt, nobody)[0], 0.9375 + 7.62939453e-06 * 0.0625, 6e-8);
}

TEST(MicrophoneModelLevel, ADropIsFollowedWhenTheEnvelopeHasPassedTheLowerRatio)
{
    LevelTracker tracker(Decision::Tracker::Signal, 0, 1, signalRates());
    double estimate = 0.0;
    for (int frame = 0; frame < 4; ++frame)
        estimate = tracker.process({1.0f}, noDoubt, nobody)[0];
    // The envelope falls by a quarter of its distance to 0.5: 0.875, 0.78125, 0.7109, 0.658,
    // 0.6187. 0.7 * 0.9375 = 0.65625 is passed by the fifth.
    for (int frame = 0; frame < 4; ++frame)
        EXPECT_NEAR(tracker.process({0.5f}, noDoubt, nobody)[0], estimate, 1e-5);
    const double envelope = 0.5 + 0.5 * std::pow(0.75, 5);
    EXPECT_NEAR(tracker.process({0.5f}, noDoubt, nobody)[0], estimate + 0.125 * (envelope - estimate), 1e-5);
}

TEST(MicrophoneModelLevel, SilenceEndsNearTheFloorAndNeverAtZero)
{
    LevelTracker tracker(Decision::Tracker::Signal, 0, 1, signalRates());
    float level = 0.0f;
    for (int frame = 0; frame < 100; ++frame) {
        level = tracker.process({0.0f}, noDoubt, nobody)[0];
        EXPECT_GT(level, 0.0f);
    }
    EXPECT_NEAR(level, 0.9375 * 1.1920929e-06, 1e-9);
}

TEST(MicrophoneModelLevel, TheMeterAt48000TakesItsRatesCutToOne)
{
    LevelTracker tracker(Decision::Tracker::Level, 0, 1, meterRates(48000));
    EXPECT_EQ(tracker.process({0.5f}, noDoubt, nobody)[0], 0.5f);
    EXPECT_EQ(tracker.process({1.0f}, noDoubt, nobody)[0], 1.0f);
    // Down: the envelope falls by 0.75 of the way, the estimate by 0.375.
    EXPECT_NEAR(tracker.process({0.2f}, noDoubt, nobody)[0], 1.0 + 0.375 * (0.4 - 1.0), 1e-6);
}

TEST(MicrophoneModelGain, TheTargetIsClampedBetweenZeroAndTenDecibels)
{
    EXPECT_EQ(suppressionTarget(1e-5, 1e-5 / 0.14), 0.0);
    EXPECT_NEAR(suppressionTarget(1e-5, 1e-5 / 0.25), 0.5 - 0.3 + 1e-5, 1e-7);
    EXPECT_EQ(suppressionTarget(1e-5, 1e-5 / 0.5), 0.683772206f);
    EXPECT_EQ(suppressionTarget(std::numeric_limits<double>::infinity(), 1.0), 0.683772206f);
    EXPECT_NEAR(dB(1.0 - suppressionTarget(1.0, 0.0)), -10.0, 1e-6);
}

TEST(MicrophoneModelReferee, IsAskedAboutCloseComparisonsAlone)
{
    LevelTracker tracker(Decision::Tracker::Signal, 3, 1, signalRates());
    int asked = 0;
    const Referee turns{1e-6, [&](const Decision& decision) {
                            ++asked;
                            EXPECT_EQ(decision.channel, 3u);
                            EXPECT_EQ(decision.kind, Decision::Kind::ClearlyAbove);
                            return !decision.holds;
                        }};
    for (int frame = 0; frame < 4; ++frame)
        tracker.process({1.0f}, noDoubt, turns);
    EXPECT_EQ(asked, 0);

    // The estimate stands at 0.9375. An envelope of 0.9375 / 0.9 is within a rounding of being
    // clearly above it: one answer holds the estimate, the other halves the distance.
    const auto close = static_cast<float>(0.9375 / 0.9);
    LevelTracker turned = tracker;
    const double halved = 0.9375 + 0.5 * (close - 0.9375);
    const double own = tracker.process({close}, noDoubt, nobody)[0];
    const double other = turned.process({close}, noDoubt, turns)[0];
    EXPECT_EQ(asked, 1);
    EXPECT_NEAR(std::min(own, other), 0.9375, 1e-6);
    EXPECT_NEAR(std::max(own, other), halved, 1e-6);
}

TEST(MicrophoneModelReferee, ABandBesideALoudSpectrumIsInMoreDoubt)
{
    LevelTracker tracker(Decision::Tracker::Signal, 0, 1, signalRates());
    int asked = 0;
    const Referee counts{1e-6, [&](const Decision& decision) {
                             ++asked;
                             return decision.holds;
                         }};
    tracker.process({1e-4f}, {1.0}, counts);
    EXPECT_EQ(asked, 0); // 0.9e-4 against 0
    tracker.process({1e-4f}, {100.0}, counts);
    EXPECT_EQ(asked, 2); // 0.9e-4 against 0.5e-4, and 0.35e-4 against 1e-4
}

} // namespace
} // namespace quorel::model
