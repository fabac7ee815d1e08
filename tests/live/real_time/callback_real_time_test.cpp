// SPDX-License-Identifier: MIT
// The live host's callbacks on the audio thread, watched at the allocator and at the kernel's border.
#include "tests/live/real_time/callback_session.h"
#include "tests/real_time/allocation_count.h"
#include "tests/real_time/system_calls.h"
#include "tests/support/rounds.h"

#include <ctime>

namespace quorel {
namespace {

constexpr std::uint32_t quanta[] = {480, 512, 48, 857, 441}; // each needs another path than the one before

TEST(CallbackRealTime, AllocatesNothingWhateverTheQuantum)
{
    CallbackSession session;
    for (const std::uint32_t quantum : quanta) {
        const auto before = threadAllocationCount();
        session.run(quantum, 8 * rounds());
        EXPECT_EQ(threadAllocationCount(), before) << quantum;
        session.live.serve();
    }
    EXPECT_EQ(session.live.status.changes, 4U);
    tellWatched(std::size(quanta) * 2 * 8 * rounds());
}

// Where the clock is read by the kernel alone, each callback reads it twice.
TEST(CallbackRealTime, MakesNoSystemCallWhateverTheQuantum)
{
    const int clockCalls = systemCallsOf([] {},
                                         [] {
                                             timespec time{};
                                             clock_gettime(CLOCK_MONOTONIC, &time);
                                         });
    std::unique_ptr<CallbackSession> session;
    const int calls = systemCallsOf(
        [&] {
            session = std::make_unique<CallbackSession>();
            session->run(512);
            session->live.serve(); // a path for 512 frames is there, and its first cycle takes it
        },
        [&] {
            session->run(512, 8 * rounds());
            session->run(480, 8 * rounds());
        });
    EXPECT_EQ(calls, clockCalls * 2 * 2 * 16 * static_cast<int>(rounds()));
    tellWatched(std::uint64_t{2} * 16 * rounds());
}

TEST(CallbackRealTime, PassesSoundOnAndCountsWhatTheClockJumpsOver)
{
    CallbackSession session;
    session.run(480);
    EXPECT_EQ(session.graph.givenBy("quorel.speaker.output"), 480U);
    EXPECT_EQ(session.graph.givenBy("quorel.microphone"), 480U);
    EXPECT_GT(session.graph.peakOf("quorel.speaker.output"), 0.001F);
    EXPECT_GT(session.graph.peakOf("quorel.microphone"), 0.0F);
    for (const StreamStatus* status : {&session.live.status, &session.captureStatus}) {
        EXPECT_EQ(status->calls, 8U);
        EXPECT_EQ(status->gaps, 1U);
        EXPECT_EQ(status->gapFrames, 480U);
        EXPECT_EQ(status->quantum, 480U);
    }
}

} // namespace
} // namespace quorel
