// SPDX-License-Identifier: MIT
// What is shared among processes of one user, and their turns to make it.
#include "platform/refusal.h"
#include "platform/sharing.h"
#include "tests/support/temporary_home.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <string>
#include <sys/file.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace quorel::platform {
namespace {

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

constexpr const char* memory = "Global\\QUORELTestMem";

Handle make()
{
    return createMapping(memory, 1060, convertDescriptor("D:(A;;GA;;;BA)"));
}

class SharingLinuxTest : public testing::Test {
protected:
    // Another process of the user, which does this, says so and waits to be killed.
    template <typename Work>
    pid_t otherProcess(Work work)
    {
        int ends[2];
        EXPECT_EQ(pipe(ends), 0);
        const pid_t child = fork();
        if (child == 0) {
            work();
            static_cast<void>(write(ends[1], "r", 1));
            for (;;)
                ::pause();
        }
        char ready = 0;
        EXPECT_EQ(read(ends[0], &ready, 1), 1);
        close(ends[0]);
        close(ends[1]);
        return child;
    }

    static void end(pid_t process)
    {
        kill(process, SIGKILL);
        waitpid(process, nullptr, 0);
    }

    TemporaryHome home;
};

TEST_F(SharingLinuxTest, OneProcessAtATimeHasIt)
{
    const pid_t other = otherProcess([] { static UserTurn held(0); });
    const auto start = Clock::now();
    EXPECT_FALSE(UserTurn(50));
    EXPECT_GE(Clock::now() - start, 50ms);
    EXPECT_EQ(lastRefusal().error, EBUSY);
    EXPECT_EQ(lastRefusal().path, home.path() / "run/quorel/lock.QUORELTurn");
    end(other);
    EXPECT_TRUE(UserTurn(5000)) << "a process that ends gives it up";
}

TEST_F(SharingLinuxTest, WhatIsMadeIsFoundFromTheFinishOn)
{
    UserTurn turn(0);
    const auto made = make();
    ASSERT_NE(made, nullptr);
    EXPECT_EQ(openMapping(memory), nullptr);
    EXPECT_TRUE(turn.finish());
    const auto found = openMapping(memory);
    EXPECT_NE(found, nullptr);
    closeHandle(found);
    closeHandle(made);
}

TEST_F(SharingLinuxTest, WhoMakesWithoutATurnWaitsForTheOthersEndOfIt)
{
    const pid_t other = otherProcess([] {
        static UserTurn turn(0);
        static_cast<unsigned char*>(mapView(make(), 1060))[0] = 7;
        std::thread([] {
            std::this_thread::sleep_for(100ms);
            turn.finish();
            turn.~UserTurn();
        }).detach();
    });
    const auto found = make();
    ASSERT_NE(found, nullptr);
    auto* bytes = static_cast<unsigned char*>(mapView(found, 1060));
    EXPECT_EQ(bytes[0], 7);
    unmapView(bytes, 1060);
    closeHandle(found);
    end(other);
}

// The next one must not find memory that is not filled, even while the killed process is still on its way out.
TEST_F(SharingLinuxTest, WhatAProcessThatEndsInItsTurnHadMadeIsFoundByNobody)
{
    const pid_t killed = otherProcess([] {
        const UserTurn turn(0);
        static_cast<unsigned char*>(mapView(make(), 1060))[0] = 9;
    }); // holds the memory still, and has lost the turn without finishing it
    EXPECT_EQ(openMapping(memory), nullptr);
    const auto made = make();
    ASSERT_NE(made, nullptr);
    auto* bytes = static_cast<unsigned char*>(mapView(made, 1060));
    EXPECT_EQ(bytes[0], 0);
    unmapView(bytes, 1060);
    closeHandle(made);
    end(killed);
    std::size_t left = 0;
    EXPECT_EQ(openMapping(memory), nullptr);
    for (const auto& entry : std::filesystem::directory_iterator(home.path() / "run/quorel"))
        left += entry.path().filename().string().starts_with("memory.") ? 1 : 0;
    EXPECT_EQ(left, 0U);
}

TEST_F(SharingLinuxTest, AMappingThatWasLeftOpenIsTheSameInTheNextTurnWithItsView)
{
    Handle share = nullptr;
    void* view = nullptr;
    {
        UserTurn turn(0);
        share = make();
        view = mapView(share, 1060);
        EXPECT_TRUE(turn.finish());
    }
    leaveOpen(share);
    const auto outside = openMapping(memory);
    EXPECT_NE(outside, share) << "who closes it later closes his own";
    closeHandle(outside);

    const UserTurn turn(0);
    const auto again = openMapping(memory);
    EXPECT_EQ(again, share);
    EXPECT_EQ(mapView(again, 1060), view);
    leaveOpen(again);
}

TEST_F(SharingLinuxTest, AnEventThatWasLeftOpenIsTheNextUnnamedOneAndClear)
{
    const auto event = createEvent(nullptr, nullptr);
    setEvent(event);
    leaveOpen(event);
    const auto again = createEvent(nullptr, nullptr);
    EXPECT_EQ(again, event);
    EXPECT_FALSE(waitFor(again, 0));
    const auto other = createEvent(nullptr, nullptr);
    EXPECT_NE(other, event);
    closeHandle(other);
    closeHandle(again);
}

// Nobody knows what it missed; who compares finds that it missed nothing.
TEST_F(SharingLinuxTest, WhoOpensAnEventOfOthersFindsItSet)
{
    const pid_t other = otherProcess([] { createEvent("Global\\QUORELTestEvent", nullptr); });
    const auto made = createEvent("Global\\QUORELTestEvent", nullptr);
    EXPECT_TRUE(waitFor(made, 0));
    EXPECT_TRUE(resetEvent(made));
    const auto again = openEvent("Global\\QUORELTestEvent");
    EXPECT_FALSE(waitFor(again, 0)) << "this process has it already";
    closeHandle(again);
    closeHandle(made);
    end(other);
}

// A process that is stopped, or means it ill, keeps the user's directory to itself.
TEST_F(SharingLinuxTest, NobodyWaitsForTheDirectoryForMoreThanTwoSeconds)
{
    closeHandle(make());
    const int held = open((home.path() / "run/quorel").c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    ASSERT_EQ(flock(held, LOCK_EX), 0);
    const auto start = Clock::now();
    EXPECT_EQ(openMapping(memory), nullptr);
    EXPECT_GE(Clock::now() - start, 2000ms);
    EXPECT_EQ(lastRefusal().error, EBUSY);
    EXPECT_EQ(lastRefusal().path, home.path() / "run/quorel");
    close(held);
}

} // namespace
} // namespace quorel::platform
