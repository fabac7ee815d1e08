// SPDX-License-Identifier: MIT
// The audio thread's part of a live stream, with quanta that change and all that comes of it, watched at the allocator and at
// the kernel's border.
#include "tests/live/real_time/live_session.h"
#include "tests/real_time/allocation_count.h"
#include "tests/real_time/system_calls.h"

namespace quorel {
namespace {

TEST(LiveRealTime, AllocatesNothingWhateverTheQuantum)
{
    LiveSession session;
    for (const std::uint32_t quantum : {480U, 512U, 48U, 857U, 441U}) {
        const auto before = threadAllocationCount();
        session.run(quantum);
        EXPECT_EQ(threadAllocationCount(), before) << quantum;
        session.serve();
    }
    EXPECT_EQ(session.status.changes, 4U);
}

TEST(LiveRealTime, MakesNoSystemCallWhateverTheQuantum)
{
    std::unique_ptr<LiveSession> session;
    const int calls = systemCallsOf(
        [&] {
            session = std::make_unique<LiveSession>();
            session->run(512);
            session->serve(); // a stream of 512 frames is there, and its first call takes it
        },
        [&] {
            session->run(512);
            session->run(480);
        });
    EXPECT_EQ(calls, 0);
}

} // namespace
} // namespace quorel
