// SPDX-License-Identifier: MIT
// The audio thread's entry of the effect object neither allocates nor waits nor enters the kernel: a hundred thousand blocks
// of every kind, while another thread steers the settings through the shared block as a control application does.
#include "tests/real_time/effect_session.h"
#include "tests/real_time/watched_sessions.h"
#include "tests/support/private_home.h"
#include "tests/support/rounds.h"

#include <memory>
#include <stdexcept>

namespace quorel {
namespace {

const std::uint32_t blocks = 100'000 * rounds();

// Of the audio thread. (On Windows those of all threads: there the control application doesn't allocate either.)
std::uint64_t allocationsSoFar()
{
#ifdef __linux__
    return threadAllocationCount();
#else
    return allocationCount();
#endif
}

// A long session without any allocation, in which many settings arrive.
void runLong(EffectSession& session)
{
    const auto before = allocationsSoFar();
    const auto updates = session.run(blocks);
    if (allocationsSoFar() != before)
        throw std::runtime_error("it allocated");
    if (updates < 20)
        throw std::runtime_error("hardly a setting arrived");
}

TEST(EffectRealTime, ALongRenderSessionAllocatesNothing)
{
    const EndpointEntry entry(render.list);
    EffectSession session(render);
    EXPECT_NO_THROW(runLong(session));
    tellWatched(blocks);
}

TEST(EffectRealTime, ALongCaptureSessionAllocatesNothing)
{
    const EndpointEntry entry(capture.list);
    EffectSession session(capture);
    EXPECT_NO_THROW(runLong(session));
    tellWatched(blocks);
}

// An exception is allocated; behind it nothing is.
TEST(EffectRealTime, BehindABlockThatFailedNothingIsAllocated)
{
    for (const Kind& kind : {render, capture}) {
        const EndpointEntry entry(kind.list);
        EffectSession session(kind);
        for (int i = 0; i < 100; ++i) {
            session.fail();
            const auto before = allocationsSoFar();
            session.run(10);
            EXPECT_EQ(allocationsSoFar(), before) << kind.list << ' ' << i;
        }
    }
}

#ifdef __linux__
void expectNoCalls(const Kind& kind)
{
    const EndpointEntry entry(kind.list);
    std::unique_ptr<EffectSession> session;
    EXPECT_EQ(systemCallsOf([&] { session = std::make_unique<EffectSession>(kind); }, [&] { runLong(*session); }), 0);
    tellWatched(blocks);
}

TEST(EffectRealTime, ALongRenderSessionMakesNoSystemCall)
{
    expectNoCalls(render);
}

TEST(EffectRealTime, ALongCaptureSessionMakesNoSystemCall)
{
    expectNoCalls(capture);
}

// The unwinder finds its tables at the first exception.
TEST(EffectRealTime, ABlockThatFailsMakesNoSystemCall)
{
    for (const Kind& kind : {render, capture}) {
        const EndpointEntry entry(kind.list);
        std::unique_ptr<EffectSession> session;
        EXPECT_EQ(systemCallsOf(
                      [&] {
                          session = std::make_unique<EffectSession>(kind);
                          session->fail();
                      },
                      [&] {
                          for (int i = 0; i < 1000; ++i)
                              session->fail();
                      }),
                  0)
            << kind.list;
    }
}

// All memory is there and stays there: no page fault, and no wait that would give the processor away.
TEST(EffectRealTime, ARunningSessionMeetsNoPageFaultAndWaitsForNothing)
{
    constexpr std::uint32_t count = 20'000;
    for (const Kind& kind : {render, capture})
        for (std::uint32_t round = 0; round < rounds(); ++round) {
            const EndpointEntry entry(kind.list);
            const auto usage = leastUsage(
                [&kind] {
                    auto session = std::make_unique<EffectSession>(kind);
                    session->run(2000); // touches all code once
                    return session;
                },
                [](EffectSession& session) { session.run(count); });
            EXPECT_EQ(usage.faults, 0) << kind.list;
            EXPECT_EQ(usage.waits, 0) << kind.list;
        }
    tellWatched(std::uint64_t{2} * rounds() * count);
}
#endif

} // namespace
} // namespace quorel
