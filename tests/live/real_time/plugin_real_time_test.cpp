// SPDX-License-Identifier: MIT
// The plug-ins' part of a host's audio thread, watched at the allocator and at the kernel's border.
#include "tests/live/real_time/plugin_session.h"
#include "tests/real_time/allocation_count.h"
#include "tests/real_time/system_calls.h"
#include "tests/support/rounds.h"

#include <gtest/gtest.h>

#include <memory>

namespace quorel {
namespace {

std::uint64_t before = 0;
std::uint64_t allocations = 0;

TEST(PluginRealTime, AllocatesAndReleasesNothing)
{
    PluginSession session;
    session.watch([] { before = threadAllocationCount(); }, [] { allocations += threadAllocationCount() - before; });
    for (std::uint32_t round = 0; round < 3 * rounds(); ++round) {
        session.order();
        session.run();
    }
    EXPECT_EQ(allocations, 0U);
    tellWatched(std::uint64_t{3} * rounds() * PluginSession::blocks);
    EXPECT_NE(session.speaker.made[1][0], 0.0F);
}

TEST(PluginRealTime, MakesNoSystemCall)
{
    std::unique_ptr<PluginSession> session;
    const int calls = systemCallsOf(
        [&] {
            session = std::make_unique<PluginSession>();
            session->order();
        },
        [&] { session->run(); });
    EXPECT_EQ(calls, 0);
}

} // namespace
} // namespace quorel
