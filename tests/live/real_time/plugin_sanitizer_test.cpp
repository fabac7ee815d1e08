// SPDX-License-Identifier: MIT
// The plug-ins' part of a host's audio thread under the real-time sanitizer, which ends the program when it calls what may wait.
#include "tests/live/real_time/plugin_session.h"

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
    for (int round = 0; round < 3; ++round) {
        session.order();
        session.run();
    }
    EXPECT_NE(session.speaker.made[1][0], 0.0F);
}

} // namespace
} // namespace quorel
