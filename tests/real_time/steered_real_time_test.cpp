// SPDX-License-Identifier: MIT
// Taking over new settings and telling the levels, around every block, neither allocates nor enters the kernel, whatever the
// other process and the memory thread do in the same moment.
#include "tests/real_time/steered_session.h"

#include "platform/lock.h"
#include "tests/real_time/watched_sessions.h"

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <stdexcept>
#include <thread>

namespace quorel {
namespace {

template <typename Session>
void expectNoAllocationWhileSteered(std::int32_t channels, std::uint32_t rate)
{
    const Child other = startSteering(channels);
    SteeredSession<Session> session(channels, rate);
    const auto before = allocationCount();
    runWhole(session);
    EXPECT_EQ(allocationCount(), before);
    EXPECT_TRUE(session.sawEnough());
}

TEST(SteeredRealTime, ARenderSessionAllocatesNothing)
{
    expectNoAllocationWhileSteered<SpeakerSession>(8, 48000);
}

TEST(SteeredRealTime, ACaptureSessionAllocatesNothing)
{
    expectNoAllocationWhileSteered<MicrophoneSession>(2, 48000);
}

#ifdef __linux__
template <typename Session>
void expectNoSystemCallWhileSteered(std::int32_t channels, std::uint32_t rate)
{
    const Child other = startSteering(channels);
    std::unique_ptr<SteeredSession<Session>> session;
    const int calls = systemCallsOf([&] { session = std::make_unique<SteeredSession<Session>>(channels, rate); },
                                    [&] {
                                        runWhole(*session);
                                        if (!session->sawEnough())
                                            throw std::runtime_error("too few updates");
                                    });
    EXPECT_EQ(calls, 0);
}

TEST(SteeredRealTime, ARenderSessionMakesNoSystemCall)
{
    expectNoSystemCallWhileSteered<SpeakerSession>(8, 48000);
}

TEST(SteeredRealTime, ACaptureSessionMakesNoSystemCall)
{
    expectNoSystemCallWhileSteered<MicrophoneSession>(2, 16000);
}

template <typename Session>
void expectNoFaultNorWaitWhileSteered(std::int32_t channels, std::uint32_t rate)
{
    const Child other = startSteering(channels);
    {
        SteeredSession<Session> first(channels, rate); // brings the program's own pages in
        runWhole(first);
    }
    const auto usage = leastUsage([&] { return std::make_unique<SteeredSession<Session>>(channels, rate); },
                                  [](SteeredSession<Session>& session) {
                                      runWhole(session);
                                      EXPECT_TRUE(session.sawEnough());
                                  });
    EXPECT_EQ(usage.faults, 0);
    EXPECT_EQ(usage.waits, 0);
}

TEST(SteeredRealTime, ARenderSessionTouchesNoMissingPageAndNeverWaits)
{
    expectNoFaultNorWaitWhileSteered<SpeakerSession>(8, 48000);
}

TEST(SteeredRealTime, ACaptureSessionTouchesNoMissingPageAndNeverWaits)
{
    expectNoFaultNorWaitWhileSteered<MicrophoneSession>(2, 16000);
}

// The audio thread meets the memory thread at the lock so rarely that a session can't show what happens then.
TEST(SteeredRealTime, TryingALockThatIsTakenMakesNoSystemCall)
{
    platform::Lock lock;
    const int calls = systemCallsOf([&] { lock.lock(); },
                                    [&] {
                                        for (int i = 0; i < 1000; ++i)
                                            if (lock.try_lock())
                                                throw std::runtime_error("taken twice");
                                    });
    EXPECT_EQ(calls, 0);
}

TEST(SteeredRealTime, GivingUpALockThatIsWaitedForMakesNoSystemCall)
{
    platform::Lock lock;
    const int calls = systemCallsOf(
        [&] {
            lock.lock();
            std::thread([&lock] {
                lock.lock();
                lock.unlock();
            }).detach();
            std::this_thread::sleep_for(std::chrono::milliseconds(20)); // it waits by now
        },
        [&] { lock.unlock(); });
    EXPECT_EQ(calls, 0);
}
#endif

} // namespace
} // namespace quorel

int main(int count, char** words)
{
    return quorel::runSteeredTests(count, words);
}
