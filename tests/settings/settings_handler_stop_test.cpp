// SPDX-License-Identifier: MIT
// How the settings handler ends, and what outlives it.
#include "settings/settings_handler.h"

#include "core/signal_path.h"

#include "tests/settings/settings_handler_start.h"
#include "tests/support/control_application.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
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
using testing::IsSupersetOf;
using testing::UnorderedElementsAre;

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

TEST_F(SettingsHandlerTest, AThreadThatIsLateKeepsTheHandlerItsViewAndTheModule)
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

TEST_F(SettingsHandlerTest, TheBlockComesBackFromAMappingThatAnotherProcessHolds)
{
    auto handler = start();
    ControlApplication control;
    ASSERT_TRUE(takenOver(*handler, control.update(withReverb(170))));
    handler.reset();
    control.write(withReverb(171)); // nobody takes this over, but it stands in the block
    handler = start();
    EXPECT_EQ(polled(*handler).Reverb, 171U);
}

TEST_F(SettingsHandlerTest, TheBlockComesBackFromTheRegistryElse)
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

} // namespace
} // namespace quorel
