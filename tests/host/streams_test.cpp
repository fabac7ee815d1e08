// SPDX-License-Identifier: MIT
// Many effect objects of the module's at once, as a busy engine has them: streams that are locked, run and unlocked again and
// again while settings change, and the memory that stays behind.
//
// The first argument is how many seconds the streams run.
#include "host/module.h"

#include "tests/host/loaded_module.h"
#include "tests/host/memory_in_use.h"
#include "tests/support/control_application.h"
#include "tests/support/private_home.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <random>
#include <string>
#include <thread>
#include <vector>

namespace quorel {
namespace {

double seconds = 1.5;

constexpr UINT32 frames = 480;
constexpr int enough = 100; // blocks
constexpr const char* captureEndpoint = "{5E0AD0D5-6C11-4C1E-9D5B-3B1F6A2C7E91}";

SettingsRecord anySettings(std::mt19937& random)
{
    const auto below = [&random](std::uint32_t limit) { return static_cast<std::uint32_t>(random() % limit); };
    SettingsRecord record;
    record.Settings = static_cast<std::uint8_t>(below(2));
    record.Reverb = below(256);
    record.MicNR = static_cast<std::uint8_t>(below(2));
    record.micEq = below(3);
    record.noiseGate = below(256);
    record.levelsEnabled = static_cast<std::uint8_t>(below(2));
    for (auto& band : record.EQBand)
        band = static_cast<std::int32_t>(below(255)) - 127;
    return record;
}

class Streams : public testing::Test {
protected:
    // Until `end`; for a while longer where the machine is so busy that hardly a block has run.
    bool going() const
    {
        const auto now = std::chrono::steady_clock::now();
        return now < end || (blocks <= enough && now < end + std::chrono::minutes(1));
    }

    // Locks, runs and unlocks streams of one endpoint as long as it is `going`; counts the blocks that it ran.
    void runStreams(bool capture, unsigned seed)
    {
        std::mt19937 random(seed);
        Effect effect(module.create());
        EXPECT_EQ(effect.initialize(AUDIO_SIGNALPROCESSINGMODE_DEFAULT, FALSE, capture ? captureEndpoint : testEndpoint), S_OK);
        const auto format = capture ? voiceFormat(random() % 2 == 0 ? 16000.0F : 48000.0F) : surroundFormat();
        std::vector<float> in(frames * format.dwSamplesPerFrame);
        std::vector<float> out(frames * 8);
        while (going()) {
            ASSERT_EQ(effect.lock(format), S_OK);
            for (int block = 0; block < 20; ++block) {
                for (auto& sample : in)
                    sample = static_cast<float>(random()) * 0x1p-33F - 0.25F;
                const bool inPlace = capture || random() % 2 == 0;
                float* const to = inPlace ? in.data() : out.data();
                ASSERT_EQ(effect.process(in.data(), to, frames), BUFFER_VALID);
                ASSERT_TRUE(std::isfinite(to[0]));
                ++blocks;
            }
            ASSERT_EQ(effect.configuration->UnlockForProcess(), S_OK);
        }
    }

    // Runs streams on threads of their own while a control application changes all settings.
    void runAtOnce(int renders, int captures)
    {
        end = std::chrono::steady_clock::now() +
              std::chrono::duration_cast<std::chrono::steady_clock::duration>(std::chrono::duration<double>(seconds));
        std::vector<std::thread> threads;
        for (int i = 0; i < renders + captures; ++i)
            threads.emplace_back([this, i, renders] { runStreams(i >= renders, static_cast<unsigned>(i)); });
        Effect attached(module.create());
        ASSERT_EQ(attached.initialize(), S_OK);
        ControlApplication control;
        std::mt19937 random(1);
        while (going()) {
            control.update(anySettings(random));
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
        for (auto& thread : threads)
            thread.join();
        std::printf("%d blocks\n", blocks.load());
        EXPECT_GT(blocks, enough);
    }

    const EndpointEntry renderEntry{"Render"};
    const EndpointEntry captureEntry{"Capture", captureEndpoint};
    LoadedModule module;
    std::chrono::steady_clock::time_point end;
    std::atomic<int> blocks = 0;
};

TEST_F(Streams, RenderAndCaptureRunInOneProcess)
{
    runAtOnce(1, 1);
    EXPECT_EQ(module.canUnload(), S_OK);
}

TEST_F(Streams, SixteenRunAtOnce)
{
    runAtOnce(8, 8);
    EXPECT_EQ(module.canUnload(), S_OK);
}

TEST_F(Streams, TheModuleCanBeUnloadedAsSoonAsItsLastObjectIsGone)
{
    for (int i = 0; i < 20; ++i) {
        LoadedModule again;
        {
            Effect effect(again.create());
            ASSERT_EQ(effect.initialize(), S_OK);
            ASSERT_EQ(effect.lock(surroundFormat()), S_OK);
        }
        ASSERT_EQ(again.canUnload(), S_OK);
        if (i == 0)
            module.unload(); // the fixture's own
        again.unload();      // it stays when a busy machine has kept the settings' thread from ending in time
    }
}

TEST_F(Streams, MemoryAfterAThousandLocksIsThatAfterTen)
{
    for (const bool isCapture : {false, true}) {
        Effect effect(module.create());
        ASSERT_EQ(effect.initialize(AUDIO_SIGNALPROCESSINGMODE_DEFAULT, FALSE, isCapture ? captureEndpoint : testEndpoint), S_OK);
        const auto format = isCapture ? voiceFormat() : surroundFormat();
        std::vector<float> samples(frames * 8, 0.1F);
        const auto cycle = [&] {
            EXPECT_EQ(effect.lock(format), S_OK);
            EXPECT_EQ(effect.process(samples.data(), samples.data(), frames), BUFFER_VALID);
            EXPECT_EQ(effect.configuration->UnlockForProcess(), S_OK);
        };
        for (int i = 0; i < 10; ++i)
            cycle();
        const auto before = memoryInUse();
        for (int i = 10; i < 1000; ++i)
            cycle();
        EXPECT_EQ(memoryInUse(), before);
    }
}

TEST_F(Streams, MemoryAfterAThousandObjectsIsThatAfterTen)
{
    Effect first(module.create()); // holds the settings: what they leave open at their end is left open on purpose
    ASSERT_EQ(first.initialize(), S_OK);
    const auto cycle = [&] {
        Effect effect(module.create());
        EXPECT_EQ(effect.initialize(), S_OK);
        EXPECT_EQ(effect.lock(surroundFormat()), S_OK);
        EXPECT_EQ(effect.configuration->UnlockForProcess(), S_OK);
    };
    for (int i = 0; i < 10; ++i)
        cycle();
    const auto before = memoryInUse();
    for (int i = 10; i < 1000; ++i)
        cycle();
    EXPECT_EQ(memoryInUse(), before);
}

} // namespace
} // namespace quorel

int main(int argc, char** argv)
{
    testing::InitGoogleTest(&argc, argv);
    if (argc > 1)
        quorel::seconds = std::atof(argv[1]);
    return RUN_ALL_TESTS();
}
