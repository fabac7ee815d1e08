// SPDX-License-Identifier: MIT
// The steps of an effect object's operations in their order, seen from inside a path: this program's paths do nothing but what a
// test tells them to, and take the place of the real ones.
#include "host/effect_object.h"

#include "core/dispatch.h"
#include "core/interleaved_view.h"
#include "tests/host/control.h"
#include "tests/host/engine.h"
#include "tests/support/private_home.h"

#include <functional>
#include <vector>

namespace quorel {

namespace {

// What happens at the steps of a path's life.
struct Steps {
    std::function<void()> build = [] {};
    std::function<void()> process = [] {};
    std::function<void()> end = [] {};
};
Steps steps;

// The moves of a path on its way to its place are no end.
struct Life {
    Life() { steps.build(); }
    ~Life() { steps.end(); }
    Life(const Life&) = delete;
    Life& operator=(const Life&) = delete;
};

template <std::size_t N, typename T>
class Puppet {
public:
    Puppet(std::uint32_t, std::uint32_t, std::uint32_t) {}

    void process(InterleavedView, InterleavedView) { steps.process(); }

    SettingsRecord& settings() noexcept { return record; }

private:
    SettingsRecord record;
    std::unique_ptr<Life> life = std::make_unique<Life>();
};

} // namespace

SignalPath::SignalPath(Speaker, std::int32_t channels, std::uint32_t channelMask, std::uint32_t maxFrames,
                       std::uint32_t sampleRate)
    : path(build<Puppet>(channels, channelMask, maxFrames, sampleRate))
{
}

SignalPath::SignalPath(Microphone, std::int32_t channels, std::uint32_t channelMask, std::uint32_t maxFrames,
                       std::uint32_t sampleRate)
    : path(build<Puppet>(channels, channelMask, maxFrames, sampleRate))
{
}

namespace {

// Of both endpoints, with no step told yet.
class StepsOfAnEffect : public testing::Test {
protected:
    StepsOfAnEffect() { steps = {}; }
    ~StepsOfAnEffect() override { steps = {}; }

    const EndpointEntry entry{"Render"};
};

TEST_F(StepsOfAnEffect, TheActiveFormatIsWrittenOnceThePathStands)
{
    Effect effect;
    ASSERT_EQ(effect.initialize(), S_OK);
    Control control;
    std::vector<UINT32> masks;
    steps.build = [&] { masks.push_back(control->activeChannelMask); };
    EXPECT_EQ(effect.lock(surroundFormat()), S_OK);
    EXPECT_EQ(effect.configuration->UnlockForProcess(), S_OK);
    EXPECT_EQ(effect.lock(stereoFormat()), S_OK);
    EXPECT_EQ(masks, (std::vector<UINT32>{0, 0x63F}));
    EXPECT_EQ(control->activeChannelMask, 3U);
}

TEST_F(StepsOfAnEffect, APathThatFailsLeavesTheActiveFormat)
{
    Effect effect;
    ASSERT_EQ(effect.initialize(), S_OK);
    Control control;
    ASSERT_EQ(effect.lock(surroundFormat()), S_OK);
    ASSERT_EQ(effect.configuration->UnlockForProcess(), S_OK);
    steps.build = [] { throw std::bad_alloc(); };
    EXPECT_EQ(effect.lock(stereoFormat()), E_UNEXPECTED);
    EXPECT_EQ(control->activeChannelMask, 0x63FU);
    EXPECT_EQ(control->activeFramesPerSecond, 48000.0F);
}

TEST_F(StepsOfAnEffect, TheOldPathEndsOnceTheNewOneStands)
{
    Effect effect;
    ASSERT_EQ(effect.initialize(), S_OK);
    std::string order;
    steps.build = [&] { order += 'b'; };
    steps.end = [&] { order += 'e'; };
    EXPECT_EQ(effect.lock(surroundFormat()), S_OK);
    EXPECT_EQ(effect.configuration->UnlockForProcess(), S_OK);
    EXPECT_EQ(order, "b");
    EXPECT_EQ(effect.lock(surroundFormat()), S_OK);
    EXPECT_EQ(order, "bbe");
}

// The last handler of the process clears the active format when it goes.
TEST_F(StepsOfAnEffect, TheSettingsAreGivenUpBeforeThePathEnds)
{
    float rate = -1.0F;
    auto effect = std::make_unique<Effect>();
    ASSERT_EQ(effect->initialize(), S_OK);
    Control control;
    ASSERT_EQ(effect->lock(surroundFormat()), S_OK);
    ASSERT_EQ(control->activeFramesPerSecond, 48000.0F);
    steps.end = [&] { rate = control->activeFramesPerSecond; };
    effect.reset();
    EXPECT_EQ(rate, 0.0F);
}

TEST_F(StepsOfAnEffect, TheEntryReadsNoCounts)
{
    Effect effect;
    ASSERT_EQ(effect.initialize(), S_OK);
    ASSERT_EQ(effect.lock(surroundFormat()), S_OK);
    int blocks = 0;
    steps.process = [&] { ++blocks; };
    APO_CONNECTION_PROPERTY block{0, 1, BUFFER_VALID, APO_CONNECTION_PROPERTY_SIGNATURE};
    APO_CONNECTION_PROPERTY* connections[] = {&block, nullptr};
    for (const UINT32 ins : {0U, 1U, 2U, 0xFFFFFFFFU})
        for (const UINT32 outs : {0U, 1U, 2U, 0xFFFFFFFFU})
            effect.realTime->APOProcess(ins, connections, outs, connections);
    EXPECT_EQ(blocks, 16);
}

// 2^-126 is the smallest normal number, and a half of it is lost where subnormal results become zero.
bool losesSubnormals()
{
    volatile float smallest = 0x1p-126F;
    volatile float half = 0.5F;
    volatile float subnormal = smallest * half;
    return subnormal == 0.0F;
}

TEST_F(StepsOfAnEffect, TheEntryLeavesTheFloatingPointModesAlone)
{
    Effect effect;
    ASSERT_EQ(effect.initialize(), S_OK);
    ASSERT_EQ(effect.lock(surroundFormat()), S_OK);
    bool inside = false;
    steps.process = [&] { inside = losesSubnormals(); };
    float sample = 0.0F;
    ASSERT_EQ(effect.process(&sample, &sample, 1), BUFFER_VALID);
    EXPECT_FALSE(inside);
    EXPECT_FALSE(losesSubnormals());
#ifdef __SSE__
    constexpr unsigned flush = 0x8000; // to zero
    const unsigned before = __builtin_ia32_stmxcsr();
    __builtin_ia32_ldmxcsr(before | flush);
    effect.process(&sample, &sample, 1);
    const bool after = losesSubnormals();
    __builtin_ia32_ldmxcsr(before);
    EXPECT_TRUE(inside);
    EXPECT_TRUE(after);
#endif
}

// Of what a path throws std::exception alone is caught.
TEST_F(StepsOfAnEffect, WhatIsNoStandardExceptionLeavesEveryOperation)
{
    Effect effect;
    ASSERT_EQ(effect.initialize(), S_OK);
    steps.build = [] { throw 7; };
    EXPECT_THROW(effect.lock(surroundFormat()), int);
    EXPECT_EQ(effect.configuration->UnlockForProcess(), S_OK);
    steps.build = [] {};
    ASSERT_EQ(effect.lock(surroundFormat()), S_OK);
    steps.process = [] { throw 7; };
    float sample = 0.0F;
    EXPECT_THROW(effect.process(&sample, &sample, 1), int);
    HNSTIME time = 0;
    EXPECT_THROW(effect.object->GetLatency(&time), int);
}

} // namespace
} // namespace quorel
