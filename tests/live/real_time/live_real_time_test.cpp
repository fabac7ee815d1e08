// SPDX-License-Identifier: MIT
// The audio thread's part of a live stream, with quanta that change and all that comes of it, watched at the allocator and at
// the kernel's border.
#include "tests/live/real_time/live_session.h"
#include "tests/real_time/allocation_count.h"
#include "tests/real_time/system_calls.h"

#include <ctime>
#include <iostream>

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

#ifdef NDEBUG // of an optimised build
// A change of the quantum may be silent for 50 ms: no path until it is built, and what waiting for the processor and a period add.
TEST(LiveRealTime, BuildsAPathInHalfTheSilenceThatAChangeMayHave)
{
    const auto processorMs = [] {
        timespec time{};
        clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time); // which other programs do not count in
        return 1e3 * static_cast<double>(time.tv_sec) + 1e-6 * static_cast<double>(time.tv_nsec);
    };
    LiveSession session;
    double most = 0;
    for (const std::uint32_t quantum : {512U, 480U, 848U, 857U, 32U}) {
        session.run(quantum); // asks for its path
        const double before = processorMs();
        session.serve();
        most = std::max(most, processorMs() - before);
    }
    EXPECT_LT(most, 25.0);
    EXPECT_EQ(session.status.changes, 5U);
    std::cout << "a path takes at most " << most << " ms of a processor\n";
}
#endif

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
