// SPDX-License-Identifier: MIT
// The audio thread's part of a live stream under the real-time sanitizer, which ends the program when it calls what may wait.
#include "tests/live/real_time/live_session.h"

extern "C" {
void __rtsan_realtime_enter();
void __rtsan_realtime_exit();
}

namespace quorel {
namespace {

TEST(LiveRealTimeSanitizer, FindsNothingWhateverTheQuantum)
{
    LiveSession session;
    for (const std::uint32_t quantum : {480U, 512U, 48U, 857U, 441U}) {
        __rtsan_realtime_enter();
        session.run(quantum);
        __rtsan_realtime_exit();
        session.serve();
    }
    EXPECT_EQ(session.status.changes, 4U);
}

} // namespace
} // namespace quorel
