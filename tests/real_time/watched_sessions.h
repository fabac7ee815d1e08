// SPDX-License-Identifier: MIT
// Whole sessions of a path, of every channel count and at the given rates, watched at the allocator, at the kernel's border and
// by the kernel's own counts.
//
// Session: as in sessions.h.
#pragma once

#include "tests/real_time/allocation_count.h"
#ifdef __linux__
#include "tests/real_time/system_calls.h"
#include "tests/real_time/thread_usage.h"
#endif

#include <gtest/gtest.h>

#include <initializer_list>
#include <memory>

namespace quorel {

template <typename Session>
void runWhole(Session& session)
{
    volatile const float sum = session.run(); // so that no work can be left out
    static_cast<void>(sum);
}

template <typename Session>
void expectNoAllocation(std::initializer_list<std::uint32_t> rates)
{
    for (std::int32_t channels = 1; channels <= 8; ++channels)
        for (const std::uint32_t rate : rates) {
            Session session(channels, rate);
            const auto before = allocationCount();
            runWhole(session);
            EXPECT_EQ(allocationCount(), before) << channels << " channels at " << rate;
        }
}

#ifdef __linux__
template <typename Session>
void expectNoSystemCall(std::initializer_list<std::uint32_t> rates)
{
    for (std::int32_t channels = 1; channels <= 8; ++channels)
        for (const std::uint32_t rate : rates) {
            std::unique_ptr<Session> session;
            const int calls =
                systemCallsOf([&] { session = std::make_unique<Session>(channels, rate); }, [&] { runWhole(*session); });
            EXPECT_EQ(calls, 0) << channels << " channels at " << rate;
        }
}

// A first session brings the program's own pages in; the second one's memory must be there from its first block on.
template <typename Session>
void expectNoFaultNorWait(std::initializer_list<std::uint32_t> rates)
{
    for (std::int32_t channels = 1; channels <= 8; ++channels)
        for (const std::uint32_t rate : rates) {
            Session first(channels, rate);
            runWhole(first);
            const auto usage = leastUsage([&] { return std::make_unique<Session>(channels, rate); }, runWhole<Session>);
            EXPECT_EQ(usage.faults, 0) << channels << " channels at " << rate;
            EXPECT_EQ(usage.waits, 0) << channels << " channels at " << rate;
        }
}
#endif

} // namespace quorel
