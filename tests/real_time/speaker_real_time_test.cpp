// SPDX-License-Identifier: MIT
// The audio thread's part of the render effect neither allocates nor enters the kernel.
#include "tests/real_time/sessions.h"

#include "tests/real_time/watched_sessions.h"
#ifdef __linux__
#include <sys/mman.h>
#include <unistd.h>
#endif

#include <gtest/gtest.h>

#include <memory>
#include <vector>

namespace quorel {
namespace {

TEST(RealTime, ASessionOfAnyLayoutAllocatesNothing)
{
    expectNoAllocation<SpeakerSession>({48000, 44100});
}

TEST(RealTime, AnAllocationWouldBeCounted)
{
    const auto before = allocationCount();
    auto block = std::make_unique<std::vector<float>>(1000);
    asm volatile("" : : "r"(block.get()) : "memory"); // or the compiler leaves both out
    block.reset();
    EXPECT_EQ(allocationCount(), before + 4);
}

#ifdef __linux__
TEST(RealTime, ASessionOfAnyLayoutMakesNoSystemCall)
{
    expectNoSystemCall<SpeakerSession>({48000, 44100});
}

TEST(RealTime, ASystemCallWouldBeCounted)
{
    EXPECT_EQ(systemCallsOf([] {}, [] { static_cast<void>(getppid()); }), 1);
    EXPECT_EQ(systemCallsOf([] {},
                            [] {
                                for (int i = 0; i < 3; ++i)
                                    static_cast<void>(getppid());
                            }),
              3);
}

TEST(RealTime, ASessionOfAnyLayoutTouchesNoMissingPageAndNeverWaits)
{
    expectNoFaultNorWait<SpeakerSession>({48000, 44100});
}

TEST(RealTime, AMissingPageAndAWaitWouldBeCounted)
{
    const auto before = threadUsage();
    auto* fresh = static_cast<char*>(mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    ASSERT_NE(fresh, MAP_FAILED);
    *static_cast<volatile char*>(fresh) = 1;
    usleep(1);
    const auto after = threadUsage();
    munmap(fresh, 4096);
    EXPECT_GE(after.faults, before.faults + 1);
    EXPECT_GE(after.waits, before.waits + 1);
}
#endif

} // namespace
} // namespace quorel
