// SPDX-License-Identifier: MIT
// A real-time sanitizer's run-time stands behind the C library's functions and ends the program, with a stack trace, when the
// audio thread calls one that may wait: allocation, mutexes, condition variables, sleep, files and sockets.
#include "tests/real_time/effect_session.h"
#include "tests/real_time/steered_session.h"
#include "tests/support/rounds.h"

#include <gtest/gtest.h>

#include <initializer_list>
#include <memory>
#include <mutex>

extern "C" {
void __rtsan_realtime_enter();
void __rtsan_realtime_exit();
}

namespace quorel {
namespace {

constexpr int stopped = 1; // the exit code of the run-time

// As an audio engine's thread. What it throws ends the program too, since raising an exception allocates.
template <typename Session>
void runOnAudioThread(Session& session)
{
    __rtsan_realtime_enter();
    volatile const float sum = session.run();
    __rtsan_realtime_exit();
    static_cast<void>(sum);
}

template <typename Session>
void runSessions(std::initializer_list<std::uint32_t> rates)
{
    for (std::int32_t channels = 1; channels <= 8; ++channels)
        for (const std::uint32_t rate : rates) {
            Session session(channels, rate);
            runOnAudioThread(session);
        }
}

TEST(RealTimeSanitizer, FindsNothingInASessionOfAnyRenderLayout)
{
    runSessions<SpeakerSession>({48000, 44100});
}

TEST(RealTimeSanitizer, FindsNothingInASessionOfAnyCaptureChannelCount)
{
    runSessions<MicrophoneSession>({16000, 48000});
}

// The entry itself, with all that stands around the path.
void runEffect(const Kind& kind)
{
    const EndpointEntry entry(kind.list);
    EffectSession session(kind);
    struct Blocks {
        float run() { return static_cast<float>(session.run(count)); }
        EffectSession& session;
        std::uint32_t count;
    } blocks{session, 20'000 * rounds()};
    runOnAudioThread(blocks);
    tellWatched(blocks.count);
}

TEST(RealTimeSanitizer, FindsNothingInTheEntryOfARenderStream)
{
    runEffect(render);
}

TEST(RealTimeSanitizer, FindsNothingInTheEntryOfACaptureStream)
{
    runEffect(capture);
}

template <typename Session>
void runSteered(std::int32_t channels, std::uint32_t rate)
{
    const Child other = startSteering(channels);
    SteeredSession<Session> session(channels, rate);
    runOnAudioThread(session);
    EXPECT_TRUE(session.sawEnough());
}

TEST(RealTimeSanitizer, FindsNothingInARenderSessionThatIsSteered)
{
    runSteered<SpeakerSession>(8, 48000);
}

TEST(RealTimeSanitizer, FindsNothingInACaptureSessionThatIsSteered)
{
    runSteered<MicrophoneSession>(2, 48000);
}

TEST(RealTimeSanitizerDeathTest, WouldFindAnAllocationAndALock)
{
    struct Allocates {
        float run()
        {
            auto block = std::make_unique<float>(1.0F);
            asm volatile("" : : "r"(block.get()) : "memory");
            return *block;
        }
    } allocates;
    EXPECT_EXIT(runOnAudioThread(allocates), testing::ExitedWithCode(stopped), "malloc");

    struct Locks {
        float run()
        {
            const std::lock_guard guard(mutex);
            return 0.0F;
        }
        std::mutex mutex;
    } locks;
    EXPECT_EXIT(runOnAudioThread(locks), testing::ExitedWithCode(stopped), "pthread_mutex_lock");
}

} // namespace
} // namespace quorel

int main(int count, char** words)
{
    return quorel::runSteeredTests(count, words);
}
