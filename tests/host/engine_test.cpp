// SPDX-License-Identifier: MIT
// A foreign audio engine in miniature: it knows the effect by the module's file or by its entry in the registry, makes an
// object, asks it what an engine asks, and runs streams, which must sound exactly as the path alone.
#include "host/module.h"

#include "core/signal_path.h"
#include "tests/host/loaded_module.h"
#include "tests/support/control_application.h"
#include "tests/support/noise.h"
#include "tests/support/private_home.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <memory>
#include <optional>
#include <thread>
#include <vector>

namespace quorel {
namespace {

constexpr UINT32 frames = 480;

SettingsRecord everySpeakerSetting()
{
    SettingsRecord record;
    record.Enabled = 1;
    record.Settings = 1;
    record.Reverb = 200;
    record.EQBand = {127, -127, 60, 0, -30, 10, 20, -80, 90};
    return record;
}

SettingsRecord everyMicrophoneSetting()
{
    SettingsRecord record;
    record.MicNR = 1;
    record.micEq = 2;
    record.noiseGate = 90;
    record.levelsEnabled = 1;
    return record;
}

// A stream of either kind: its endpoint, its format, and the path alone that it must sound like.
struct Kind {
    const char* list;
    UNCOMPRESSEDAUDIOFORMAT format;
    SettingsRecord (*settings)();

    std::size_t samples() const { return frames * format.dwSamplesPerFrame; }

    SignalPath path() const
    {
        const auto channels = static_cast<std::int32_t>(format.dwSamplesPerFrame);
        const auto rate = static_cast<std::uint32_t>(format.fFramesPerSecond);
        return format.dwSamplesPerFrame == 1 ? SignalPath(SignalPath::Microphone{}, channels, 0, frames, rate)
                                             : SignalPath(SignalPath::Speaker{}, channels, format.dwChannelMask, frames, rate);
    }
};

const Kind render{"Render", surroundFormat(), everySpeakerSetting};
const Kind capture{"Capture", voiceFormat(), everyMicrophoneSetting};
const Kind narrowCapture{"Capture", voiceFormat(16000.0F), everyMicrophoneSetting};

// Takes settings over as a poll does. A path passes over a record whose sequence it knows.
void apply(const SettingsRecord& settings, SignalPath& path)
{
    SettingsRecord& record = *path->settings();
    const auto sequence = record.blockSequence + 1;
    record = settings;
    record.blockSequence = sequence;
}

// How the engine comes by the effect.
class ByFile {
public:
    IUnknown* create() { return module.create(); }
    ~ByFile() { EXPECT_EQ(module.canUnload(), S_OK); }

private:
    LoadedModule module;
};

class ByClass {
public:
    ByClass() { EXPECT_EQ(module.registerServer(), S_OK); }
    IUnknown* create() { return createRegisteredClass(); }
    ~ByClass()
    {
        EXPECT_EQ(module.canUnload(), S_OK);
        EXPECT_EQ(module.unregisterServer(), S_OK);
    }

private:
    LoadedModule module;
};

template <class Way>
class Engine : public testing::Test {
protected:
    void expectPathsSound(const Kind& kind)
    {
        const EndpointEntry endpoint(kind.list);
        control.write(kind.settings());
        Effect effect(way.create());
        ASSERT_EQ(effect.initialize(), S_OK);
        ASSERT_EQ(effect.lock(kind.format), S_OK);
        EXPECT_EQ(control.block->activeChannelMask, kind.format.dwChannelMask);
        EXPECT_EQ(control.block->activeFramesPerSecond, kind.format.fFramesPerSecond);

        SignalPath path = kind.path();
        apply(kind.settings(), path);
        std::vector<float> out(kind.samples());
        std::vector<float> expected(kind.samples());
        for (std::uint32_t block = 0; block < 200; ++block) {
            auto in = noise(kind.samples(), block, 0.25F);
            ASSERT_EQ(effect.process(in.data(), out.data(), frames), BUFFER_VALID);
            path->process(in.data(), frames, expected.data(), frames);
            ASSERT_EQ(std::memcmp(out.data(), expected.data(), out.size() * sizeof(float)), 0) << "block " << block;
            const float* levels = path->levels();
            ASSERT_EQ(levels != nullptr, kind.format.dwSamplesPerFrame == 1);
            if (levels != nullptr) {
                ASSERT_EQ(std::memcmp(control.block->levels.data(), levels, sizeof control.block->levels), 0)
                    << "block " << block;
            }
        }
        EXPECT_EQ(effect.configuration->UnlockForProcess(), S_OK);
    }

    Way way;
    ControlApplication control;
};

using Ways = testing::Types<ByFile, ByClass>;
struct WayNames {
    template <class Way>
    static std::string GetName(int)
    {
        return std::is_same_v<Way, ByFile> ? "ByFile" : "ByClass";
    }
};
TYPED_TEST_SUITE(Engine, Ways, WayNames);

TYPED_TEST(Engine, AsksWhatAnEngineAsks)
{
    const EndpointEntry endpoint(render.list);
    Effect effect(this->way.create());

    APO_REG_PROPERTIES* properties = nullptr;
    ASSERT_EQ(effect.object->GetRegistrationProperties(&properties), S_OK);
    EXPECT_TRUE(properties->clsid == CLSID_QUOREL);
    CoTaskMemFree(properties);

    ASSERT_EQ(effect.initialize(), S_OK);
    GUID* effects = nullptr;
    UINT count = 0;
    ASSERT_EQ(effect.effects->GetEffectsList(&effects, &count, nullptr), S_OK);
    ASSERT_EQ(count, 1U);
    EXPECT_TRUE(*effects == AUDIO_EFFECT_TYPE_EQUALIZER);
    CoTaskMemFree(effects);

    Format format(surroundFormat());
    IAudioMediaType* supported = nullptr;
    EXPECT_EQ(effect.object->IsInputFormatSupported(&format, &format, &supported), S_OK);
    ASSERT_NE(supported, nullptr);
    supported->Release();
    EXPECT_EQ(effect.object->IsOutputFormatSupported(&format, &format, &supported), S_OK);
    ASSERT_NE(supported, nullptr);
    supported->Release();
    EXPECT_EQ(format.references, 1U);

    ASSERT_EQ(effect.lock(surroundFormat()), S_OK);
    HNSTIME latency = 0;
    EXPECT_EQ(effect.object->GetLatency(&latency), S_OK);
    EXPECT_GE(latency, 0);
    EXPECT_EQ(effect.object->Reset(), S_OK);
    EXPECT_EQ(effect.configuration->UnlockForProcess(), S_OK);
    EXPECT_EQ(effect.lock(surroundFormat()), S_OK);
    EXPECT_EQ(effect.configuration->UnlockForProcess(), S_OK);
}

TYPED_TEST(Engine, RunsARenderStreamThatIsItsPathsBitForBit)
{
    this->expectPathsSound(render);
}

TYPED_TEST(Engine, RunsACaptureStreamThatIsItsPathsBitForBit)
{
    this->expectPathsSound(capture);
}

TYPED_TEST(Engine, RunsANarrowCaptureStreamThatIsItsPathsBitForBit)
{
    this->expectPathsSound(narrowCapture);
}

TYPED_TEST(Engine, IsSteeredThroughTheSharedBlockWhileAudioRuns)
{
    const EndpointEntry endpoint(render.list);
    const SettingsRecord before;
    this->control.write(before);
    Effect effect(this->way.create());
    ASSERT_EQ(effect.initialize(), S_OK);
    ASSERT_EQ(effect.lock(render.format), S_OK);
    ControlApplication application;

    // The change is asked for at block 20 and is in force at a block that the memory thread decides: the first that differs
    // from a stream without it. What is sent before that thread has begun counts as known to it, so it is sent again.
    SignalPath unchanged = render.path();
    apply(before, unchanged);
    std::vector<std::vector<float>> outs;
    std::vector<float> expected(render.samples());
    std::optional<std::size_t> changed;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (!changed || outs.size() < *changed + 50) {
        ASSERT_LT(std::chrono::steady_clock::now(), deadline) << "the change is not in force";
        if (outs.size() % 500 == 20 && !changed)
            application.update(render.settings());
        auto in = noise(render.samples(), static_cast<std::uint32_t>(outs.size()), 0.25F);
        outs.emplace_back(render.samples());
        ASSERT_EQ(effect.process(in.data(), outs.back().data(), frames), BUFFER_VALID);
        unchanged->process(in.data(), frames, expected.data(), frames);
        if (!changed && outs.back() != expected)
            changed = outs.size() - 1;
        if (!changed)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    ASSERT_GE(*changed, 20U);

    SignalPath steered = render.path();
    apply(before, steered);
    for (std::size_t block = 0; block < outs.size(); ++block) {
        if (block == *changed)
            apply(render.settings(), steered);
        auto in = noise(render.samples(), static_cast<std::uint32_t>(block), 0.25F);
        steered->process(in.data(), frames, expected.data(), frames);
        ASSERT_EQ(std::memcmp(outs[block].data(), expected.data(), expected.size() * sizeof(float)), 0) << "block " << block;
    }
    EXPECT_EQ(effect.configuration->UnlockForProcess(), S_OK);
}

TYPED_TEST(Engine, GetsAnInvalidBufferForARefusedBlockAndAValidOneNext)
{
    const EndpointEntry endpoint(render.list);
    Effect effect(this->way.create());
    ASSERT_EQ(effect.initialize(), S_OK);
    ASSERT_EQ(effect.lock(render.format), S_OK);
    auto in = noise(2 * render.samples(), 1, 0.25F);
    std::vector<float> out(2 * render.samples());
    EXPECT_EQ(effect.process(in.data(), out.data(), 2 * frames), BUFFER_INVALID);
    EXPECT_EQ(effect.process(in.data(), out.data(), frames), BUFFER_VALID);
    EXPECT_EQ(effect.configuration->UnlockForProcess(), S_OK);
}

TYPED_TEST(Engine, CountsEveryObject)
{
    IUnknown* first = this->way.create();
    IUnknown* second = this->way.create();
    EXPECT_NE(first, second);
    EXPECT_EQ(first->AddRef(), 2U);
    EXPECT_EQ(first->Release(), 1U);
    EXPECT_EQ(first->Release(), 0U);
    EXPECT_EQ(second->Release(), 0U);
}

} // namespace
} // namespace quorel
