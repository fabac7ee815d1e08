// SPDX-License-Identifier: MIT
#include "speaker/speaker_path.h"

#include "tests/speaker/speaker_path_rig.h"

#include "speaker/compressor_tables.h"
#include "speaker/hrtf_tables.h"
#include "speaker/speaker_tables.h"
#include "tests/support/noise.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numbers>
#include <vector>

namespace quorel {
namespace {

// --- Block lengths ---------------------------------------------------------------------------------------------------

TEST(SpeakerPath, ABlockOf848FramesPassesAndOneOf849FailsInTheConvolver)
{
    Rig rig(8, sevenPointOne, 900);
    settle(rig, 1);
    EXPECT_EQ(rig.refusal(848), "accepted");
    EXPECT_EQ(rig.refusal(849), "PassThrough: out buffer too small");
}

TEST(SpeakerPath, ABlockOf849FramesPassesWithTheSurroundEffectOffForTwoBlocks)
{
    Rig rig(8, sevenPointOne, 900);
    rig.settings().Settings = 0;
    rig.deliver();
    EXPECT_EQ(rig.refusal(849), "PassThrough: out buffer too small") << "the first block still fades out of the effect";
    rig.silence(480);
    EXPECT_EQ(rig.refusal(849), "accepted");
    EXPECT_EQ(rig.refusal(912), "accepted") << "the capacity is rounded up to 16";
    EXPECT_EQ(rig.refusal(913), "ScaleMixer: out buffer too small");
}

TEST(SpeakerPath, ABlockBeyondMaxFramesFailsInTheDirectSignal)
{
    Rig rig(8, sevenPointOne, 480);
    EXPECT_EQ(rig.refusal(481), "Compressor: out buffer too small");
}

TEST(SpeakerPath, ABlockBeyondTheUnroundedMaxFramesFailsInTheRoom)
{
    Rig rig(8, sevenPointOne, 470); // a capacity of 480
    EXPECT_EQ(rig.refusal(471), "DelayLine: internal buffer too small");
}

TEST(SpeakerPath, AnEmptyBlockFailsWithTheRoomRunningAndEndsEmptyWithout)
{
    Rig rig;
    EXPECT_EQ(rig.refusal(0), "Delay: in buffer empty") << "the first block always runs the room";
    settle(rig, 1, 100);
    EXPECT_EQ(rig.refusal(0), "Delay: in buffer empty");
    settle(rig, 1, 0);
    EXPECT_EQ(rig.refusal(0), "accepted");
    settle(rig, 0, 100);
    EXPECT_EQ(rig.refusal(0), "accepted");
}

TEST(SpeakerPath, AnEmptyBlockLeavesAPendingChangeToTheNextBlock)
{
    Rig rig;
    Rig twin;
    for (Rig* each : {&rig, &twin})
        settle(*each, 1);
    for (Rig* each : {&rig, &twin}) {
        each->settings().EQBand[4] = 100;
        each->settings().Settings = 0;
        each->deliver();
    }
    rig.silence(0);
    const auto in = noise(8 * 480, 5, 0.05F);
    EXPECT_EQ(rig.process(in), twin.process(in));
}

TEST(SpeakerPath, BlocksOf48And64FramesFailWhileTheRoomRuns)
{
    // Of the 7.1 speakers back left is delayed by 64 frames, all others by 48.
    Rig rig;
    settle(rig, 1, 100);
    EXPECT_EQ(rig.refusal(48), "ippStsSizeErr");
    EXPECT_EQ(rig.refusal(64), "ippStsSizeErr");
    for (const std::size_t n : {1U, 47U, 49U, 63U, 65U, 480U})
        EXPECT_EQ(rig.refusal(n), "accepted") << n;
    settle(rig, 1, 0);
    EXPECT_EQ(rig.refusal(48), "accepted");
    EXPECT_EQ(rig.refusal(64), "accepted");
}

TEST(SpeakerPath, ALayoutWhoseChannelsAllHaveTheLongDelayPasses48AndFails64)
{
    Rig rig(1, 0x10); // back left alone
    settle(rig, 1, 100);
    EXPECT_EQ(rig.refusal(48), "accepted");
    EXPECT_EQ(rig.refusal(64), "ippStsSizeErr");
}

TEST(SpeakerPath, MoreFramesThanTheShortestLineCannotBeAsked)
{
    EXPECT_NO_THROW(Rig(8, sevenPointOne, 1072));
    try {
        Rig(8, sevenPointOne, 1073);
        FAIL() << "a path of 1073 frames was built";
    } catch (const std::invalid_argument& error) {
        EXPECT_STREQ(error.what(), "DelayLine: Length of delayLineBuffer is too short");
    }
}

TEST(SpeakerPath, OfNoFramesCannotBeBuilt)
{
    EXPECT_THROW(Rig(8, sevenPointOne, 0), UninitializedBuffer);
}

// --- The direct signal -----------------------------------------------------------------------------------------------

TEST(SpeakerPath, AnImpulseComesOutAsItsChannelsPairOfResponsesInTheSameBlock)
{
    for (std::size_t c = 0; c < 8; ++c) {
        Rig rig;
        settle(rig, 1);
        std::vector<float> in(480 * 8);
        in[c] = 1.0F; // at full scale the limiter is still open: its level rises by 2 percent of a sample at a time
        const auto out = rig.process(in);
        const EarResponse* ears[] = {&speakerResponses[c].left, &speakerResponses[c].right};
        for (std::size_t ear = 0; ear < 2; ++ear)
            for (std::size_t i = 0; i < 480; ++i) {
                const auto& [onset, taps] = *ears[ear];
                const double tap = i >= onset && i - onset < taps.size() ? static_cast<double>(taps[i - onset]) : 0.0;
                // Transforms of 1024 floats err by some 1e-7 of the response's root of energy, at most 1.75.
                ASSERT_NEAR(static_cast<double>(out[2 * i + ear]), 0.8 * tap, 2e-6) << "speaker " << c << ", frame " << i;
            }
    }
}

TEST(SpeakerPath, AResponseGoesOnInTheNextBlock)
{
    Rig rig(1, 0x200); // side left: its right ear's response ends 162 frames behind the impulse
    settle(rig, 1);
    std::vector<float> in(20);
    in[10] = 1.0F;
    auto out = rig.process(in);
    while (out.size() < 2 * 220) {
        const auto more = rig.silence(17);
        out.insert(out.end(), more.begin(), more.end());
    }
    const auto& [onset, taps] = speakerResponses[6].right;
    for (std::size_t i = 0; i < 220; ++i) {
        const double tap = i >= onset + 10 && i - onset - 10 < taps.size() ? static_cast<double>(taps[i - onset - 10]) : 0.0;
        ASSERT_NEAR(static_cast<double>(out[2 * i + 1]), 0.8 * tap, 2e-6) << "frame " << i;
    }
}

TEST(SpeakerPath, AStereoMaskTakesTheFrontPair)
{
    for (std::size_t c = 0; c < 2; ++c) {
        Rig stereo(2, 0x3);
        Rig surround;
        settle(stereo, 1);
        settle(surround, 1);
        std::vector<float> in(480 * 2);
        in[c] = 0.5F;
        std::vector<float> wide(480 * 8);
        wide[c] = 0.5F;
        EXPECT_EQ(stereo.process(in), surround.process(wide));
    }
}

TEST(SpeakerPath, AStereoMaskDelaysTheRoomBy48Frames)
{
    // Front left asks for 44 frames and front right for 40; both take effect as 48. Line 4 has a tap of 8 frames, which in
    // blocks of maxFrames is its delay, and the decorrelator's filters ring ahead of their delay of 70: no energy is earlier
    // than frame 48, and by 48 + 8 + 70 there is much.
    for (std::size_t c = 0; c < 2; ++c) {
        Rig room(2, 0x3, 480);
        Rig dry(2, 0x3, 480);
        settle(room, 1, 170);
        settle(dry, 1, 0);
        std::vector<float> in(480 * 2);
        in[c] = 0.5F;
        const auto wet = room.process(in);
        const auto direct = dry.process(in);
        double early = 0.0;
        double late = 0.0;
        for (std::size_t i = 0; i < wet.size(); ++i)
            (i < 2 * 48 ? early : late) += std::pow(static_cast<double>(wet[i]) - static_cast<double>(direct[i]), 2);
        EXPECT_LT(early, 1e-14);
        EXPECT_GT(late, 1e-5);
    }
}

TEST(SpeakerPath, ALoudSineLeavesTheLimitersWithinTheCurvesOvershoot)
{
    // A sine of +12 dB on the front centre, surround off: the down-mix is at +6 dB, which two limiters bring to 1.0 and a
    // little above, where the curve's straight segments bulge: at most 1.0132 between points 2 dB apart.
    Rig rig(1, 0x4);
    settle(rig, 0);
    float peak = 0.0F;
    for (std::size_t block = 0; block < 200; ++block) {
        std::vector<float> in(480);
        for (std::size_t i = 0; i < 480; ++i) {
            const auto angle = 2.0 * std::numbers::pi * 997.0 * static_cast<double>(block * 480 + i) / 48000.0;
            in[i] = static_cast<float>(std::pow(10.0, 12.0 / 20.0) * std::sin(angle));
        }
        const auto out = rig.process(in);
        if (block >= 20) // the attack is over after some milliseconds
            for (const float x : out)
                peak = std::max(peak, std::abs(x));
    }
    EXPECT_GT(peak, 0.8F * 0.9F);
    // Half-way between two points of levels a and ra the chord lies above 1 / level: the product of level and gain is at
    // most (1 + r)^2 / (4 r), r = 10^(2 / 20). The envelope of a sine follows its peaks from some percent below, since it
    // falls between them; 5 percent covers 997 Hz with the 1 ms attack.
    const double r = std::pow(10.0, 0.1);
    EXPECT_LT(static_cast<double>(peak), 0.8 * (1 + r) * (1 + r) / (4 * r) * 1.05);
}

} // namespace
} // namespace quorel
