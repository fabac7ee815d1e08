// SPDX-License-Identifier: MIT
// The audio thread takes no lock, not even one that happens to be free: it may try one, in the poll of the settings, and no
// more. Counted at the program's own calls, whatever the system would make of them.
#include "tests/real_time/steered_session.h"

#include "platform/lock.h"

#include <gtest/gtest.h>

#include <mutex>
#include <pthread.h>

namespace {

thread_local int locks = 0;

} // namespace

// The linker sends the program's calls of these here.
extern "C" {
int __real_pthread_mutex_lock(pthread_mutex_t* mutex);
void __real__ZN6quorel8platform4Lock4lockEv(quorel::platform::Lock* lock);

int __wrap_pthread_mutex_lock(pthread_mutex_t* mutex)
{
    ++locks;
    return __real_pthread_mutex_lock(mutex);
}

void __wrap__ZN6quorel8platform4Lock4lockEv(quorel::platform::Lock* lock)
{
    ++locks;
    __real__ZN6quorel8platform4Lock4lockEv(lock);
}
}

namespace quorel {
namespace {

template <typename Session>
void expectNoLock(Session& session)
{
    const int before = locks;
    volatile const float sum = session.run();
    static_cast<void>(sum);
    EXPECT_EQ(locks, before);
}

TEST(NoLock, IsTakenByASessionOfAnyChannelCount)
{
    for (std::int32_t channels = 1; channels <= 8; ++channels) {
        SpeakerSession render(channels, 48000);
        SpeakerSession copied(channels, 44100);
        MicrophoneSession narrow(channels, 16000);
        MicrophoneSession wide(channels, 48000);
        expectNoLock(render);
        expectNoLock(copied);
        expectNoLock(narrow);
        expectNoLock(wide);
    }
}

template <typename Session>
void expectNoLockWhileSteered(std::int32_t channels, std::uint32_t rate)
{
    const Child other = startSteering(channels);
    SteeredSession<Session> session(channels, rate);
    expectNoLock(session);
    EXPECT_TRUE(session.sawEnough());
}

TEST(NoLock, IsTakenByARenderSessionThatIsSteered)
{
    expectNoLockWhileSteered<SpeakerSession>(8, 48000);
}

TEST(NoLock, IsTakenByACaptureSessionThatIsSteered)
{
    expectNoLockWhileSteered<MicrophoneSession>(2, 48000);
}

TEST(NoLock, ALockWouldBeCountedAndATryIsNot)
{
    const int before = locks;
    std::mutex mutex;
    mutex.lock();
    mutex.unlock();
    EXPECT_EQ(locks, before + 1);
    platform::Lock lock;
    lock.lock();
    EXPECT_EQ(locks, before + 2);
    EXPECT_FALSE(lock.try_lock());
    lock.unlock();
    EXPECT_TRUE(lock.try_lock());
    lock.unlock();
    EXPECT_EQ(locks, before + 2);
}

} // namespace
} // namespace quorel

int main(int count, char** words)
{
    return quorel::runSteeredTests(count, words);
}
