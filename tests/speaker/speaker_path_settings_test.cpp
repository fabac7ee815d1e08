// SPDX-License-Identifier: MIT
// What a record of settings does to a running render path: fades, what stands still, delivered responses.
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

} // namespace
} // namespace quorel
