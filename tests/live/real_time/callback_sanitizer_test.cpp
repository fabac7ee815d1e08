// SPDX-License-Identifier: MIT
// The live host's callbacks on the audio thread under the real-time sanitizer, which ends the program when they call what may
// wait.
#include "tests/live/real_time/callback_session.h"
#include "tests/support/rounds.h"

extern "C" {
void __rtsan_realtime_enter();
void __rtsan_realtime_exit();
}

namespace quorel {
namespace {

TEST(CallbackRealTimeSanitizer, FindsNothingWhateverTheQuantum)
{
    CallbackSession session;
    for (const std::uint32_t quantum : {480U, 512U, 48U, 857U, 441U}) {
        __rtsan_realtime_enter();
        session.run(quantum, 8 * rounds());
        __rtsan_realtime_exit();
        session.live.serve();
    }
    EXPECT_EQ(session.live.status.changes, 4U);
    tellWatched(std::uint64_t{5} * 2 * 8 * rounds());
}

} // namespace
} // namespace quorel
