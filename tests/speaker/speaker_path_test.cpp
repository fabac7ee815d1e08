// SPDX-License-Identifier: MIT
#include "speaker/speaker_path.h"

#include "speaker/compressor_tables.h"
#include "speaker/hrtf_tables.h"
#include "speaker/speaker_tables.h"
#include "tests/support/noise.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numbers>
#include <string>
#include <vector>

namespace quorel {
namespace {

constexpr std::uint32_t sevenPointOne = 0x63F;

// A path with its host's part: the record that is delivered between blocks, and the two interleaved buffers.
class Rig {
public:
    explicit Rig(std::int32_t channels = 8, std::uint32_t mask = sevenPointOne, std::uint32_t maxFrames = 848)
        : channels(static_cast<std::size_t>(channels)), path(SignalPath::Speaker{}, channels, mask, maxFrames, 48000)
    {
    }

    SettingsRecord& settings() { return *path->settings(); }

    // Delivers the record as the settings poll does: with a new sequence, not applied.
    void deliver()
    {
        ++settings().blockSequence;
        settings().applied = 0;
    }

    // The interleaved stereo part of the output of one block.
    std::vector<float> process(std::vector<float> in)
    {
        const auto n = in.size() / channels;
        std::vector<float> frames(std::max<std::size_t>(n * 8, 8), 9.0F);
        path->process(in.data(), n, frames.data(), n);
        std::vector<float> stereo(2 * n);
        for (std::size_t i = 0; i < n; ++i)
            std::copy_n(frames.data() + 8 * i, 2, stereo.data() + 2 * i);
        return stereo;
    }

    std::vector<float> silence(std::size_t n) { return process(std::vector<float>(n * channels)); }

    // The text of the failure of a block of n frames of silence.
    std::string refusal(std::size_t n)
    {
        try {
            silence(n);
        } catch (const std::exception& error) {
            return error.what();
        }
        return "accepted";
    }

    std::size_t channels;
    SignalPath path;
};

double energy(const std::vector<float>& x)
{
    double sum = 0.0;
    for (const float sample : x)
        sum += static_cast<double>(sample) * static_cast<double>(sample);
    return sum;
}

// Settles a rig in one state of the surround switch, with no reverb, no pending change and silent stages.
void settle(Rig& rig, std::uint8_t surround, std::uint32_t reverb = 0)
{
    rig.settings().Settings = surround;
    rig.settings().Reverb = reverb;
    rig.deliver();
    for (int block = 0; block < 3; ++block)
        rig.silence(480);
}

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

// --- Switching -------------------------------------------------------------------------------------------------------

TEST(SpeakerPath, ABlankFirstRecordFadesToTheDownmix)
{
    Rig rig;
    const auto in = noise(8 * 480, 1, 0.05F);
    const auto first = rig.process(in); // record all zero: Settings 0
    Rig on;
    on.settings().Settings = 1;
    const auto surround = on.process(in);
    Rig off;
    off.settings().Settings = 0;
    off.silence(480);
    const auto downmix = off.process(in);
    // The old signal falls and the new one rises along half a cosine. The room is silent, the equaliser flat and the limiter
    // open in all three, so that the fade is all that differs.
    for (std::size_t i = 0; i < 480; ++i) {
        const double rising = 1.0 - (std::cos(static_cast<double>(i) * std::numbers::pi / 480.0) + 1.0) * 0.5;
        for (std::size_t ear = 0; ear < 2; ++ear) {
            const double wanted =
                (1.0 - rising) * static_cast<double>(surround[2 * i + ear]) + rising * static_cast<double>(downmix[2 * i + ear]);
            ASSERT_NEAR(static_cast<double>(first[2 * i + ear]), wanted, 1e-6);
        }
    }
}

TEST(SpeakerPath, WithTheEffectOffASmallSignalLeavesAsDownmixTimes08)
{
    Rig rig;
    settle(rig, 0);
    const auto in = noise(8 * 480, 2, 0.05F);
    const auto out = rig.process(in);
    for (std::size_t i = 0; i < 480; ++i) {
        double left = 0.0;
        double right = 0.0;
        for (std::size_t c = 0; c < 8; ++c) {
            left += static_cast<double>(in[8 * i + c]) * static_cast<double>(speakerTable[c].downmixLeft);
            right += static_cast<double>(in[8 * i + c]) * static_cast<double>(speakerTable[c].downmixRight);
        }
        ASSERT_NEAR(static_cast<double>(out[2 * i]), 0.8 * left, 20 * 0.25 * 0x1p-24);
        ASSERT_NEAR(static_cast<double>(out[2 * i + 1]), 0.8 * right, 20 * 0.25 * 0x1p-24);
    }
}

TEST(SpeakerPath, SwitchingOnAlternateBlocksFadesOnEveryBlock)
{
    // A steady channel: while a fade runs, the output is a mixture that moves; in a block without one it would stand still.
    // Front centre's two signals differ: its responses sum to 0.72 and 0.69, its down-mix is 0.5.
    Rig rig(1, 0x4);
    settle(rig, 1);
    const std::vector<float> steady(480, 0.5F);
    rig.process(steady);
    rig.process(steady);
    for (std::uint8_t block = 0; block < 10; ++block) {
        const bool on = block % 2 != 0;
        rig.settings().Settings = on;
        rig.deliver();
        const auto out = rig.process(steady);
        const double first = static_cast<double>(out[0]);
        const double last = static_cast<double>(out[2 * 479]);
        EXPECT_NEAR(first, 0.8 * 0.5 * (on ? 0.5 : 0.7176), 1e-3) << "block " << int{block};
        // The ramp stops one step short of 1: 1e-5 is missing.
        EXPECT_NEAR(last, 0.8 * 0.5 * (on ? 0.7176 : 0.5), 1e-3) << "block " << int{block};
        double steepest = 0.0;
        for (std::size_t i = 1; i < 480; ++i)
            steepest = std::max(steepest, std::abs(static_cast<double>(out[2 * i]) - static_cast<double>(out[2 * i - 2])));
        // The steepest step of half a cosine over 480 frames is pi / 960 of the way.
        EXPECT_LT(steepest, 1.2 * std::numbers::pi / 960.0 * 0.8 * 0.5 * 0.2176);
    }
}

TEST(SpeakerPath, WhatIsSwitchedOffStaysFrozen)
{
    // The end of a block before the effect was switched off is still the convolver's history when it comes back.
    Rig rig(1, 0x4);
    settle(rig, 1);
    std::vector<float> click(480);
    click[479] = 0.5F;
    rig.settings().Settings = 0;
    rig.deliver();
    rig.process(click); // fades out, and is the last block that the convolver loads
    for (int block = 0; block < 10; ++block)
        rig.silence(480);
    rig.settings().Settings = 1;
    rig.deliver();
    EXPECT_GT(energy(rig.silence(480)), 1e-8) << "the old click's response, under the rising ramp";
    EXPECT_LT(energy(rig.silence(480)), 1e-12);
}

// --- Settings --------------------------------------------------------------------------------------------------------

TEST(SpeakerPath, AChangedBandFadesForOneBlock)
{
    Rig rig;
    Rig twin;
    for (Rig* each : {&rig, &twin})
        settle(*each, 1);
    rig.settings().EQBand[4] = 127;
    rig.deliver();
    const auto in = noise(8 * 480, 3, 0.05F);
    const auto changed = rig.process(in);
    const auto flat = twin.process(in);
    // At the first frame the old curve stands alone; the ramp starts at exactly 0.
    EXPECT_EQ(changed[0], flat[0]);
    EXPECT_EQ(changed[1], flat[1]);
    EXPECT_NE(changed, flat);

    // From the next block on the new curve stands alone: nothing is faded, whether the same values come again or not. A fade
    // would be another over one block than over two halves of it.
    Rig third;
    settle(third, 1);
    third.settings().EQBand[4] = 127;
    third.deliver();
    third.process(in);
    rig.deliver();
    const auto more = noise(8 * 480, 4, 0.05F);
    const auto whole = rig.process(more);
    auto halves = third.process({more.begin(), more.begin() + 8 * 240});
    const auto second = third.process({more.begin() + 8 * 240, more.end()});
    halves.insert(halves.end(), second.begin(), second.end());
    for (std::size_t i = 0; i < whole.size(); ++i)
        ASSERT_NEAR(whole[i], halves[i], 1e-6F);
}

TEST(SpeakerPath, ReverbGoingOffRunsTheRoomForOneMoreBlock)
{
    // A block of 48 frames fails exactly when the room runs.
    Rig rig;
    settle(rig, 1, 170);
    rig.settings().Reverb = 0;
    rig.deliver();
    EXPECT_EQ(rig.refusal(48), "ippStsSizeErr") << "the block that fades it out runs the room";
    rig.silence(480);
    EXPECT_EQ(rig.refusal(48), "accepted") << "the block after does not";
}

TEST(SpeakerPath, TheFirstBlockRunsTheRoomEvenWithTheReverbOff)
{
    Rig rig;
    rig.settings().Settings = 1;
    EXPECT_EQ(rig.refusal(48), "ippStsSizeErr");
    rig.silence(480);
    EXPECT_EQ(rig.refusal(48), "accepted");
}

TEST(SpeakerPath, AnUnchangedReverbIsNoChange)
{
    Rig rig;
    settle(rig, 1, 0);
    rig.deliver();
    EXPECT_EQ(rig.refusal(48), "accepted");
}

TEST(SpeakerPath, TwoRecordsOfOneSequenceAreTranslatedOnce)
{
    Rig rig;
    settle(rig, 1);
    rig.settings().EQBand[4] = 127;
    rig.settings().applied = 0; // the sequence stays
    Rig twin;
    settle(twin, 1);
    const auto in = noise(8 * 480, 3, 0.05F);
    EXPECT_EQ(rig.process(in), twin.process(in));
    EXPECT_EQ(rig.settings().applied, 1);
}

TEST(SpeakerPath, ARecordOfTheSequenceBeforeTheFirstIsNotTranslated)
{
    // Required: the sequence that a path starts from counts as translated, whatever the record says.
    Rig rig;
    rig.settings().blockSequence = 0xFFFFFFFF;
    rig.settings().Settings = 0;
    Rig twin;
    twin.settings().applied = 1; // no record at all
    const auto in = noise(8 * 480, 3, 0.05F);
    EXPECT_EQ(rig.process(in), twin.process(in));
    EXPECT_EQ(rig.settings().applied, 1);
}

TEST(SpeakerPath, TheReverbValueIsAGainInDecibels)
{
    // The room's part of the output scales with 10^((value * 27 / 255 - 18) / 20).
    const auto room = [](std::uint32_t reverb) {
        Rig rig(1, 0x4);
        settle(rig, 1, reverb);
        Rig dry(1, 0x4);
        settle(dry, 1, 0);
        std::vector<float> in(480);
        in[0] = 0.01F;
        std::vector<double> wet;
        for (int block = 0; block < 4; ++block) {
            const auto x = rig.process(in);
            const auto y = dry.process(in);
            for (std::size_t i = 0; i < x.size(); ++i)
                wet.push_back(static_cast<double>(x[i]) - static_cast<double>(y[i]));
            in[0] = 0.0F;
        }
        double sum = 0.0;
        for (const double x : wet)
            sum += x * x;
        return std::sqrt(sum);
    };
    const double full = room(170);
    // 20 log10 of the ratio, to 0.01 dB: differences of floats near 1e-3 err by some 1e-10 of 1e-3.
    EXPECT_NEAR(20.0 * std::log10(room(1) / full), 1 * 27.0 / 255.0 - 18.0, 0.01);
    EXPECT_NEAR(20.0 * std::log10(room(100) / full), 100 * 27.0 / 255.0 - 18.0, 0.01);
    EXPECT_NEAR(20.0 * std::log10(room(255) / full), 9.0, 0.01);
}

// --- Delivered responses ---------------------------------------------------------------------------------------------

// A set in which every left response is one constant spectrum and every right response another: an impulse of that level.
std::vector<float> impulses(std::size_t channels, float left, float right)
{
    std::vector<float> set(2 * channels * 1024);
    for (std::size_t r = 0; r < 2 * channels; ++r) {
        float* spectrum = set.data() + r * 1024;
        const float level = r < channels ? left : right;
        spectrum[0] = spectrum[1023] = level;
        for (std::size_t k = 1; k < 512; ++k)
            spectrum[2 * k - 1] = level;
    }
    return set;
}

void deliverResponses(Rig& rig, std::uint32_t id, const std::vector<float>& set, std::uint32_t channels,
                      std::uint32_t length = 1024)
{
    rig.settings().hrtfId = id;
    rig.settings().hrtfChannels = channels;
    rig.settings().hrtfLength = length;
    rig.settings().hrtfData = set.data();
    rig.deliver();
}

TEST(SpeakerPath, ADeliveredSetTakesEffectInTheSameBlockWithoutAFade)
{
    Rig rig;
    settle(rig, 1);
    const auto set = impulses(8, 0.0F, 1.0F);
    deliverResponses(rig, 1, set, 8);
    const auto in = noise(8 * 480, 6, 0.05F);
    const auto out = rig.process(in);
    for (std::size_t i = 0; i < 480; ++i) {
        double sum = 0.0;
        for (std::size_t c = 0; c < 8; ++c)
            sum += static_cast<double>(in[8 * i + c]);
        ASSERT_EQ(out[2 * i], 0.0F);
        ASSERT_NEAR(static_cast<double>(out[2 * i + 1]), 0.8 * sum, 1e-6);
    }
}

TEST(SpeakerPath, ARefusedSetFailsAtEveryBlockUntilTheNextRecord)
{
    Rig rig;
    settle(rig, 1);
    const auto set = impulses(8, 1.0F, 1.0F);
    deliverResponses(rig, 1, set, 2);
    for (int block = 0; block < 3; ++block) {
        EXPECT_EQ(rig.refusal(480), "quorel::DirectPath<8,float>::set: channels must match");
        EXPECT_EQ(rig.settings().applied, 0);
    }
    deliverResponses(rig, 1, set, 8, 512);
    EXPECT_EQ(rig.refusal(480), "quorel::DirectPath<8,float>::set: size must match");
    deliverResponses(rig, 0, {}, 0, 0);
    EXPECT_EQ(rig.refusal(480), "accepted");
}

TEST(SpeakerPath, AnIdThatGoesBackToNoneIsAChangeLikeAnyOther)
{
    Rig rig;
    settle(rig, 1);
    const auto set = impulses(8, 1.0F, 1.0F);
    deliverResponses(rig, 7, set, 8);
    rig.silence(480);
    deliverResponses(rig, 0, set, 0);
    EXPECT_EQ(rig.refusal(480), "quorel::DirectPath<8,float>::set: channels must match");
}

TEST(SpeakerPath, OtherDataUnderTheSameIdLeavesTheResponsesAlone)
{
    Rig rig;
    settle(rig, 1);
    const auto set = impulses(8, 1.0F, 1.0F);
    const auto other = impulses(8, 0.0F, 0.0F);
    deliverResponses(rig, 3, set, 8);
    rig.silence(480);
    deliverResponses(rig, 3, other, 8);
    EXPECT_GT(energy(rig.process(noise(8 * 480, 7, 0.05F))), 1e-3);
}

// --- The limiter -----------------------------------------------------------------------------------------------------

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
