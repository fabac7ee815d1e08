// SPDX-License-Identifier: MIT
#include "platform/lock.h"

#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <mutex>
#include <thread>
#include <vector>

namespace quorel::platform {
namespace {

TEST(Lock, ATryFailsAtOnceWhileAnotherThreadHoldsIt)
{
    Lock lock;
    lock.lock();
    std::thread([&] { EXPECT_FALSE(lock.try_lock()); }).join();
    lock.unlock();
    std::thread([&] {
        EXPECT_TRUE(lock.try_lock());
        lock.unlock();
    }).join();
}

TEST(Lock, LetsOneThreadInAtATime)
{
    Lock lock;
    int count = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([&] {
            for (int k = 0; k < 10000; ++k) {
                const std::lock_guard guard(lock);
                ++count;
            }
        });
    for (auto& thread : threads)
        thread.join();
    EXPECT_EQ(count, 40000);
}

TEST(ModuleLock, LetsOneThreadInAtATime)
{
    static constinit ModuleLock lock;
    int count = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([&] {
            for (int k = 0; k < 10000; ++k) {
                const std::lock_guard guard(lock);
                ++count;
            }
        });
    for (auto& thread : threads)
        thread.join();
    EXPECT_EQ(count, 40000);
}

// Two entries, and after each of them a look whether another thread could get in.
TEST(ModuleLock, ItsHolderMayTakeItAgainAndGivesItUpOnce)
{
    using namespace std::chrono_literals;
    static constinit ModuleLock lock;
    lock.lock();
    lock.lock();
    auto other = std::async(std::launch::async, [] {
        lock.lock();
        lock.unlock();
    });
    EXPECT_EQ(other.wait_for(20ms), std::future_status::timeout);
    lock.unlock();
    EXPECT_EQ(other.wait_for(20ms), std::future_status::timeout);
    lock.unlock();
    EXPECT_EQ(other.wait_for(1min), std::future_status::ready);
}

} // namespace
} // namespace quorel::platform
