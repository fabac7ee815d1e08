// SPDX-License-Identifier: MIT
// The audio thread's part of a live stream, with quanta that change and all that comes of it, watched at the allocator and at
// the kernel's border.
#include "live/path_change.h"
#include "tests/live/steered.h"
#include "tests/real_time/allocation_count.h"
#include "tests/real_time/system_calls.h"

namespace quorel {
namespace {

// Everything stands before `run`: the stream that it goes over to is built when it is asked for, by whoever calls `serve`.
class Session {
public:
    Session()
    {
        change.begin(stream({480, 0}));
        microphone = std::make_unique<EffectStream>(StreamKind{true, 1, 0x4}, BlockPlan{240, 0}, settings, bypass, status);
    }

    void run(std::uint32_t quantum)
    {
        for (int i = 0; i < 8; ++i) {
            bypass = i == 3;
            change.process(from.data(), to.data(), quantum, false);
            microphone->process(from.data(), to.data(), quantum);
        }
    }

    void serve()
    {
        change.serve([this](BlockPlan plan) { return stream(plan); });
    }

    StreamStatus status;

private:
    std::unique_ptr<EffectStream> stream(BlockPlan plan)
    {
        return std::make_unique<EffectStream>(StreamKind{}, plan, settings, bypass, status);
    }

    std::shared_ptr<SettingsHandler> settings = SettingsHandler::instance(SettingsHandler::layoutVersion);
    std::atomic<bool> bypass = false;
    PathChange change{speakerPlan, status, [](void*) {}, nullptr};
    std::unique_ptr<EffectStream> microphone;
    Rows in = noise(8, 2048);
    Rows out{2, 2048};
    std::vector<const float*> from = in.in();
    std::vector<float*> to = out.out();
};

TEST(LiveRealTime, AllocatesNothingWhateverTheQuantum)
{
    Session session;
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
    std::unique_ptr<Session> session;
    const int calls = systemCallsOf(
        [&] {
            session = std::make_unique<Session>();
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
