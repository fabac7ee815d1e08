// SPDX-License-Identifier: MIT
// The audio thread's entry: what a block of each kind does, and that a stream sounds as its path does alone.
#include "host/effect_object.h"

#include "tests/host/control.h"
#include "tests/host/engine.h"
#include "tests/support/noise.h"
#include "tests/support/private_home.h"

#include <algorithm>
#include <vector>

namespace quorel {
namespace {

constexpr UINT32 frames = 480;

// Gives a path the record that the effect's path has.
void copyRecord(const SettingsRecord& from, SettingsRecord& to)
{
    to = from;
    to.applied = 0;
}

class RenderStream : public testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_EQ(effect.initialize(), S_OK);
        ASSERT_EQ(effect.lock(surroundFormat()), S_OK);
    }

    EndpointEntry entry{"Render"};
    Effect effect;
    std::vector<float> out = std::vector<float>(frames * 8, 77.0F);
};

class CaptureStream : public testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_EQ(effect.initialize(), S_OK);
        ASSERT_EQ(effect.lock(voiceFormat()), S_OK);
    }

    EndpointEntry entry{"Capture"};
    Effect effect;
    std::vector<float> out = std::vector<float>(frames, 77.0F);
};

SettingsRecord surroundSettings()
{
    SettingsRecord settings;
    settings.Settings = 1;
    settings.Reverb = 120;
    settings.EQBand[3] = 64;
    return settings;
}

SettingsRecord voiceSettings()
{
    SettingsRecord settings;
    settings.MicNR = 1;
    settings.micEq = 2;
    settings.noiseGate = 40;
    settings.levelsEnabled = 1;
    return settings;
}

// Settings travel from the control application while the stream runs; every block is the path's own, bit for bit.
TEST_F(RenderStream, EveryBlockIsThePathsOwn)
{
    Control control;
    SignalPath reference(SignalPath::Speaker{}, 8, 0x63F, frames, 48000);
    copyRecord(effect.record(), *reference->settings()); // kept settings, if there are any
    std::vector<float> expected(frames * 8);
    for (std::uint32_t block = 0; block < 12; ++block) {
        if (block % 4 == 1) {
            auto settings = surroundSettings();
            settings.Reverb = 20 * block;
            settings.Settings = block != 5;
            ASSERT_TRUE(control.deliver(settings, effect));
            copyRecord(effect.record(), *reference->settings());
        }
        const auto in = noise(frames * 8, block, 0.5F);
        EXPECT_EQ(effect.process(in.data(), out.data(), frames), BUFFER_VALID);
        auto copy = in;
        reference->process(copy.data(), frames, expected.data(), frames);
        EXPECT_EQ(out, expected) << block;
    }
}

TEST_F(CaptureStream, EveryBlockAndItsLevelsAreThePathsOwn)
{
    Control control;
    SignalPath reference(SignalPath::Microphone{}, 1, 0, frames, 48000);
    std::vector<float> expected(frames);
    ASSERT_TRUE(control.deliver(voiceSettings(), effect));
    copyRecord(effect.record(), *reference->settings());
    for (std::uint32_t block = 0; block < 12; ++block) {
        auto in = noise(frames, block, 0.5F);
        EXPECT_EQ(effect.process(in.data(), out.data(), frames), BUFFER_VALID);
        reference->process(in.data(), frames, expected.data(), frames);
        EXPECT_EQ(out, expected) << block;
        EXPECT_TRUE(std::equal(control->levels.begin(), control->levels.end(), reference->levels())) << block;
    }
    EXPECT_GT(control->levels[0], -60.0F); // something was measured
}

TEST_F(CaptureStream, ABlockMayBeProcessedInPlace)
{
    const auto in = noise(frames, 1, 0.5F);
    effect.process(in.data(), out.data(), frames);
    ASSERT_EQ(effect.configuration->UnlockForProcess(), S_OK);
    ASSERT_EQ(effect.lock(voiceFormat()), S_OK);
    auto both = in;
    EXPECT_EQ(effect.process(both.data(), both.data(), frames), BUFFER_VALID);
    EXPECT_EQ(both, out);
}

TEST(FastStereoStream, ItIsCopied)
{
    const EndpointEntry entry("Render");
    Effect effect;
    ASSERT_EQ(effect.initialize(), S_OK);
    ASSERT_EQ(effect.lock(stereoFormat()), S_OK);
    const auto in = noise(frames * 2, 5, 0.5F);
    std::vector<float> out(frames * 2);
    EXPECT_EQ(effect.process(in.data(), out.data(), frames), BUFFER_VALID);
    EXPECT_EQ(out, in);
}

TEST_F(RenderStream, AResetChangesNothingAudible)
{
    Effect other;
    ASSERT_EQ(other.initialize(), S_OK);
    ASSERT_EQ(other.lock(surroundFormat()), S_OK);
    Control control;
    ASSERT_TRUE(control.deliver(surroundSettings(), effect));
    ASSERT_TRUE(control.deliver(surroundSettings(), other));
    std::vector<float> expected(frames * 8);
    for (std::uint32_t block = 0; block < 6; ++block) {
        const auto in = noise(frames * 8, block, 0.5F);
        EXPECT_EQ(effect.object->Reset(), S_OK);
        effect.process(in.data(), out.data(), frames);
        other.process(in.data(), expected.data(), frames);
        EXPECT_EQ(out, expected) << block;
    }
}

// ---- Blocks that are not valid ----------------------------------------------------------------------------------------

void expectHandedThrough(Effect& effect, std::vector<float>& out, APO_BUFFER_FLAGS flags)
{
    const auto in = noise(out.size(), 3, 0.5F);
    APO_CONNECTION_PROPERTY input{reinterpret_cast<UINT_PTR>(in.data()), 123, flags, APO_CONNECTION_PROPERTY_SIGNATURE};
    APO_CONNECTION_PROPERTY output{reinterpret_cast<UINT_PTR>(out.data()), frames, BUFFER_VALID,
                                   APO_CONNECTION_PROPERTY_SIGNATURE};
    APO_CONNECTION_PROPERTY* ins[] = {&input};
    APO_CONNECTION_PROPERTY* outs[] = {&output};
    effect.realTime->APOProcess(1, ins, 1, outs);
    EXPECT_EQ(output.u32BufferFlags, flags);
    EXPECT_EQ(output.u32ValidFrameCount, 123U);
    EXPECT_TRUE(std::ranges::all_of(out, [](float x) { return x == 77.0F; }));
}

TEST_F(RenderStream, ASilentBlockIsHandedThrough)
{
    expectHandedThrough(effect, out, BUFFER_SILENT);
}

TEST_F(RenderStream, AnInvalidBlockIsHandedThrough)
{
    expectHandedThrough(effect, out, BUFFER_INVALID);
}

TEST_F(CaptureStream, ASilentBlockWritesNoLevels)
{
    Control control;
    control->levels.fill(-3.0F);
    expectHandedThrough(effect, out, BUFFER_SILENT);
    expectHandedThrough(effect, out, BUFFER_INVALID);
    for (const float level : control->levels)
        EXPECT_EQ(level, -3.0F);
}

// The path stands still: what comes behind the silence is what would have come without it.
TEST_F(RenderStream, ASilentBlockDoesNotFeedTheRoom)
{
    Control control;
    ASSERT_TRUE(control.deliver(surroundSettings(), effect));
    SignalPath reference(SignalPath::Speaker{}, 8, 0x63F, frames, 48000);
    copyRecord(effect.record(), *reference->settings());
    std::vector<float> expected(frames * 8);
    for (std::uint32_t block = 0; block < 6; ++block) {
        auto in = noise(frames * 8, block, 0.5F);
        for (std::uint32_t silent = 0; silent < block; ++silent)
            EXPECT_EQ(effect.process(in.data(), out.data(), frames, BUFFER_SILENT), BUFFER_SILENT);
        effect.process(in.data(), out.data(), frames);
        reference->process(in.data(), frames, expected.data(), frames);
        EXPECT_EQ(out, expected) << block;
    }
}

TEST_F(RenderStream, ANewRecordArrivesWithASilentBlockAndWaitsForAValidOne)
{
    Control control;
    const auto& record = effect.record();
    const auto in = noise(frames * 8, 1, 0.5F);
    effect.process(in.data(), out.data(), frames);
    EXPECT_EQ(record.applied, 1);
    auto settings = surroundSettings();
    settings.Reverb = 99;
    ASSERT_TRUE(control.deliver(settings, effect)); // by silent blocks
    EXPECT_EQ(record.Reverb, 99U);
    EXPECT_EQ(record.applied, 0);
    effect.process(in.data(), out.data(), frames, BUFFER_INVALID);
    EXPECT_EQ(record.applied, 0);
    effect.process(in.data(), out.data(), frames);
    EXPECT_EQ(record.applied, 1);
}

// ---- Levels and failures ----------------------------------------------------------------------------------------------

TEST_F(RenderStream, ARenderStreamWritesNoLevels)
{
    Control control;
    control->levels.fill(-3.0F);
    const auto in = noise(frames * 8, 1, 0.5F);
    effect.process(in.data(), out.data(), frames);
    for (const float level : control->levels)
        EXPECT_EQ(level, -3.0F);
}

// A fresh path's levels are -60 dB, and stay so while nothing is measured.
TEST_F(CaptureStream, LevelsThatAreNotMeasuredAreCopiedAsTheyStand)
{
    Control control;
    control->levels.fill(-3.0F);
    const auto in = noise(frames, 1, 0.5F);
    effect.process(in.data(), out.data(), frames);
    for (const float level : control->levels)
        EXPECT_EQ(level, -60.0F);
}

// The room's shortest line ends at 1072 frames, the convolver at 848.
TEST_F(RenderStream, ABlockThatFailsIsInvalidAndTheNextOneIsNot)
{
    ASSERT_EQ(effect.configuration->UnlockForProcess(), S_OK);
    ASSERT_EQ(effect.lock(surroundFormat(), 1072), S_OK);
    Control control;
    ASSERT_TRUE(control.deliver(surroundSettings(), effect));
    const auto in = noise(1072 * 8, 1, 0.5F);
    out.resize(1072 * 8);

    APO_CONNECTION_PROPERTY input{reinterpret_cast<UINT_PTR>(in.data()), 849, BUFFER_VALID, APO_CONNECTION_PROPERTY_SIGNATURE};
    APO_CONNECTION_PROPERTY output{reinterpret_cast<UINT_PTR>(out.data()), 1000, BUFFER_VALID, APO_CONNECTION_PROPERTY_SIGNATURE};
    APO_CONNECTION_PROPERTY* ins[] = {&input};
    APO_CONNECTION_PROPERTY* outs[] = {&output};
    effect.realTime->APOProcess(1, ins, 1, outs);
    EXPECT_EQ(output.u32BufferFlags, BUFFER_INVALID);
    EXPECT_EQ(output.u32ValidFrameCount, 1000U); // as it was

    EXPECT_EQ(effect.process(in.data(), out.data(), 848), BUFFER_VALID);
}

TEST_F(CaptureStream, AFailedBlockStillWritesTheLastLevels)
{
    Control control;
    ASSERT_TRUE(control.deliver(voiceSettings(), effect));
    const auto in = noise(frames, 1, 0.5F);
    for (int block = 0; block < 8; ++block)
        effect.process(in.data(), out.data(), frames);
    const auto last = control->levels;
    control->levels.fill(-3.0F);
    auto settings = voiceSettings();
    settings.micEq = 3; // no such curve
    ASSERT_TRUE(control.deliver(settings, effect));
    for (int block = 0; block < 2; ++block) {
        EXPECT_EQ(effect.process(in.data(), out.data(), frames), BUFFER_INVALID);
        EXPECT_EQ(control->levels, last);
        control->levels.fill(-3.0F);
    }
    ASSERT_TRUE(control.deliver(voiceSettings(), effect));
    EXPECT_EQ(effect.process(in.data(), out.data(), frames), BUFFER_VALID);
}

// A set for other channels than the stream's is refused at every block, until another record comes.
TEST_F(RenderStream, ARefusedSetOfResponsesMakesEveryBlockInvalid)
{
    Control control;
    auto settings = surroundSettings();
    settings.hrtfId = 1;
    settings.hrtfChannels = 2;
    settings.hrtfLength = 1024;
    ASSERT_TRUE(control.deliver(settings, effect));
    const auto in = noise(frames * 8, 1, 0.5F);
    for (int block = 0; block < 3; ++block)
        EXPECT_EQ(effect.process(in.data(), out.data(), frames), BUFFER_INVALID);
    ASSERT_TRUE(control.deliver(surroundSettings(), effect));
    EXPECT_EQ(effect.process(in.data(), out.data(), frames), BUFFER_VALID);
}

TEST_F(RenderStream, AValidBlockTakesTheOutputsFrameCount)
{
    const auto in = noise(frames * 8, 1, 0.5F);
    APO_CONNECTION_PROPERTY input{reinterpret_cast<UINT_PTR>(in.data()), 100, BUFFER_VALID, APO_CONNECTION_PROPERTY_SIGNATURE};
    APO_CONNECTION_PROPERTY output{reinterpret_cast<UINT_PTR>(out.data()), 200, BUFFER_INVALID,
                                   APO_CONNECTION_PROPERTY_SIGNATURE};
    APO_CONNECTION_PROPERTY* ins[] = {&input};
    APO_CONNECTION_PROPERTY* outs[] = {&output};
    effect.realTime->APOProcess(1, ins, 1, outs);
    EXPECT_EQ(output.u32ValidFrameCount, 200U);
    EXPECT_EQ(output.u32BufferFlags, BUFFER_VALID);
}

// Nothing but the mode's list of effects differs.
TEST_F(RenderStream, RawModeIsProcessedLikeAnyOther)
{
    Effect raw;
    ASSERT_EQ(raw.initialize(AUDIO_SIGNALPROCESSINGMODE_RAW), S_OK);
    ASSERT_EQ(raw.lock(surroundFormat()), S_OK);
    Control control;
    auto settings = surroundSettings();
    settings.Enabled = 0; // read by nobody
    ASSERT_TRUE(control.deliver(settings, effect));
    ASSERT_TRUE(control.deliver(settings, raw));
    std::vector<float> expected(frames * 8);
    const auto in = noise(frames * 8, 1, 0.5F);
    effect.process(in.data(), expected.data(), frames);
    raw.process(in.data(), out.data(), frames);
    EXPECT_EQ(out, expected);
    EXPECT_NE(out[0], in[0]);
}

} // namespace
} // namespace quorel
