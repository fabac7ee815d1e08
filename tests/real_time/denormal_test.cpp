// SPDX-License-Identifier: MIT
// Denormal numbers take some processors a hundred times as long, so a decaying tail must not crawl through them: ten seconds of
// noise and a minute of silence. The processor itself tells whether any number that a block used, from its samples, its stages'
// states or its tables, was denormal: a flag stays set from such an operand on.
#include "core/signal_path.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numbers>
#include <random>
#include <vector>
#include <xmmintrin.h>

namespace quorel {
namespace {

constexpr unsigned denormalOperand = 0x2; // of the processor's floating-point status

struct Count {
    int operandBlocks = 0; // blocks in which some operand was denormal
    int samples = 0;       // denormal output samples
};

class Stream {
public:
    Stream(SignalPath& path, std::size_t inChannels, std::size_t outSlots, std::size_t n)
        : path(path), n(n), in(n * inChannels), out(n * outSlots)
    {
    }

    Count run(std::size_t blocks, float scale)
    {
        Count count;
        for (std::size_t block = 0; block < blocks; ++block) {
            for (float& x : in)
                x = scale * static_cast<float>(static_cast<std::int32_t>(random())) * 0x1p-31F;
            _mm_setcsr(_mm_getcsr() & ~denormalOperand);
            path->process(in.data(), n, out.data(), n);
            count.operandBlocks += static_cast<int>((_mm_getcsr() & denormalOperand) != 0);
            count.samples += static_cast<int>(
                std::count_if(out.begin(), out.end(), [](float x) { return std::fpclassify(x) == FP_SUBNORMAL; }));
        }
        return count;
    }

private:
    std::minstd_rand random{1};
    SignalPath& path;
    std::size_t n;
    std::vector<float> in;
    std::vector<float> out;
};

TEST(Denormals, TheProcessorTellsOfOne)
{
    _mm_setcsr(_mm_getcsr() & ~denormalOperand);
    volatile float tiny = 1e-40F;
    tiny = tiny * 0.5F;
    EXPECT_NE(_mm_getcsr() & denormalOperand, 0U);
}

// Each state that decays passes through them once, within few blocks; for the last half minute there is none.
void expectNone(SignalPath& path, std::size_t inChannels, std::size_t outSlots, std::size_t rate)
{
    const auto n = rate / 100;
    Stream stream(path, inChannels, outSlots, n);
    const auto noise = stream.run(1000, 0.5F);
    const auto decay = stream.run(3000, 0.0F);
    const auto silence = stream.run(3000, 0.0F);
    EXPECT_EQ(noise.samples, 0);
    EXPECT_LT(decay.operandBlocks, 300);
    EXPECT_EQ(decay.samples, 0);
    EXPECT_EQ(silence.operandBlocks, 0);
    EXPECT_EQ(silence.samples, 0);
}

TEST(Denormals, TheRenderEffectUsesNone)
{
    SignalPath path(SignalPath::Speaker{}, 8, 0x63F, 480, 48000);
    SettingsRecord& record = *path->settings();
    record.Settings = 1;
    record.Reverb = 255;
    record.EQBand = {127, -127, 60, -60, 127, -127, 60, -60, 127};
    record.applied = 0;
    expectNone(path, 8, 8, 48000);
}

TEST(Denormals, TheStereoDownMixUsesNone)
{
    SignalPath path(SignalPath::Speaker{}, 8, 0x63F, 480, 48000);
    SettingsRecord& record = *path->settings();
    record.EQBand = {127, -127, 60, -60, 127, -127, 60, -60, 127};
    record.applied = 0;
    expectNone(path, 8, 8, 48000);
}

TEST(Denormals, TheCaptureEffectUsesNone)
{
    for (const std::uint32_t rate : {16000U, 48000U})
        for (const std::uint32_t curve : {0U, 1U, 2U}) {
            SignalPath path(SignalPath::Microphone{}, 2, 0, 480, rate);
            SettingsRecord& record = *path->settings();
            record.MicNR = 1;
            record.micEq = curve;
            record.noiseGate = 100;
            record.levelsEnabled = 1;
            record.applied = 0;
            expectNone(path, 2, 2, rate);
        }
}

// After silence the gains of the bands that hold a tone go to 1, and what is left of their suppression falls by an eighth a
// frame: 3.5 s later it would be subnormal, and, as the smallest steps round to nothing, would stay so.
TEST(Denormals, TheGainsOfASteadyToneAreNone)
{
    constexpr std::uint32_t rate = 16000;
    constexpr std::size_t n = 160; // two hops
    SignalPath path(SignalPath::Microphone{}, 1, 0, n, rate);
    SettingsRecord& record = *path->settings();
    record.MicNR = 1;
    record.applied = 0;
    std::vector<float> samples(n);
    int withDenormals = 0;
    for (std::size_t block = 0; block < 2000; ++block) { // 3 s of silence, 17 s of a tone
        for (std::size_t i = 0; i < n; ++i) {
            const double turns = 153.0 * static_cast<double>(block * n + i) / rate;
            samples[i] = block < 300 ? 0.0F : static_cast<float>(0.5 * std::sin(2.0 * std::numbers::pi * turns));
        }
        _mm_setcsr(_mm_getcsr() & ~denormalOperand);
        path->process(samples.data(), n, samples.data(), n);
        withDenormals += static_cast<int>((_mm_getcsr() & denormalOperand) != 0);
    }
    EXPECT_LT(withDenormals, 50) << "a number that passes through takes a block or two";
}

} // namespace
} // namespace quorel
