// SPDX-License-Identifier: MIT
// Starts of the settings handler that fail.
#include "settings/settings_handler.h"

#include "tests/settings/settings_handler_start.h"
#include "tests/support/control_application.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <thread>

namespace quorel {
namespace {

using platform::faultyPlatform;
using testing::Contains;
using testing::HasSubstr;
using testing::Not;
using testing::UnorderedElementsAre;

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
TEST_F(SettingsHandlerTest, AfterAFailureAnotherThreadsStartWaitsTheSameTriesAgain)
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
