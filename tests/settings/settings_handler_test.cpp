// SPDX-License-Identifier: MIT
#include "settings/settings_handler.h"

#include "core/signal_path.h"

#include "tests/settings/faulty_platform.h"
#include "tests/support/control_application.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <future>
#include <string>
#include <thread>

namespace quorel {
namespace {

using platform::faultyPlatform;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsSupersetOf;
using testing::Not;
using testing::UnorderedElementsAre;

constexpr const char* key = "Software\\VEDRA\\QUOREL";

SettingsRecord withReverb(std::uint32_t value)
{
    SettingsRecord record;
    record.Reverb = value;
    return record;
}

// A path's record after a poll.
SettingsRecord polled(SettingsHandler& handler)
{
    SettingsRecord record;
    handler.poll(record);
    return record;
}

class SettingsHandlerTest : public testing::Test {
protected:
    SettingsHandlerTest() { faultyPlatform().reset(); }

    // A handler whose thread waits.
    static std::shared_ptr<SettingsHandler> start()
    {
        auto handler = SettingsHandler::instance(SettingsHandler::layoutVersion);
        EXPECT_TRUE(eventually([] { return faultyPlatform().waits() > 0; }));
        return handler;
    }

    // The words in which a start fails when the named call does; empty when it succeeds.
    static std::string failureWithout(const std::string& call)
    {
        faultyPlatform().fail(call);
        try {
            start();
        } catch (const std::runtime_error& failure) {
            return failure.what();
        }
        return {};
    }

    // Waits until the memory thread has taken the block with this sequence over.
    static bool takenOver(SettingsHandler& handler, std::uint32_t sequence)
    {
        return eventually([&] { return polled(handler).blockSequence == sequence; });
    }
};

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

TEST_F(SettingsHandlerTest, AnExistingBlockIsTakenAsItStandsWithoutTheRegistryAndWithItsLevels)
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

TEST_F(SettingsHandlerTest, ABlockMadeByAnotherPartyWithANonZeroLayoutVersionIsAcceptedAsItStands)
{
    ControlApplication control;
    control.block->layoutVersion = 0x20001;
    control.write(withReverb(55));
    const auto handler = start();
    EXPECT_EQ(polled(*handler).Reverb, 55U);
    EXPECT_EQ(control.block->layoutVersion, 0x20001U);
}

TEST_F(SettingsHandlerTest, AnotherLayoutVersionIsWrittenIntoAFreshBlockAndLeavesTheGenerationAlone)
{
    auto access = platform::convertDescriptor("D:");
    auto* share = platform::createMapping(hrtfShareName, hrtfShareBytes, access);
    auto* view = static_cast<float*>(platform::mapView(share, hrtfShareBytes));
    view[0] = view[hrtfShareBytes / 4 - 1] = 1.0F;
    platform::freeDescriptor(access);

    const auto before = polled(*start()).generation;
    const auto handler = SettingsHandler::instance(0x10002);
    const ControlApplication control;
    EXPECT_EQ(control.block->layoutVersion, 0x10002U);
    EXPECT_EQ(control.block->levels[4], -120.0F);
    EXPECT_EQ(polled(*handler).generation, before);
    EXPECT_EQ(view[0], 0.0F);
    EXPECT_EQ(view[hrtfShareBytes / 4 - 1], 0.0F);
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

TEST_F(SettingsHandlerTest, AnUpdateBetweenTheReadingOfTheBlockAndTheThreadsStartIsNotLost)
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

TEST_F(SettingsHandlerTest, WhileSomebodyHoldsTheLockAPollReturnsAtOnceAndTheRecordStaysOld)
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

// ---- Stopping -----------------------------------------------------------------------------------------------------------

TEST_F(SettingsHandlerTest, TheLastReleaseClearsTheFormatSavesStopsAndClosesInOrder)
{
    auto handler = start();
    const ControlApplication control;
    handler->writeActiveFormat(0x63F, 48000.0F);
    std::uint32_t maskAtSaving = 1;
    faultyPlatform().doBefore("createKey Software\\VEDRA\\QUOREL 131078",
                              [&] { maskAtSaving = control.block->activeChannelMask; });
    faultyPlatform().takeCalls();
    handler.reset();
    EXPECT_EQ(maskAtSaving, 0U);
    EXPECT_EQ(control.block->activeFramesPerSecond, 0.0F);
    EXPECT_THAT(faultyPlatform().takeCalls(),
                ElementsAre("createKey Software\\VEDRA\\QUOREL 131078", "setNumber Enabled", "setNumber Settings",
                            "setNumber noiseGate", "setNumber micEq", "setNumber Reverb", "setNumber MicNR", "setNumber EQBand1",
                            "setNumber EQBand2", "setNumber EQBand3", "setNumber EQBand4", "setNumber EQBand5",
                            "setNumber EQBand6", "setNumber EQBand7", "setNumber EQBand8", "setNumber EQBand9", "closeKey",
                            "setEvent createEvent unnamed", "waitFor startThread 500", "unmapView 1060",
                            "closeHandle createMapping Global\\QUORELMem", "closeHandle createEvent Global\\QUORELEvent",
                            "closeHandle startThread"));
}

// Another access string or size would make objects that the other side can't open, or not in whole.
TEST_F(SettingsHandlerTest, TheObjectsAreMadeWithTheirSizesAndForEverybody)
{
    const auto handler = start();
    const std::string access = "D:(A;OICI;GA;;;BA)(A;OICI;FA;;;BU)(A;OICI;FA;;;LS)(A;OICI;FA;;;SY)";
    EXPECT_THAT(faultyPlatform().made, UnorderedElementsAre(testing::Pair("Global\\QUORELMem", testing::Pair(1060U, access)),
                                                            testing::Pair("Global\\QUORELHRTF", testing::Pair(65536U, access)),
                                                            testing::Pair("Global\\QUORELEvent", testing::Pair(0U, access))));
}

// Required: these stay open to the end of the process, so `hrtfData` stays a valid address.
TEST_F(SettingsHandlerTest, TheStopEventTheShareAndItsViewOutliveTheHandler)
{
    auto handler = start();
    const auto* data = polled(*handler).hrtfData;
    handler.reset();
    EXPECT_THAT(faultyPlatform().open(),
                UnorderedElementsAre("createEvent unnamed", "createMapping Global\\QUORELHRTF", "mapView Global\\QUORELHRTF"));
    EXPECT_EQ(data[hrtfShareBytes / 4 - 1], 0.0F);
}

TEST_F(SettingsHandlerTest, ALaterHandlerMakesNewOnesAndOverwritesTheAddress)
{
    const auto* first = polled(*start()).hrtfData;
    faultyPlatform().reset(); // the share is another one now
    const auto handler = start();
    const auto* second = polled(*handler).hrtfData;
    EXPECT_NE(first, second);
    EXPECT_NE(second, nullptr);
}

TEST_F(SettingsHandlerTest, AThreadThatDoesNotEndInTimeKeepsTheHandlerItsViewAndTheModule)
{
    auto handler = start();
    faultyPlatform().fail("setEvent createEvent unnamed");
    handler.reset();
    EXPECT_THAT(faultyPlatform().open(),
                IsSupersetOf({"startThread", "createMapping Global\\QUORELMem", "mapView Global\\QUORELMem"}));
    EXPECT_THAT(faultyPlatform().takeCalls(), Contains("keepModule"));
}

TEST_F(SettingsHandlerTest, AThreadThatEndsLateClosesWhatWasLeft)
{
    auto handler = start();
    faultyPlatform().fail("setEvent createEvent unnamed");
    handler.reset();
    ControlApplication().signal(); // wakes the thread, which finds that it is not to go on
    EXPECT_TRUE(eventually([] {
        return testing::Value(
            faultyPlatform().open(),
            UnorderedElementsAre("createEvent unnamed", "createMapping Global\\QUORELHRTF", "mapView Global\\QUORELHRTF"));
    }));
}

// The last reference goes while another effect object starts and locks its stream.
TEST_F(SettingsHandlerTest, AThousandCollisionsOfStopAndStartLoseNothing)
{
    auto handler = start();
    ControlApplication control;
    ASSERT_TRUE(takenOver(*handler, control.update(withReverb(170))));
    faultyPlatform().takeCalls();
    int fresh = 0;
    for (int i = 0; i < 1000; ++i) {
        const auto before = polled(*handler).generation;
        const auto work = [i] { // so that the two meet at many places
            for (std::atomic<int> turn = 0; turn < i % 50 * 20;)
                ++turn;
        };
        std::promise<void> there;
        std::thread release([&there, &work, old = std::move(handler)]() mutable {
            there.set_value(); // the other one wakes up while this one goes on
            work();
            old.reset();
        });
        there.get_future().wait();
        handler = SettingsHandler::instance(SettingsHandler::layoutVersion);
        handler->writeActiveFormat(0x63F, 48000.0F);
        const auto record = polled(*handler);
        release.join();
        fresh += record.generation != before ? 1 : 0;
        const auto calls = faultyPlatform().takeCalls();
        const auto stop = std::find(calls.begin(), calls.end(), "createKey Software\\VEDRA\\QUOREL 131078");
        const auto stopped = std::find(stop, calls.end(), "closeHandle startThread");
        ASSERT_EQ(std::count(stop, stopped, "convertDescriptor"), 0) << "collision " << i << ": a start within a stop";
        ASSERT_EQ(control.block->activeChannelMask, 0x63FU) << "collision " << i;
        ASSERT_EQ(control.block->activeFramesPerSecond, 48000.0F) << "collision " << i;
        ASSERT_EQ(record.Reverb, 170U) << "collision " << i;
    }
    std::printf("%d of the starts made another handler\n", fresh);
}

TEST_F(SettingsHandlerTest, AfterTheLastReleaseTheBlockComesBackFromAMappingThatAnotherProcessHolds)
{
    auto handler = start();
    ControlApplication control;
    ASSERT_TRUE(takenOver(*handler, control.update(withReverb(170))));
    handler.reset();
    control.write(withReverb(171)); // nobody takes this over, but it stands in the block
    handler = start();
    EXPECT_EQ(polled(*handler).Reverb, 171U);
}

TEST_F(SettingsHandlerTest, AfterTheLastReleaseTheBlockComesBackFromTheRegistryElse)
{
    auto handler = start();
    {
        ControlApplication control;
        auto settings = withReverb(170);
        settings.levelsEnabled = 1;
        ASSERT_TRUE(takenOver(*handler, control.update(settings)));
    }
    handler.reset();
    faultyPlatform().keys[key]["micEq"] = 2;
    handler = start();
    const auto record = polled(*handler);
    EXPECT_EQ(record.Reverb, 170U);
    EXPECT_EQ(record.micEq, 2U);
    EXPECT_EQ(record.levelsEnabled, 0);
}

TEST_F(SettingsHandlerTest, TheSnapshotsValuesAndGenerationOutliveTheHandler)
{
    auto handler = start();
    ControlApplication control;
    ASSERT_TRUE(takenOver(*handler, control.update(withReverb(170))));
    const auto before = polled(*handler);
    handler.reset();
    // A fresh block of another layout leaves the snapshot as it was: what is not kept elsewhere shines through.
    faultyPlatform().reset();
    handler = SettingsHandler::instance(0x10000);
    auto record = before;
    handler->poll(record);
    EXPECT_EQ(std::memcmp(&record, &before, sizeof record), 0) << "no newer generation";
    EXPECT_EQ(polled(*handler).Reverb, 170U);
    EXPECT_EQ(polled(*handler).generation, before.generation);
    handler.reset();
    handler = start();
    EXPECT_EQ(polled(*handler).generation, before.generation + 1) << "every path's older record is replaced";
}

TEST_F(SettingsHandlerTest, ANewHandlersFirstRecordHasNoBlockSequence)
{
    for (int life = 0; life < 3; ++life) {
        faultyPlatform().reset();
        auto handler = start();
        EXPECT_EQ(polled(*handler).blockSequence, 0U);
        ASSERT_TRUE(takenOver(*handler, ControlApplication().update(withReverb(170))));
    }
}

// A render path leaves a record alone whose sequence it has seen. The first update of every life counts from 0 to 1.
TEST_F(SettingsHandlerTest, ARenderPathTakesTheFirstUpdateOfEveryLife)
{
    for (int life = 0; life < 3; ++life) {
        faultyPlatform().reset(); // nobody holds the block of the life before
        auto handler = start();
        SignalPath path(SignalPath::Speaker{}, 2, 0x3, 16, 48000);
        std::array<float, 32> in{};
        std::array<float, 128> out{};
        handler->poll(*path->settings());
        path->process(in.data(), 16, out.data(), 16);

        SettingsRecord refused; // a set of the wrong length: whoever takes the record over throws
        refused.hrtfId = 1;
        refused.hrtfChannels = 2;
        refused.hrtfLength = 512;
        ControlApplication control;
        ASSERT_TRUE(takenOver(*handler, control.update(refused)));
        ASSERT_EQ(control.block->sequence, 1U);
        handler->poll(*path->settings());
        EXPECT_THROW(path->process(in.data(), 16, out.data(), 16), std::invalid_argument) << "life " << life;
    }
}

// ---- Failures -----------------------------------------------------------------------------------------------------------

TEST_F(SettingsHandlerTest, WithoutAControlBlockAStartFails)
{
    EXPECT_EQ(failureWithout("createMapping Global\\QUORELMem"), "CreateFileMapping for SHARED_MEM failed");
}

TEST_F(SettingsHandlerTest, WithoutAShareAStartFails)
{
    EXPECT_EQ(failureWithout("createMapping Global\\QUORELHRTF"), "CreateFileMapping for SHARED_HRTF failed");
}

TEST_F(SettingsHandlerTest, WithoutAViewOfTheBlockAStartFails)
{
    EXPECT_EQ(failureWithout("mapView Global\\QUORELMem"), "MapViewOfFile SHARED_MEM failed");
}

TEST_F(SettingsHandlerTest, WithoutAViewOfTheShareAStartFails)
{
    EXPECT_EQ(failureWithout("mapView Global\\QUORELHRTF"), "MapViewOfFile SHARED_HRTF failed");
}

TEST_F(SettingsHandlerTest, WithoutTheNamedEventAStartFails)
{
    EXPECT_EQ(failureWithout("createEvent Global\\QUORELEvent"), "CreateEvent failed");
}

TEST_F(SettingsHandlerTest, WithoutTheStopEventAStartFails)
{
    EXPECT_EQ(failureWithout("createEvent unnamed"), "CreateEvent failed");
}

TEST_F(SettingsHandlerTest, WithoutAThreadAStartFails)
{
    EXPECT_EQ(failureWithout("startThread"), "Failed to create hMemThread");
}

TEST_F(SettingsHandlerTest, WithoutTheDescriptorAStartFailsAndOpensNothing)
{
    EXPECT_EQ(failureWithout("convertDescriptor"), "Conversion of the security descriptor failed");
    EXPECT_THAT(faultyPlatform().open(), testing::IsEmpty());
}

TEST_F(SettingsHandlerTest, WithoutItsTurnAStartFailsAndOpensNothing)
{
    EXPECT_EQ(failureWithout("UserTurn"), "CreateFileMapping for SHARED_MEM failed");
    EXPECT_THAT(faultyPlatform().open(), testing::IsEmpty());
}

TEST_F(SettingsHandlerTest, AStartWhoseBlockNobodyCanFindFails)
{
    EXPECT_EQ(failureWithout("UserTurn::finish"), "CreateFileMapping for SHARED_MEM failed");
}

TEST_F(SettingsHandlerTest, AMappingThatCantBeOpenedIsMade)
{
    const ControlApplication control;
    control.block->layoutVersion = 7;
    EXPECT_EQ(failureWithout("openMapping Global\\QUORELMem"), "");
}

// Required.
TEST_F(SettingsHandlerTest, AFailedStartClosesNoneOfItsHandles)
{
    failureWithout("startThread");
    EXPECT_THAT(faultyPlatform().takeCalls(), Not(Contains(HasSubstr("closeHandle"))));
    EXPECT_THAT(faultyPlatform().open(),
                UnorderedElementsAre("createMapping Global\\QUORELMem", "createMapping Global\\QUORELHRTF",
                                     "mapView Global\\QUORELMem", "mapView Global\\QUORELHRTF", "createEvent Global\\QUORELEvent",
                                     "createEvent unnamed"));
}

// Required: the mutex is not given up after a failure. In a process of its own, since the waiting thread never comes back.
TEST_F(SettingsHandlerTest, AfterAFailureAnotherThreadsStartWaitsForEverAndTheSameThreadMayTryAgain)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            failureWithout("startThread");
            std::atomic<bool> asked = false;
            std::atomic<bool> answered = false;
            std::thread([&] {
                asked = true;
                try {
                    start();
                } catch (const std::runtime_error&) {
                }
                answered = true;
            }).detach();
            while (!asked)
                std::this_thread::yield();
            std::this_thread::sleep_for(std::chrono::milliseconds(300));
            faultyPlatform().reset();
            const bool works = start() != nullptr;
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
            std::_Exit(works && !answered ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
}

} // namespace
} // namespace quorel
