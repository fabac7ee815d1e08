// SPDX-License-Identifier: MIT
#include "live/scheduling.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <future>
#include <thread>
#include <unistd.h>

namespace quorel {
namespace {

// What a thread of its own tells of itself once it has asked for this; nothing where the user may not have it.
std::string told(int policy, int priority)
{
    std::promise<std::string> told;
    std::thread([&] {
        const sched_param wanted{priority};
        const bool had = sched_setscheduler(0, policy, &wanted) == 0;
        told.set_value(had ? schedulingOf(gettid()) : "");
    }).join();
    return told.get_future().get();
}

TEST(Scheduling, OfAnOrdinaryThreadIsNormal)
{
    EXPECT_EQ(told(SCHED_OTHER, 0), "normal");
    EXPECT_EQ(told(SCHED_BATCH, 0), "normal");
}

TEST(Scheduling, OfAThreadThatIsNotThereIsUnknown)
{
    EXPECT_EQ(schedulingOf(-1), "unknown");
}

TEST(Scheduling, InRealTimeIsNamedWithItsPriority)
{
    if (told(SCHED_FIFO, 2).empty())
        GTEST_SKIP() << "this user has no real-time scheduling";
    EXPECT_EQ(told(SCHED_FIFO, 2), "FIFO 2");
    EXPECT_EQ(told(SCHED_RR, 3), "round robin 3");
    EXPECT_EQ(told(SCHED_FIFO | SCHED_RESET_ON_FORK, 4), "FIFO 4"); // as the portal gives it
}

} // namespace
} // namespace quorel
