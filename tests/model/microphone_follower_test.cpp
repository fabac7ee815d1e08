// SPDX-License-Identifier: MIT
// The follower beside a stand-in for a path: the model itself, rounded to floats, with some of
// its comparisons turned.

#include "tests/model/microphone_follower.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/model/agreement.h"
#include "tests/model/session.h"
#include "tests/model/synthetic_windows.h"

namespace quorel::model {
namespace {

struct Outcome {
    double followed;   // signal to error in dB
    double unfollowed; // of the model alone
    int turned;        // comparisons that the path answered the other way
};

// A path that turns every comparison within `margin` from frame 400 on, `most` at most.
Outcome run(double margin, int most, std::uint32_t seed)
{
    const MicrophoneWindows windows = syntheticWindows(16000);
    SessionOptions options;
    options.seed = seed;
    options.channels = 1;
    options.sampleRate = 16000;
    options.hop = 80;
    options.maxBlock = 320;
    options.curves = false;
    options.loudest = 1.0f;
    options.bed = 0.01f;
    Session session(options);

    MicrophoneFollower follower(1, 320, 16000, windows);
    MicrophoneModel alone(1, 320, 16000, windows);
    MicrophoneModel path(1, 320, 16000, windows);
    Outcome outcome{};
    path.referee = {margin, [&](const Decision& decision) {
                        if (decision.frame < 400 || outcome.turned == most)
                            return decision.holds;
                        ++outcome.turned;
                        return !decision.holds;
                    }};

    Agreement followed(1600);
    Agreement unfollowed(1600);
    for (std::size_t frames = 0; frames < 16000 * 8; frames += session.frames()) {
        session.next();
        RecordFields fields = session.fields();
        fields.MicNR = 1;
        const Signal y = path.process(fields, session.samples(), session.frames());
        const std::vector<float> result(y.begin(), y.end());
        const std::vector<float> levels(path.levels().begin(), path.levels().end());
        const Signal f = follower.process(fields, session.samples(), session.frames(), result.data(), levels.data());
        followed.add(f, result.data(), 1, 1);
        unfollowed.add(alone.process(fields, session.samples(), session.frames()), result.data(), 1, 1);
    }
    outcome.followed = followed.decibels();
    outcome.unfollowed = unfollowed.decibels();
    return outcome;
}

TEST(MicrophoneFollower, FollowsAPathThatAnswersCloseComparisonsTheOtherWay)
{
    const Outcome outcome = run(9e-7, 1000, 12);
    EXPECT_GT(outcome.turned, 0);
    EXPECT_GT(outcome.followed, 110.0);
    EXPECT_LT(outcome.unfollowed, 100.0);
}

TEST(MicrophoneFollower, IsTheModelForAPathThatAnswersAsTheModelDoes)
{
    const Outcome outcome = run(1e-6, 0, 12);
    EXPECT_GT(outcome.followed, 140.0); // the rounding to floats is near 150 dB
    EXPECT_EQ(outcome.followed, outcome.unfollowed);
}

TEST(MicrophoneFollower, DoesNotFollowAPathThatAnswersClearComparisonsWrongly)
{
    const Outcome outcome = run(1e-2, 1000, 12);
    EXPECT_GT(outcome.turned, 10);
    EXPECT_LT(outcome.followed, 80.0);
}

TEST(MicrophoneFollower, PassesOnWhatTheModelRefusesAndGoesOn)
{
    MicrophoneFollower follower(1, 320, 16000, syntheticWindows(16000));
    const std::vector<float> in(400, 0.5f);
    const std::vector<float> levels(9, -60.0f);
    EXPECT_THROW(follower.process({}, in.data(), 321, nullptr, nullptr), Failure);
    EXPECT_EQ(follower.process({}, in.data(), 160, in.data(), levels.data()), Signal(160, 0.5));
}

} // namespace
} // namespace quorel::model
