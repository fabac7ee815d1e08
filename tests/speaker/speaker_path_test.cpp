// SPDX-License-Identifier: MIT
#include "tests/speaker/speaker_path_rig.h"

#include "core/kernels/select.h"
#include "speaker/compressor_tables.h"
#include "speaker/hrtf_tables.h"
#include "speaker/speaker_tables.h"
#include "tests/support/failure.h"
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

TEST(SpeakerPath, ABlockThatTheRoomRefusesHasPassedTheFirstLimiter)
{
    // The first limiter stands ahead of the room. A loud start of a block that the room then refuses leaves its envelopes high,
    // which fall by a half in 0.28 s, so that the block after it is turned down. It comes too late for the loud frames themselves.
    double heard[2] = {};
    for (const bool loud : {false, true}) {
        Rig rig(8, sevenPointOne, 470);
        rig.settings().Settings = 1;
        rig.settings().Reverb = 1;
        for (int block = 0; block < 3; ++block)
            rig.silence(470);
        std::vector<float> refused(8 * 475);
        std::fill_n(refused.begin(), 8 * 200, loud ? 4.0F : 0.0F);
        EXPECT_THROW(rig.process(refused), std::invalid_argument);
        heard[loud] = energy(rig.process(std::vector<float>(8 * 470, 0.1F)));
    }
    EXPECT_LT(heard[true], heard[false] / 4);
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
    EXPECT_EQ(failureText<std::invalid_argument>([] { Rig(8, sevenPointOne, 1073); }),
              "DelayLine: Length of delayLineBuffer is too short");
}

TEST(SpeakerPath, OfNoFramesCannotBeBuilt)
{
    EXPECT_EQ(failureText([] { Rig(8, sevenPointOne, 0); }), "Buffer not initialized");
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

// --- What stays exact ------------------------------------------------------------------------------------------------

// Runs for each variant of the kernels a block of noise, loud enough for the limiters, through a bent equaliser.
std::vector<std::vector<float>> noiseInEveryVariant(std::size_t only, const std::vector<float>* responses)
{
    std::vector<std::vector<float>> all;
    for (const kernels::KernelTable* variant : kernels::availableVariants()) {
        const kernels::ForcedVariant forced(*variant);
        Rig rig;
        rig.settings().EQBand = {127, -127, 90, -90, 127, -127, 60, -60, 127};
        if (responses != nullptr) {
            rig.settings().hrtfId = 1;
            rig.settings().hrtfChannels = 8;
            rig.settings().hrtfLength = 1024;
            rig.settings().hrtfData = responses->data();
        }
        settle(rig, 1);
        auto noise = normalNoise(8 * 480, 1.0F, 17);
        for (std::size_t i = 0; i < noise.size(); ++i)
            if (only < 8 && i % 8 != only)
                noise[i] = 0.0F;
        all.push_back(rig.process(noise));
    }
    return all;
}

TEST(SpeakerPath, AnEarWhoseResponsesAreZeroStaysExactlyZero)
{
    std::vector<float> responses(2 * 8 * 1024); // the left ears' are zero, the right ears' unit impulses
    for (std::size_t c = 8; c < 16; ++c) {
        responses[c * 1024] = responses[c * 1024 + 1023] = 1.0F;
        for (std::size_t k = 1; k < 1023; k += 2)
            responses[c * 1024 + k] = 1.0F;
    }
    for (const auto& out : noiseInEveryVariant(8, &responses)) {
        EXPECT_GT(energy(out), 1.0);
        for (std::size_t i = 0; i < out.size(); i += 2)
            ASSERT_EQ(out[i], 0.0F) << "frame " << i / 2;
    }
}

TEST(SpeakerPath, TheLowFrequencyChannelIsEqualAtBothEars)
{
    for (const auto& out : noiseInEveryVariant(3, nullptr)) {
        EXPECT_GT(energy(out), 0.01);
        for (std::size_t i = 0; i < out.size(); i += 2)
            ASSERT_EQ(out[i], out[i + 1]) << "frame " << i / 2;
    }
}

TEST(SpeakerPath, BuffersOfNoAlignmentGiveTheSameBitsForAnyChannels)
{
    // Blocks of many lengths for each number of channels; the shifted buffers end where their last sample does.
    const std::uint32_t masks[] = {0x4, 0x3, 0x7, 0x33, 0x37, 0x3F, 0x637, 0x63F};
    for (const kernels::KernelTable* variant : kernels::availableVariants()) {
        const kernels::ForcedVariant forced(*variant);
        for (std::size_t channels = 1; channels <= 8; ++channels) {
            Rig plain(static_cast<std::int32_t>(channels), masks[channels - 1]);
            Rig shifted(static_cast<std::int32_t>(channels), masks[channels - 1]);
            for (Rig* rig : {&plain, &shifted})
                settle(*rig, 1, 100);
            for (const std::size_t n : {1U, 3U, 17U, 101U, 239U, 241U, 487U, 848U}) {
                const auto noise = normalNoise(channels * n, 0.7F, static_cast<std::uint32_t>(n));
                const auto wanted = plain.process(noise);
                std::vector<float> in(1 + noise.size()), out(1 + 8 * n);
                std::copy(noise.begin(), noise.end(), in.begin() + 1);
                shifted.path->process(in.data() + 1, n, out.data() + 1, n);
                for (std::size_t i = 0; i < 2 * n; ++i)
                    ASSERT_EQ(out[1 + i / 2 * 8 + i % 2], wanted[i]) << channels << " channels, block of " << n << ", " << i;
            }
        }
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
