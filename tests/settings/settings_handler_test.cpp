// SPDX-License-Identifier: MIT
#include "settings/settings_handler.h"

#include "tests/settings/settings_handler_start.h"
#include "tests/support/control_application.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>

namespace quorel {
namespace {

using platform::faultyPlatform;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

// ---- Starting -----------------------------------------------------------------------------------------------------------

TEST_F(SettingsHandlerTest, TwoEffectObjectsInAProcessShareOneHandlerAndOneThread)
{
    const auto first = start();
    const auto second = start();
    EXPECT_EQ(first, second);
    EXPECT_EQ(faultyPlatform().open().count("startThread"), 1U);
}

TEST_F(SettingsHandlerTest, AStartOpensOrMakesEverythingInOrder)
{
    const auto handler = start();
    EXPECT_THAT(faultyPlatform().takeCalls(),
                ElementsAre("convertDescriptor", "openMapping Global\\QUORELMem", "createMapping Global\\QUORELMem",
                            "openMapping Global\\QUORELHRTF", "createMapping Global\\QUORELHRTF", "mapView Global\\QUORELMem",
                            "mapView Global\\QUORELHRTF", "createEvent Global\\QUORELEvent", "freeDescriptor",
                            "createEvent unnamed", "openKey Software\\VEDRA\\QUOREL 131097", "startThread"));
}

TEST_F(SettingsHandlerTest, AFreshBlockIsZeroButForItsIdleLevels)
{
    const auto handler = start();
    const ControlApplication control;
    ControlBlock expected{};
    expected.levels.fill(-120.0F);
    EXPECT_EQ(std::memcmp(control.block, &expected, sizeof expected), 0);
}

TEST_F(SettingsHandlerTest, AnExistingBlockIsTakenAsItStandsWithItsLevels)
{
    ControlApplication control;
    control.write(withReverb(170));
    control.block->levels.fill(-30.0F);
    faultyPlatform().keys[key]["Reverb"] = 99;
    faultyPlatform().takeCalls();
    const auto handler = start();
    EXPECT_THAT(faultyPlatform().takeCalls(), Not(Contains(HasSubstr("openKey"))));
    EXPECT_EQ(polled(*handler).Reverb, 170U);
    EXPECT_EQ(control.block->levels[0], -30.0F);
    EXPECT_EQ(control.block->levels[8], -30.0F);
}

TEST_F(SettingsHandlerTest, AnotherPartysBlockWithALayoutVersionIsTakenAsItStands)
{
    ControlApplication control;
    control.block->layoutVersion = 0x20001;
    control.write(withReverb(55));
    const auto handler = start();
    EXPECT_EQ(polled(*handler).Reverb, 55U);
    EXPECT_EQ(control.block->layoutVersion, 0x20001U);
}

TEST_F(SettingsHandlerTest, AnotherLayoutVersionGoesIntoAFreshBlockAndRaisesNothing)
{
    auto access = platform::convertDescriptor("D:");
    auto* share = platform::createMapping(hrtfShareName, hrtfShareBytes, access);
    auto* view = static_cast<float*>(platform::mapView(share, hrtfShareBytes));
    view[0] = view[hrtfShareBytes / 4 - 1] = 1.0F;
    platform::freeDescriptor(access);

    const auto before = polled(*start()).generation;
    const auto handler = SettingsHandler::instance(0x10002);
    ControlApplication control;
    ControlBlock expected{};
    expected.layoutVersion = 0x10002;
    expected.levels.fill(-120.0F);
    EXPECT_EQ(std::memcmp(control.block, &expected, sizeof expected), 0);
    EXPECT_EQ(polled(*handler).generation, before);
    EXPECT_EQ(view[0], 0.0F);
    EXPECT_EQ(view[hrtfShareBytes / 4 - 1], 0.0F);
    EXPECT_TRUE(takenOver(*handler, control.update(withReverb(170))));
}

TEST_F(SettingsHandlerTest, TheFirstRecordOfAHandlerCarriesNoBlockSequence)
{
    ControlApplication control;
    control.changeSequence(17);
    const auto handler = start();
    const auto record = polled(*handler);
    EXPECT_GT(record.generation, 0U);
    EXPECT_EQ(record.blockSequence, 0U);
}

TEST_F(SettingsHandlerTest, AnUpdateBetweenTheReadingAndTheThreadsStartIsNotLost)
{
    ControlApplication control;
    faultyPlatform().doBefore("startThread", [&] {
        control.write(withReverb(60));
        control.changeSequence(1);
        ControlApplication().signal();
    });
    const auto handler = start();
    EXPECT_TRUE(takenOver(*handler, 1));
    EXPECT_EQ(polled(*handler).Reverb, 60U);
}

// ---- Following the block ------------------------------------------------------------------------------------------------

TEST_F(SettingsHandlerTest, AnUpdateReachesARecordWithItsSequenceAndANewGeneration)
{
    const auto handler = start();
    ControlApplication control;
    const auto before = polled(*handler);
    auto settings = withReverb(170);
    settings.EQBand[4] = -40;
    settings.hrtfChannels = 8;
    ASSERT_TRUE(takenOver(*handler, control.update(settings)));
    const auto after = polled(*handler);
    EXPECT_EQ(after.Reverb, 170U);
    EXPECT_EQ(after.EQBand[4], -40);
    EXPECT_EQ(after.hrtfChannels, 8U);
    EXPECT_EQ(after.generation, before.generation + 1);
    EXPECT_EQ(after.applied, 0);
}

TEST_F(SettingsHandlerTest, ARecordIsTakenWhileNobodyCanChangeIt)
{
    const auto handler = start();
    ControlApplication control;
    ASSERT_TRUE(takenOver(*handler, control.update(withReverb(170))));
    SettingsRecord record;
    std::uint32_t held = 0;
    faultyPlatform().doBefore("unlock", [&] { held = record.Reverb; });
    handler->poll(record);
    EXPECT_EQ(held, 170U);
    faultyPlatform().doBefore("unlock", {});
}

TEST_F(SettingsHandlerTest, ASequenceThatGoesDownCountsAsAChange)
{
    const auto handler = start();
    ControlApplication control;
    control.update(withReverb(1), 100);
    ASSERT_TRUE(takenOver(*handler, 100));
    control.update(withReverb(2), 99);
    EXPECT_TRUE(takenOver(*handler, 99));
    EXPECT_EQ(polled(*handler).Reverb, 2U);
}

TEST_F(SettingsHandlerTest, ASequenceThatWrapsCountsAsAChange)
{
    const auto handler = start();
    ControlApplication control;
    control.update(withReverb(1), 0xFFFFFFFF);
    ASSERT_TRUE(takenOver(*handler, 0xFFFFFFFF));
    control.update(withReverb(2), 0);
    EXPECT_TRUE(takenOver(*handler, 0));
    EXPECT_EQ(polled(*handler).Reverb, 2U);
}

TEST_F(SettingsHandlerTest, AnEventWithAnUnchangedSequenceRefreshesNothing)
{
    ControlApplication earlier;
    earlier.changeSequence(17);
    const auto handler = start();
    ControlApplication control;
    const auto before = polled(*handler);
    faultyPlatform().takeCalls();
    control.write(withReverb(170));
    control.signal();
    ASSERT_TRUE(eventually([] { return testing::Value(faultyPlatform().takeCalls(), Contains(HasSubstr("resetEvent"))); }));
    // The thread has come round once more when it takes the next update, and only then the new value is there.
    ASSERT_TRUE(takenOver(*handler, control.update(withReverb(171))));
    EXPECT_EQ(polled(*handler).generation, before.generation + 1);
}

TEST_F(SettingsHandlerTest, TwoUpdatesInQuickSuccessionMayAppearAsTheNewestAlone)
{
    const auto handler = start();
    ControlApplication control;
    const auto before = polled(*handler);
    control.write(withReverb(1));
    control.changeSequence(7); // and before the thread has woken up:
    ASSERT_TRUE(takenOver(*handler, control.update(withReverb(2))));
    EXPECT_EQ(polled(*handler).Reverb, 2U);
    EXPECT_EQ(polled(*handler).generation, before.generation + 1);
}

TEST_F(SettingsHandlerTest, WhileTheLockIsHeldAPollReturnsAtOnceWithTheOldRecord)
{
    const auto handler = start();
    SettingsRecord record = polled(*handler);
    ControlApplication control;
    ASSERT_TRUE(takenOver(*handler, control.update(withReverb(9))));
    const auto old = record;

    faultyPlatform().locksAreTaken = true;
    handler->poll(record);
    EXPECT_EQ(std::memcmp(&record, &old, sizeof record), 0);

    faultyPlatform().locksAreTaken = false;
    handler->poll(record);
    EXPECT_EQ(record.generation, old.generation + 1);
    EXPECT_EQ(record.Reverb, 9U);
}

TEST_F(SettingsHandlerTest, APollWithoutNewsLeavesTheRecordAlone)
{
    const auto handler = start();
    SettingsRecord record = polled(*handler);
    record.applied = 1;
    record.Reverb = 77;
    handler->poll(record);
    EXPECT_EQ(record.applied, 1);
    EXPECT_EQ(record.Reverb, 77U);
}

TEST_F(SettingsHandlerTest, TheEffectTellsItsFormatAndItsLevels)
{
    const auto handler = start();
    const ControlApplication control;
    handler->writeActiveFormat(0x63F, 48000.0F);
    std::array<float, 9> levels{};
    for (std::size_t band = 0; band < levels.size(); ++band)
        levels[band] = -10.0F * static_cast<float>(band);
    handler->writeLevels(levels.data());
    EXPECT_EQ(control.block->activeChannelMask, 0x63FU);
    EXPECT_EQ(control.block->activeFramesPerSecond, 48000.0F);
    EXPECT_EQ(control.block->levels, levels);
    handler->writeIdleLevels();
    EXPECT_THAT(control.block->levels, testing::Each(-120.0F));
}

TEST_F(SettingsHandlerTest, AFailedWaitEndsTheThread)
{
    faultyPlatform().fail("waitForEither");
    auto handler = start();
    ControlApplication control;
    control.update(withReverb(3));
    handler.reset(); // would take half a second if the thread were still alive, and keep everything open
    EXPECT_THAT(faultyPlatform().open(), Not(Contains("startThread")));
}

} // namespace
} // namespace quorel
