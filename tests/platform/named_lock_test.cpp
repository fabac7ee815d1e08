// SPDX-License-Identifier: MIT
#include "platform/named_lock.h"

#include "tests/support/temporary_home.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <thread>
#include <vector>

namespace quorel::platform {
namespace {

constexpr const char* name = "Global\\QUORELLockOfTheTest";
constexpr const char* access = "D:(A;OICI;FA;;;BU)";

class NamedLockTest : public testing::Test {
protected:
    ~NamedLockTest() override { freeDescriptor(descriptor); }

    TemporaryHome home;
    Descriptor* descriptor = convertDescriptor(access);
};

TEST_F(NamedLockTest, OneThreadAtATimeHoldsIt)
{
    std::atomic<int> holders = 0;
    int entries = 0; // guarded by the lock alone
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([&] {
            for (int round = 0; round < 50; ++round) {
                const NamedLock lock(name, descriptor, 30000);
                ASSERT_TRUE(lock);
                EXPECT_EQ(++holders, 1);
                ++entries;
                --holders;
            }
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(entries, 200);
}

TEST_F(NamedLockTest, WhoWaitsInVainHasNothing)
{
    const NamedLock held(name, descriptor, 0);
    ASSERT_TRUE(held);
    std::thread([&] { // another thread: on Windows the holder itself may enter again
        const auto start = std::chrono::steady_clock::now();
        const NamedLock lock(name, descriptor, 50);
        EXPECT_FALSE(lock);
        EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(45)); // clocks of 15 ms and less
        const NamedLock other("Global\\QUORELOtherLockOfTheTest", descriptor, 0);
        EXPECT_TRUE(other);
    })
        .join();
}

// The holder is this test program itself, started again, which ends without giving anything up.
TEST_F(NamedLockTest, AProcessThatEndsGivesItUp)
{
    EXPECT_EXIT(
        {
            static const NamedLock held(name, descriptor, 0);
            std::_Exit(held ? 7 : 1);
        },
        testing::ExitedWithCode(7), "");
    const NamedLock lock(name, descriptor, 0);
    EXPECT_TRUE(lock);
}

} // namespace
} // namespace quorel::platform
