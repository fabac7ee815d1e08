// The audio thread's entry of the effect object neither allocates nor waits nor enters the kernel: a hundred thousand blocks
// of every kind, while another thread steers the settings through the shared block as a control application does.
#include "tests/host/control.h"
#include "tests/real_time/watched_sessions.h"
#include "tests/support/private_home.h"

#include <array>
#include <memory>
#include <optional>
#include <random>
#include <stdexcept>
#include <thread>
#include <vector>

namespace quorel {
namespace {

constexpr std::uint32_t blocks = 100'000;
constexpr UINT32 maxFrames = 848; // that fit the convolver

struct Kind {
    const char* list; // of endpoints
    UNCOMPRESSEDAUDIOFORMAT format;
};

const Kind render = {"Render", surroundFormat()};
const Kind capture = {"Capture", voiceFormat()};

// A locked stream, of an endpoint that is in the registry, and the thread that steers it.
class Session {
public:
    explicit Session(const Kind& kind) : channels(kind.format.dwSamplesPerFrame)
    {
        if (effect.initialize() != S_OK || effect.lock(kind.format, maxFrames) != S_OK)
            throw std::runtime_error("no stream");
        in.resize(std::size_t{maxFrames + 1} * channels);
        out.resize(in.size());
        application.emplace();
        for (std::size_t i = 0; i < 16384; ++i) // two responses of 512 bins for each of eight channels
            application->share[i] = 0.01F * level();
        steering = std::thread([this] { steer(); });
        if (!eventually([this] { return application->block->sequence != 0; })) // a thread that starts allocates
            throw std::runtime_error("no steering");
    }

    ~Session()
    {
        platform::setEvent(stop);
        steering.join();
        platform::closeHandle(stop);
    }

    // Returns how many different settings the path was given.
    std::uint32_t run(std::uint32_t count)
    {
        constexpr std::array<UINT32, 8> lengths = {1, 2, 3, 47, 128, 480, 847, 848};
        constexpr std::array<float, 4> scales = {0.1F, 0.0F, 1e-41F, 8.0F}; // 1e-41 is denormal
        std::uint32_t updates = 0;
        std::uint32_t last = 0;
        for (std::uint32_t block = 0; block < count; ++block) {
            const UINT32 n = lengths[block % lengths.size()];
            const float scale = scales[block / 64 % scales.size()];
            for (std::size_t i = 0; i < std::size_t{n} * channels; ++i)
                in[i] = scale * level();
            const auto flags = block % 7 == 3 ? BUFFER_SILENT : block % 11 == 5 ? BUFFER_INVALID : BUFFER_VALID;
            if (effect.process(in.data(), out.data(), n, flags) != flags)
                throw std::runtime_error("a block failed");
            const auto sequence = EffectObjectState::record(*effect.self).blockSequence;
            updates += sequence != last ? 1 : 0;
            last = sequence;
        }
        return updates;
    }

    // A block that the path refuses.
    void fail()
    {
        if (effect.process(in.data(), out.data(), maxFrames + 1) != BUFFER_INVALID)
            throw std::runtime_error("a block did not fail");
    }

private:
    float level() { return static_cast<float>(static_cast<std::int32_t>(random())) * 0x1p-31F; }

    // The control application: new settings, and a look at the levels.
    void steer()
    {
        SettingsRecord settings;
        settings.levelsEnabled = 1;
        settings.hrtfChannels = 8;
        settings.hrtfLength = 1024;
        volatile float seen = 0.0F;
        for (std::uint32_t update = 0; !platform::waitFor(stop, 1); ++update) { // a wait that allocates nothing
            settings.Settings = update % 5 != 0;
            settings.Reverb = update % 3 * 90;
            settings.EQBand[update % 9] = static_cast<std::int32_t>(update % 255) - 127;
            settings.MicNR = update % 2 != 0;
            settings.micEq = update % 3;
            settings.noiseGate = update % 4 * 50;
            settings.hrtfId = update / 16;
            application->update(settings);
            seen = application->block->levels[0];
        }
        static_cast<void>(seen);
    }

    Effect effect;
    std::size_t channels;
    std::vector<float> in;
    std::vector<float> out;
    std::minstd_rand random{1};
    std::optional<ControlApplication> application;
    platform::Handle stop = platform::createEvent(nullptr, nullptr);
    std::thread steering;
};

// A long session without any allocation of the process, in which many settings arrive.
void runLong(Session& session)
{
    const auto before = allocationCount();
    const auto updates = session.run(blocks);
    if (allocationCount() != before)
        throw std::runtime_error("it allocated");
    if (updates < 20)
        throw std::runtime_error("hardly a setting arrived");
}

TEST(EffectRealTime, ALongRenderSessionAllocatesNothing)
{
    const EndpointEntry entry(render.list);
    Session session(render);
    EXPECT_NO_THROW(runLong(session));
}

TEST(EffectRealTime, ALongCaptureSessionAllocatesNothing)
{
    const EndpointEntry entry(capture.list);
    Session session(capture);
    EXPECT_NO_THROW(runLong(session));
}

// An exception is allocated; behind it nothing is.
TEST(EffectRealTime, BehindABlockThatFailedNothingIsAllocated)
{
    for (const Kind& kind : {render, capture}) {
        const EndpointEntry entry(kind.list);
        Session session(kind);
        for (int i = 0; i < 100; ++i) {
            session.fail();
            const auto before = allocationCount();
            session.run(10);
            EXPECT_EQ(allocationCount(), before) << kind.list << ' ' << i;
        }
    }
}

#ifdef __linux__
void expectNoCalls(const Kind& kind)
{
    const EndpointEntry entry(kind.list);
    std::unique_ptr<Session> session;
    EXPECT_EQ(systemCallsOf([&] { session = std::make_unique<Session>(kind); }, [&] { runLong(*session); }), 0);
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
        std::unique_ptr<Session> session;
        EXPECT_EQ(systemCallsOf(
                      [&] {
                          session = std::make_unique<Session>(kind);
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
    for (const Kind& kind : {render, capture}) {
        const EndpointEntry entry(kind.list);
        const auto usage = leastUsage(
            [&kind] {
                auto session = std::make_unique<Session>(kind);
                session->run(2000); // touches all code once
                return session;
            },
            [](Session& session) { session.run(20'000); });
        EXPECT_EQ(usage.faults, 0) << kind.list;
        EXPECT_EQ(usage.waits, 0) << kind.list;
    }
}
#endif

} // namespace
} // namespace quorel
