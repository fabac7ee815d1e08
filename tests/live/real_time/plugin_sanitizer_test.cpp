// SPDX-License-Identifier: MIT
// The plug-ins' part of a host's audio thread under the real-time sanitizer, which ends the program when it calls what may wait.
#include "tests/live/real_time/plugin_session.h"
#include "tests/support/rounds.h"

#include <gtest/gtest.h>

extern "C" {
void __rtsan_realtime_enter();
void __rtsan_realtime_exit();
}

namespace quorel {
namespace {

TEST(PluginRealTimeSanitizer, FindsNothing)
{
    PluginSession session;
    session.watch(__rtsan_realtime_enter, __rtsan_realtime_exit);
    for (std::uint32_t round = 0; round < 3 * rounds(); ++round) {
        session.order();
        session.run();
    }
    EXPECT_NE(session.speaker.made[1][0], 0.0F);
    tellWatched(std::uint64_t{3} * rounds() * PluginSession::blocks);
}

} // namespace
} // namespace quorel
