// The audio thread's part of the render effect neither allocates nor enters the kernel: whole sessions of every layout, with
// block lengths and settings that change from block to block, crossfades, a delivered HRTF set and samples of every kind.
#include "core/signal_path.h"

#include "tests/real_time/watched_sessions.h"
#ifdef __linux__
#include <unistd.h>
#endif

#include <gtest/gtest.h>

#include <array>
#include <limits>
#include <memory>
#include <random>
#include <vector>

namespace quorel {
namespace {

constexpr std::uint32_t maxFrames = 848;
constexpr std::array<std::uint32_t, 9> masks = {0, 0x4, 0x3, 0x7, 0x33, 0x37, 0x3F, 0x61F, 0x63F};

// A path and all that a host holds for it, ready to run without any further preparation.
class Session {
public:
    Session(std::int32_t channels, std::uint32_t rate)
        : channels(static_cast<std::size_t>(channels)),
          path(SignalPath::Speaker{}, channels, masks[this->channels], maxFrames, rate),
          in(maxFrames * this->channels),
          out(maxFrames * 8),
          set(2 * this->channels * 1024)
    {
        for (float& x : set)
            x = 0.01F * level();
    }

    // Returns a number that depends on every output, so that no work can be left out.
    float run()
    {
        constexpr std::array<std::uint64_t, 8> lengths = {1, 2, 3, 47, 128, 480, 847, 848};
        float sum = 0.0F;
        for (std::uint32_t block = 0; block < 64; ++block) {
            change(block);
            const auto n = lengths[block % lengths.size()];
            fill(block / 8, n);
            path->process(in.data(), n, out.data(), n);
            sum += out[0];
        }
        return sum;
    }

private:
    float level() { return static_cast<float>(static_cast<std::int32_t>(random())) * 0x1p-31F; }

    // A setting changes at every block, in turn so that every crossfade runs alone and together with others.
    void change(std::uint32_t block)
    {
        SettingsRecord& record = *path->settings();
        record.Settings = block % 5 != 0;
        record.Reverb = block % 3 * 90;
        record.EQBand[block % 9] = static_cast<std::int32_t>(random() % 255) - 127;
        if (block % 16 == 15) {
            record.hrtfId = block;
            record.hrtfChannels = static_cast<std::uint32_t>(channels);
            record.hrtfLength = 1024;
            record.hrtfData = set.data();
        }
        record.blockSequence = block + 1;
        record.applied = 0;
    }

    void fill(std::uint32_t kind, std::uint64_t n)
    {
        constexpr std::array<float, 8> scales = {0.1F, 0.0F, 1e-41F, 8.0F, 1e30F, std::numeric_limits<float>::infinity(),
                                                 1.0F, 0.0F};
        for (std::uint64_t i = 0; i < n * channels; ++i)
            in[i] = scales[kind] * level();
        if (kind == 6)
            in[0] = std::numeric_limits<float>::quiet_NaN();
    }

    std::minstd_rand random{1};
    std::size_t channels;
    SignalPath path;
    std::vector<float> in;
    std::vector<float> out;
    std::vector<float> set;
};

TEST(RealTime, ASessionOfAnyLayoutAllocatesNothing)
{
    expectNoAllocation<Session>({48000, 44100});
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
    expectNoSystemCall<Session>({48000, 44100});
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
#endif

} // namespace
} // namespace quorel
