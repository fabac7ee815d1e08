// The audio thread's part of the capture effect neither allocates nor enters the kernel: whole sessions of every channel count
// at both rates, with block lengths and settings that change from block to block, crossfades and samples of every kind.
#include "core/signal_path.h"

#include "tests/real_time/watched_sessions.h"

#include <gtest/gtest.h>

#include <array>
#include <limits>
#include <memory>
#include <random>
#include <vector>

namespace quorel {
namespace {

constexpr std::uint32_t maxFrames = 960;

// A path and all that a host holds for it, ready to run without any further preparation.
class Session {
public:
    Session(std::int32_t channels, std::uint32_t rate)
        : channels(static_cast<std::size_t>(channels)),
          path(SignalPath::Microphone{}, channels, 0, maxFrames, rate),
          in(maxFrames * this->channels),
          out(maxFrames * this->channels)
    {
    }

    // Returns a number that depends on every output, so that no work can be left out.
    float run()
    {
        constexpr std::array<std::uint64_t, 8> lengths = {80, 240, 1, 100, 720, 47, 480, 960};
        float sum = 0.0F;
        for (std::uint32_t block = 0; block < 64; ++block) {
            change(block);
            const auto n = lengths[block % lengths.size()];
            fill(block / 8, n);
            path->process(in.data(), n, out.data(), n);
            sum += out[0] + path->levels()[block % 9];
        }
        return sum;
    }

private:
    float level() { return static_cast<float>(static_cast<std::int32_t>(random())) * 0x1p-31F; }

    // A setting changes at every block; the curve in turn so that every crossfade runs.
    void change(std::uint32_t block)
    {
        SettingsRecord& record = *path->settings();
        record.MicNR = block % 3 != 0;
        record.micEq = block % 4 % 3;
        record.noiseGate = block * 7 % 300;
        record.levelsEnabled = block % 5 != 0;
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
};

TEST(CaptureRealTime, ASessionOfAnyChannelCountAllocatesNothing)
{
    expectNoAllocation<Session>({16000, 48000});
}

#ifdef __linux__
TEST(CaptureRealTime, ASessionOfAnyChannelCountMakesNoSystemCall)
{
    expectNoSystemCall<Session>({16000, 48000});
}
#endif

} // namespace
} // namespace quorel
