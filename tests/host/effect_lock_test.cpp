// SPDX-License-Identifier: MIT
// An effect object's locks: what they take over from the connections, what they write, and what a failure leaves behind.
#include "host/effect_object.h"

#include "tests/host/control.h"
#include "tests/host/engine.h"
#include "tests/support/private_home.h"

namespace quorel {
namespace {

class Render : public testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(effect.initialize(), S_OK); }

    EndpointEntry entry{"Render"};
    Effect effect;
};

class Capture : public testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(effect.initialize(), S_OK); }

    EndpointEntry entry{"Capture"};
    Effect effect;
};

UINT32 channelCount(Effect& effect)
{
    UINT32 count = 99;
    EXPECT_EQ(effect.object->GetInputChannelCount(&count), APOERR_NOT_INITIALIZED); // Required: in every state
    return count;
}

TEST(ChannelCount, ItIsDeliveredWithAFailure)
{
    Effect effect;
    EXPECT_EQ(effect.object->GetInputChannelCount(nullptr), APOERR_NOT_INITIALIZED);
    EXPECT_EQ(channelCount(effect), 0U);
}

TEST_F(Render, ALockDeliversTheChannelCount)
{
    EXPECT_EQ(channelCount(effect), 0U);
    EXPECT_EQ(effect.lock(surroundFormat()), S_OK);
    EXPECT_EQ(channelCount(effect), 8U);
    EXPECT_EQ(effect.object->GetInputChannelCount(nullptr), APOERR_NOT_INITIALIZED);
}

TEST_F(Render, ALockTellsTheActiveFormat)
{
    Control control;
    EXPECT_EQ(effect.lock(floatFormat(8, 48000.5F, 0x63F)), S_OK);
    EXPECT_EQ(control->activeChannelMask, 0x63FU);
    EXPECT_EQ(control->activeFramesPerSecond, 48000.5F);
    EXPECT_EQ(effect.configuration->UnlockForProcess(), S_OK);
    EXPECT_EQ(control->activeChannelMask, 0x63FU); // the unlock leaves them
    EXPECT_EQ(effect.lock(stereoFormat()), S_OK);
    EXPECT_EQ(control->activeChannelMask, 3U);
    EXPECT_EQ(control->activeFramesPerSecond, 96000.0F);
}

TEST_F(Capture, ALockTellsTheActiveFormatWithItsMask)
{
    Control control;
    EXPECT_EQ(effect.lock(floatFormat(1, 16000.0F, 4)), S_OK);
    EXPECT_EQ(control->activeChannelMask, 4U);
    EXPECT_EQ(control->activeFramesPerSecond, 16000.0F);
}

TEST(EndOfAnObject, TheLastOneClearsTheActiveFormat)
{
    const EndpointEntry entry("Render");
    Effect* effect = new Effect;
    ASSERT_EQ(effect->initialize(), S_OK);
    Control control;
    EXPECT_EQ(effect->lock(surroundFormat()), S_OK);
    delete effect; // while locked
    EXPECT_EQ(control->activeChannelMask, 0U);
    EXPECT_EQ(control->activeFramesPerSecond, 0.0F);
}

TEST_F(Render, TheFirstRecordOfAPathIsTheSnapshot)
{
    EXPECT_EQ(effect.lock(surroundFormat()), S_OK);
    Control control;
    SettingsRecord settings;
    settings.Reverb = 77;
    ASSERT_TRUE(control.deliver(settings, effect));
    EXPECT_EQ(effect.configuration->UnlockForProcess(), S_OK);
    EXPECT_EQ(effect.lock(surroundFormat()), S_OK); // a new path, with a record of its own
    const auto& record = effect.record();
    EXPECT_EQ(record.Reverb, 77U);
    EXPECT_EQ(record.applied, 0);
    EXPECT_GT(record.generation, 0U);
}

TEST_F(Render, APathThatCannotBeBuiltLeavesTheObjectLocked)
{
    EXPECT_EQ(effect.lock(surroundFormat(6)), E_UNEXPECTED); // six channels for the names of eight speakers
    EXPECT_EQ(effect.lock(surroundFormat()), APOERR_APO_LOCKED);
    EXPECT_EQ(effect.configuration->UnlockForProcess(), S_OK);
    EXPECT_EQ(effect.lock(surroundFormat()), S_OK);
}

TEST_F(Render, BlocksLongerThanThePathAllowsAreNotLocked)
{
    EXPECT_EQ(effect.lock(surroundFormat(), 1073), E_UNEXPECTED);
    EXPECT_EQ(effect.configuration->UnlockForProcess(), S_OK);
    EXPECT_EQ(effect.lock(surroundFormat(), 1072), S_OK);
}

TEST_F(Render, ThePathIsBuiltForTheInputsFrames)
{
    Connections connections(surroundFormat(), 1072);
    connections.out.u32MaxFrameCount = 1073;
    EXPECT_EQ(connections.lock(*effect.configuration), S_OK);
}

TEST_F(Render, AFailedLockLeavesThePreviousPath)
{
    EXPECT_EQ(effect.lock(surroundFormat()), S_OK);
    const auto* record = &effect.record();
    EXPECT_EQ(effect.configuration->UnlockForProcess(), S_OK);
    EXPECT_EQ(effect.lock(surroundFormat(6)), E_UNEXPECTED);
    EXPECT_EQ(&effect.record(), record);
    EXPECT_EQ(channelCount(effect), 6U); // Required: taken before the path is built
}

TEST_F(Render, ARefusedLockLeavesTheObjectUnlocked)
{
    EXPECT_EQ(effect.lock(floatFormat(8, 44100.0F, 0x63F)), APOERR_FORMAT_NOT_SUPPORTED);
    EXPECT_EQ(effect.configuration->UnlockForProcess(), APOERR_ALREADY_UNLOCKED);
}

TEST_F(Render, ACompressedFormatIsNotLocked)
{
    Connections connections(surroundFormat());
    connections.outFormat.compressed = true;
    EXPECT_EQ(connections.lock(*effect.configuration), APOERR_FORMAT_NOT_SUPPORTED); // the object's own question
    EXPECT_EQ(effect.configuration->UnlockForProcess(), APOERR_ALREADY_UNLOCKED);
}

// A media type that changes its mind behind the general checks. Of the input they read the format six times: for the
// cache, twice for each of the two questions, for the comparison; of the output five times.
TEST_F(Render, FailuresBehindTheGeneralChecksLeaveTheObjectLocked)
{
    Connections connections(surroundFormat());
    connections.inFormat.readsLeft = 6;
    EXPECT_EQ(connections.lock(*effect.configuration), E_NOTIMPL);
    EXPECT_EQ(effect.configuration->UnlockForProcess(), S_OK);
    connections.inFormat.readsLeft = 1000;
    connections.outFormat.readsLeft = 5;
    EXPECT_EQ(connections.lock(*effect.configuration), E_NOTIMPL);
    EXPECT_EQ(effect.configuration->UnlockForProcess(), S_OK);
}

// Each of the two questions has asked each format once whether it is compressed.
TEST_F(Render, AFormatThatTurnsCompressedBehindTheGeneralChecksIsNotLocked)
{
    for (Format Connections::*const changing : {&Connections::inFormat, &Connections::outFormat}) {
        Connections connections(surroundFormat());
        (connections.*changing).plainAnswersLeft = 2;
        EXPECT_EQ(connections.lock(*effect.configuration), APOERR_INVALID_CONNECTION_FORMAT);
        EXPECT_EQ(effect.configuration->UnlockForProcess(), S_OK); // Required: it stayed locked
        (connections.*changing).plainAnswersLeft = 2;
        (connections.*changing).changedResult = E_NOTIMPL;
        EXPECT_EQ(connections.lock(*effect.configuration), E_NOTIMPL);
        EXPECT_EQ(effect.configuration->UnlockForProcess(), S_OK);
    }
}

TEST_F(Render, ALockLeavesTheReferencesOfBothFormatsAsTheyWere)
{
    Connections connections(surroundFormat());
    EXPECT_EQ(connections.lock(*effect.configuration), S_OK);
    EXPECT_EQ(connections.inFormat.references, 1U);
    EXPECT_EQ(connections.outFormat.references, 1U);
    EXPECT_EQ(effect.configuration->UnlockForProcess(), S_OK);
}

// An integer output beside a float input: one question is answered on the corrected route, the other is refused in general.
TEST_F(Render, ARefusedLockLeavesTheReferencesOfBothFormatsAsTheyWere)
{
    const LeaksAreMeant meant; // the dropped proposal
    Connections connections(surroundFormat());
    connections.outFormat.format.guidFormatType = KSDATAFORMAT_SUBTYPE_PCM;
    EXPECT_EQ(connections.lock(*effect.configuration), APOERR_FORMAT_NOT_SUPPORTED);
    EXPECT_EQ(connections.inFormat.references, 1U);
    EXPECT_EQ(connections.outFormat.references, 1U);
}

TEST(Lifecycle, AnObjectThatWasNeverInitialisedRefusesALock)
{
    Effect effect;
    EXPECT_EQ(effect.lock(surroundFormat()), APOERR_NOT_INITIALIZED);
    EXPECT_EQ(effect.configuration->UnlockForProcess(), APOERR_ALREADY_UNLOCKED);
}

TEST(Lifecycle, AnObjectForDiscoveryRefusesALock)
{
    const EndpointEntry entry("Capture");
    Effect effect;
    ASSERT_EQ(effect.initialize(AUDIO_SIGNALPROCESSINGMODE_DEFAULT, TRUE), S_OK);
    EXPECT_EQ(effect.lock(voiceFormat()), APOERR_NOT_INITIALIZED);
    EXPECT_EQ(effect.configuration->UnlockForProcess(), APOERR_ALREADY_UNLOCKED); // with no levels to reset
}

TEST_F(Capture, AnUnlockResetsTheLevelsBeforeAnyTest)
{
    Control control;
    EXPECT_EQ(effect.lock(voiceFormat()), S_OK);
    for (const HRESULT result : {S_OK, APOERR_ALREADY_UNLOCKED}) {
        control->levels.fill(-3.0F);
        EXPECT_EQ(effect.configuration->UnlockForProcess(), result);
        for (const float level : control->levels)
            EXPECT_EQ(level, -120.0F);
    }
}

TEST_F(Render, AnUnlockLeavesTheLevels)
{
    Control control;
    EXPECT_EQ(effect.lock(surroundFormat()), S_OK);
    for (const HRESULT result : {S_OK, APOERR_ALREADY_UNLOCKED}) {
        control->levels.fill(-3.0F);
        EXPECT_EQ(effect.configuration->UnlockForProcess(), result);
        for (const float level : control->levels)
            EXPECT_EQ(level, -3.0F);
    }
}

TEST(Lifecycle, FrameCountsAndResetNeedNoState)
{
    Effect effect;
    EXPECT_EQ(effect.object->Reset(), S_OK);
    EXPECT_EQ(effect.realTime->CalcInputFrames(480), 480U);
    EXPECT_EQ(effect.realTime->CalcOutputFrames(481), 481U);
}

} // namespace
} // namespace quorel
