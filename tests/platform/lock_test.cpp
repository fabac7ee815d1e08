#include "platform/lock.h"

#include <gtest/gtest.h>

#include <mutex>
#include <thread>
#include <vector>

namespace quorel::platform {
namespace {

TEST(Lock, ATryWhileAnotherThreadHoldsItFailsAtOnceAndSucceedsAfterwards)
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

} // namespace
} // namespace quorel::platform
