// SPDX-License-Identifier: MIT
// The render model against closed forms, so that it can stand as the yardstick of the path.

#include "tests/model/speaker_model.h"

#include "tests/model/speaker_model_cases.h"
#include "tests/support/failure.h"

#include <gtest/gtest.h>

#include <string>

namespace quorel::model {
namespace {

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

TEST(SpeakerModel, AReverbGainThatChangesWhileOffWaitsForTheReturn)
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
