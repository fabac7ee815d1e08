// SPDX-License-Identifier: MIT
// The protocol between a control application and the memory thread, and the starts and stops of handlers, in every order.
#include "settings/settings_handler.h"

#include "tests/settings_linux/every_order.h"
#include "tests/support/control_application.h"
#include "tests/support/stamp.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>

namespace quorel {
namespace {

using platform::faultyPlatform;
using testing::Contains;
using testing::ElementsAre;
using testing::Not;
using testing::UnorderedElementsAre;

constexpr const char* keptValues = "Software\\VEDRA\\QUOREL";

std::shared_ptr<SettingsHandler> start()
{
    return SettingsHandler::instance(SettingsHandler::layoutVersion);
}

SettingsRecord polled(SettingsHandler& handler)
{
    SettingsRecord record;
    handler.poll(record);
    return record;
}

// An event that another process made and holds, so that a control application finds it before this process's effect starts.
platform::Handle eventOfAnotherProcess()
{
    auto* access = platform::convertDescriptor("D:");
    auto* event = platform::createEvent(controlEventName, access);
    platform::freeDescriptor(access);
    return event;
}

// ---- The steps of one ---------------------------------------------------------------------------------------------------

TEST(Steps, TheMemoryThreadTakesAnUpdateOverInThisOrder)
{
    everyOrder(
        [](Orders& order) {
            const auto handler = start();
            ControlApplication control;
            order.settle();
            order.run({{"control", [&] { control.update(stamped(1), 1); }}});
            EXPECT_THAT(order.stepsOf("thread"), ElementsAre("waitForEither", "resetEvent createEvent Global\\QUORELEvent",
                                                             "read sequence", "lock", "read settings", "unlock"));
        },
        {.changes = 0});
}

TEST(Steps, AnEventWithoutANewSequenceIsResetAndTakesNoLock)
{
    everyOrder(
        [](Orders& order) {
            const auto handler = start();
            ControlApplication control;
            order.settle();
            order.run({{"control", [&] { control.signal(); }}});
            EXPECT_THAT(order.stepsOf("thread"),
                        ElementsAre("waitForEither", "resetEvent createEvent Global\\QUORELEvent", "read sequence"));
        },
        {.changes = 0});
}

// The snapshot stands under the lock while the block is read, while the kept values are read, and while they are written.
TEST(Steps, AStartTouchesTheSnapshotUnderTheLock)
{
    everyOrder([](Orders& order) {
        faultyPlatform().keys[keptValues];
        const auto handler = start();
        const auto steps = order.stepsOf("test");
        EXPECT_THAT(std::vector(steps.end() - 4, steps.end()),
                    ElementsAre("write settings", "unlock", "write levels", "startThread"));
        std::vector<std::string> underLock;
        bool locked = false;
        for (const auto& step : steps) {
            if (step == "lock" || step == "unlock")
                locked = step == "lock";
            else if (locked && !step.starts_with("queryValue EQBand"))
                underLock.push_back(step);
        }
        EXPECT_THAT(underLock, ElementsAre("read version", "read sequence", "read settings", "queryValue Enabled",
                                           "queryValue Settings", "queryValue noiseGate", "queryValue micEq", "queryValue Reverb",
                                           "queryValue MicNR", "closeKey", "write settings"));
    });
}

TEST(Steps, ASaveReadsTheSnapshotUnderTheLockAndClosesTheKeyInIt)
{
    everyOrder([](Orders& order) {
        auto handler = start();
        order.settle();
        const auto before = order.stepsOf("test").size();
        handler.reset();
        auto steps = order.stepsOf("test");
        steps.erase(steps.begin(), steps.begin() + static_cast<std::ptrdiff_t>(before));
        std::erase_if(steps, [](const std::string& step) { return step.starts_with("setNumber "); });
        EXPECT_THAT(steps, ElementsAre("write format", "createKey Software\\VEDRA\\QUOREL 131078", "lock", "closeKey", "unlock",
                                       "lock", "unlock", "setEvent createEvent unnamed", "waitFor startThread 500",
                                       "unmapView 1060", "closeHandle createMapping Global\\QUORELMem",
                                       "closeHandle createEvent Global\\QUORELEvent", "closeHandle startThread"));
    });
}

// ---- Updates ------------------------------------------------------------------------------------------------------------

// Whatever the order, nobody is left behind: the newest update is in the snapshot when everybody waits.
TEST(EveryOrder, TheNewestOfTwoUpdatesArrives)
{
    const auto orders = everyOrder([](Orders& order) {
        const auto handler = start();
        ControlApplication control;
        order.settle();
        order.run({{"control", [&] {
                        control.update(stamped(1), 1);
                        control.update(stamped(2), 2);
                    }}});
        const auto record = polled(*handler);
        EXPECT_EQ(record.blockSequence, 2U);
        EXPECT_EQ(record.Reverb, 2U);
        EXPECT_TRUE(isWhole(record));
    });
    std::printf("%zu orders\n", orders);
    EXPECT_GT(orders, 50U);
}

// Half-written updates may be seen, but not for good.
TEST(EveryOrder, TheNewestOfTwoUpdatesArrivesWordForWord)
{
    const auto orders = everyOrder(
        [](Orders& order) {
            const auto handler = start();
            ControlApplication control;
            order.settle();
            order.run({{"control", [&] {
                            control.update(stamped(1), 1);
                            control.update(stamped(2), 2);
                        }}});
            const auto record = polled(*handler);
            EXPECT_EQ(record.blockSequence, 2U);
            EXPECT_TRUE(isWhole(record) && record.Reverb == 2);
        },
        {.changes = 2, .everyAccess = true});
    std::printf("%zu orders\n", orders);
    EXPECT_GT(orders, 10U); // a copy is of few instructions or of many
}

TEST(EveryOrder, ASequenceThatComesBackWhileTheThreadSleepsIsNoNews)
{
    everyOrder([](Orders& order) {
        const auto handler = start();
        ControlApplication control;
        order.settle();
        const auto before = polled(*handler);
        order.run({{"control", [&] {
                        control.changeSequence(1);
                        control.changeSequence(0);
                        control.signal();
                    }}});
        EXPECT_EQ(polled(*handler).generation, before.generation);
    });
}

// A path's record is always a whole one of a single update, its sequence and its generation belong to it.
TEST(EveryOrder, APollGivesOneUpdateWithItsSequenceOrTheRecordBefore)
{
    const auto orders = everyOrder(
        [](Orders& order) {
            const auto handler = start();
            ControlApplication control;
            order.settle();
            auto record = polled(*handler);
            const auto first = record.generation;
            order.run({{"control", [&] { control.update(stamped(5), 1); }},
                       {"audio", [&] {
                            handler->poll(record);
                            EXPECT_TRUE(isWhole(record));
                            EXPECT_EQ(record.Reverb, record.blockSequence * 5);
                            EXPECT_EQ(record.generation, first + record.blockSequence);
                            EXPECT_EQ(record.applied, 0);
                        }}});
            handler->poll(record);
            EXPECT_EQ(record.Reverb, 5U);
        },
        {.changes = 3, .everyAccess = true});
    std::printf("%zu orders\n", orders);
    EXPECT_GT(orders, 10U); // a copy is of few instructions or of many
}

// ---- Starts and stops ---------------------------------------------------------------------------------------------------

TEST(EveryOrder, AnUpdateDuringAStartIsNotLost)
{
    const auto orders = everyOrder(
        [](Orders& order) {
            ControlApplication control; // holds a block
            eventOfAnotherProcess();
            auto* event = platform::openEvent(controlEventName);
            std::shared_ptr<SettingsHandler> handler;
            order.run({{"effect", [&] { handler = start(); }}, {"control", [&] {
                                                                    control.write(stamped(3));
                                                                    control.changeSequence(1);
                                                                    platform::setEvent(event);
                                                                }}});
            const auto record = polled(*handler);
            EXPECT_TRUE(isWhole(record) && record.Reverb == 3);
        },
        {.changes = 3});
    std::printf("%zu orders\n", orders);
    EXPECT_GT(orders, 50U);
}

// Behind the signal to stop the thread may be on its way into one more wait. It ends there, or with the update that ends it.
TEST(EveryOrder, AStopDuringAnUpdateKeepsOneOfTheTwoAndEndsTheThread)
{
    const auto orders = everyOrder(
        [](Orders& order) {
            auto handler = start();
            std::optional<ControlApplication> control{std::in_place};
            order.settle();
            control->update(stamped(1), 1);
            order.settle();
            order.run({{"control", [&] { control->update(stamped(2), 2); }}, {"release", [&] { handler.reset(); }}});

            const auto& values = faultyPlatform().keys[keptValues];
            const auto kept = values.at("Reverb");
            EXPECT_TRUE(kept == 1 || kept == 2) << kept;
            for (const auto& [name, value] : values)
                EXPECT_EQ(value, kept) << name;

            const auto& steps = order.steps();
            const auto stopped = std::find(steps.begin(), steps.end(), "release: setEvent createEvent unnamed");
            EXPECT_LE(std::count(stopped, steps.end(), "thread: waitForEither"), 1);
            control.reset();
            EXPECT_THAT(faultyPlatform().open(), UnorderedElementsAre("createEvent unnamed", "createMapping Global\\QUORELHRTF",
                                                                      "mapView Global\\QUORELHRTF"));
        },
        {.changes = 2});
    std::printf("%zu orders\n", orders);
    EXPECT_GT(orders, 50U);
}

// The last reference goes, and another effect object starts in the same moment and locks its stream: the stop of the one
// handler takes nothing from the next one.
TEST(EveryOrder, AStopLeavesTheNextHandlersFormatAndValuesAlone)
{
    const auto orders = everyOrder(
        [](Orders& order) {
            auto handler = start();
            order.settle();
            {
                ControlApplication control;
                control.update(stamped(7), 1);
            }
            order.settle();
            std::shared_ptr<SettingsHandler> next;
            order.run({{"release", [&] { handler.reset(); }}, {"effect", [&] {
                                                                   next = start();
                                                                   next->writeActiveFormat(0x63F, 48000.0F);
                                                               }}});
            const ControlApplication control;
            EXPECT_EQ(control.block->activeChannelMask, 0x63FU);
            EXPECT_EQ(control.block->activeFramesPerSecond, 48000.0F);
            const auto record = polled(*next);
            EXPECT_TRUE(isWhole(record) && record.Reverb == 7);
        },
        {.changes = 2});
    std::printf("%zu orders\n", orders);
    EXPECT_GT(orders, 50U);
}

// ---- A thread that does not end in time -----------------------------------------------------------------------------------

class LateThread {
public:
    // A handler with an update under way, whose thread is given no time.
    explicit LateThread(Orders& order) : handler(start())
    {
        faultyPlatform().fail("waitFor startThread 500");
        order.settle();
    }

    std::shared_ptr<SettingsHandler> handler;
    std::optional<ControlApplication> control{std::in_place};
};

TEST(EveryOrder, AThreadThatEndsLateClosesWhatWasLeft)
{
    bool wasLate = false;
    everyOrder(
        [&](Orders& order) {
            LateThread late(order);
            order.run({{"control", [&] { late.control->update(stamped(1), 1); }}, {"release", [&] { late.handler.reset(); }}});
            late.control.reset();
            EXPECT_THAT(faultyPlatform().open(), UnorderedElementsAre("createEvent unnamed", "createMapping Global\\QUORELHRTF",
                                                                      "mapView Global\\QUORELHRTF"));
            EXPECT_THAT(faultyPlatform().takeCalls(), Contains("keepModule"));
            wasLate |= testing::Value(order.stepsOf("thread"), Contains("closeHandle startThread"));
        },
        {.changes = 2});
    EXPECT_TRUE(wasLate);
}

TEST(EveryOrder, AThreadThatEndsLateTakesNoUpdateFromTheNext)
{
    const auto orders = everyOrder(
        [](Orders& order) {
            LateThread late(order);
            late.control->update(stamped(1), 1); // wakes the thread that will be late
            std::shared_ptr<SettingsHandler> next;
            order.run({{"effect", [&] {
                            late.handler.reset();
                            next = start();
                            EXPECT_EQ(polled(*next).blockSequence, 0U);
                            late.control->update(stamped(2), 2);
                        }}});
            const auto record = polled(*next);
            EXPECT_TRUE(isWhole(record) && record.Reverb == 2);
            EXPECT_EQ(record.blockSequence, 2U);
        },
        {.changes = 1});
    std::printf("%zu orders\n", orders);
    EXPECT_GT(orders, 50U);
}

} // namespace
} // namespace quorel
