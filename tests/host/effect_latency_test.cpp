// SPDX-License-Identifier: MIT
// The latency measurement, with a clock that a test sets: this program's counter takes the place of the system's.
#include "host/effect_object.h"

#include "platform/counter.h"
#include "tests/core/memory_faulty.h"
#include "tests/host/engine.h"
#include "tests/support/private_home.h"

#include <cmath>
#include <vector>

namespace quorel {

namespace {

std::int64_t frequency = 10'000'000;
std::int64_t step = 0; // counts from one reading to the next
std::int64_t now = 0;
int readings = 0;

} // namespace

std::int64_t platform::counterFrequency() noexcept
{
    return frequency;
}

std::int64_t platform::counter() noexcept
{
    ++readings;
    return now += step;
}

namespace {

class Latency : public testing::Test {
protected:
    explicit Latency(const char* list = "Render") : entry(list) {}

    void SetUp() override
    {
        ASSERT_EQ(effect.initialize(), S_OK);
        frequency = 10'000'000;
        readings = 0;
    }

    // What a measurement of `counts` gives.
    HNSTIME measure(std::int64_t counts)
    {
        step = counts;
        HNSTIME time = -1;
        EXPECT_EQ(effect.object->GetLatency(&time), S_OK);
        return time;
    }

    // The buffer of a measurement is one block of pinned memory.
    void expectBuffer(std::uint64_t samples)
    {
        auto& memory = platform::faultyMemory;
        memory.allocations = memory.locks = 0;
        measure(480);
        EXPECT_EQ(memory.allocations, 1);
        EXPECT_EQ(memory.bytes, samples * sizeof(float));
        EXPECT_EQ(memory.locks, 1);
    }

    void expectUnmeasured(HRESULT result)
    {
        HNSTIME time = -1;
        EXPECT_EQ(effect.object->GetLatency(&time), result);
        EXPECT_EQ(time, 21);
    }

    EndpointEntry entry;
    Effect effect;
};

TEST_F(Latency, NullIsRefused)
{
    EXPECT_EQ(effect.object->GetLatency(nullptr), E_POINTER);
    EXPECT_EQ(effect.lock(surroundFormat()), S_OK);
    EXPECT_EQ(effect.object->GetLatency(nullptr), E_POINTER);
    EXPECT_EQ(readings, 0);
}

TEST_F(Latency, BeforeALockThereIsNone)
{
    expectUnmeasured(E_FAIL);
    EXPECT_EQ(readings, 0);
}

TEST_F(Latency, BehindAFailedFirstLockThereIsNone)
{
    EXPECT_EQ(effect.lock(surroundFormat(6)), E_UNEXPECTED);
    expectUnmeasured(E_FAIL);
}

// At 10 MHz a count is a unit of 100 ns; a block has 480 frames.
TEST_F(Latency, ItIsTheTimeOfABlockPerFrame)
{
    EXPECT_EQ(effect.lock(surroundFormat()), S_OK);
    EXPECT_EQ(measure(480 * 33), 33);
    EXPECT_EQ(readings, 2);
    EXPECT_EQ(measure(0), 0);
}

TEST_F(Latency, HalvesGoAwayFromZero)
{
    EXPECT_EQ(effect.lock(surroundFormat()), S_OK);
    EXPECT_EQ(measure(239), 0);
    EXPECT_EQ(measure(240), 1); // 0.5
    EXPECT_EQ(measure(719), 1);
    EXPECT_EQ(measure(720), 2);   // 1.5
    EXPECT_EQ(measure(1200), 3);  // 2.5
    EXPECT_EQ(measure(-240), -1); // a clock that runs backwards
}

// At 3 MHz 480 frames in 720 counts take 2400 units: 5 for each frame.
TEST_F(Latency, TheCountersFrequencyIsTakenIntoAccount)
{
    EXPECT_EQ(effect.lock(surroundFormat()), S_OK);
    frequency = 3'000'000;
    EXPECT_EQ(measure(720), 5);
    frequency = 1'000'000'000; // 48000 counts are 480 units
    EXPECT_EQ(measure(48000), 1);
}

TEST_F(Latency, ItCanBeMeasuredWhileUnlocked)
{
    EXPECT_EQ(effect.lock(surroundFormat()), S_OK);
    EXPECT_EQ(effect.configuration->UnlockForProcess(), S_OK);
    EXPECT_EQ(measure(480), 1);
}

// 1000 frames fit the path and not its convolver.
TEST_F(Latency, APathThatFailsLeavesTheValueOfNoMeasurement)
{
    EXPECT_EQ(effect.lock(surroundFormat(), 1000), S_OK);
    effect.record().Settings = 1;
    effect.record().applied = 0;
    expectUnmeasured(E_UNEXPECTED);
    EXPECT_EQ(readings, 0);
}

// The path of eight channels stays behind a lock that asked for fewer channels or more frames; the sanitizers watch its
// buffer here.
TEST_F(Latency, BehindAFailedLockThePreviousPathIsMeasuredInsideItsBuffer)
{
    EXPECT_EQ(effect.lock(surroundFormat()), S_OK);
    EXPECT_EQ(effect.configuration->UnlockForProcess(), S_OK);
    EXPECT_EQ(effect.lock(surroundFormat(1)), E_UNEXPECTED);
    EXPECT_EQ(measure(480), 1);
    EXPECT_EQ(effect.configuration->UnlockForProcess(), S_OK);
    EXPECT_EQ(effect.lock(surroundFormat(6), 1072), E_UNEXPECTED);
    expectUnmeasured(E_UNEXPECTED);
}

// A stereo path copies at 96000 frames per second, in place nothing.
TEST_F(Latency, AFastStereoStreamIsMeasured)
{
    EXPECT_EQ(effect.lock(stereoFormat()), S_OK);
    EXPECT_EQ(measure(480), 1);
}

TEST_F(Latency, ItsPinnedBufferHasTheEightSlotsThatRenderWrites)
{
    EXPECT_EQ(effect.lock(surroundFormat(), 240), S_OK);
    expectBuffer(240 * 8);
    EXPECT_EQ(effect.configuration->UnlockForProcess(), S_OK);
    EXPECT_EQ(effect.lock(stereoFormat(), 240), S_OK);
    expectBuffer(240 * 8);
}

class CaptureLatency : public Latency {
protected:
    CaptureLatency() : Latency("Capture") {}
};

TEST_F(CaptureLatency, ItsPinnedBufferHasTheStreamsOneChannel)
{
    EXPECT_EQ(effect.lock(voiceFormat(), 240), S_OK);
    expectBuffer(240);
}

TEST_F(CaptureLatency, AVoiceStreamIsMeasured)
{
    for (const FLOAT rate : {16000.0F, 48000.0F}) {
        EXPECT_EQ(effect.lock(voiceFormat(rate), 240), S_OK);
        EXPECT_EQ(measure(240 * 7), 7);
        EXPECT_EQ(effect.configuration->UnlockForProcess(), S_OK);
    }
}

// Both runs are blocks like any other: a path that has been measured goes on as one that got two blocks of silence, although
// the memory of the buffer comes with samples that are not a number.
TEST_F(Latency, AMeasurementAdvancesThePathByTwoBlocks)
{
    SignalPath reference(SignalPath::Speaker{}, 8, 0x63F, 480, 48000);
    EXPECT_EQ(effect.lock(surroundFormat()), S_OK);
    for (SettingsRecord* record : {reference->settings(), &effect.record()}) {
        const auto generation = record->generation; // no poll has news
        *record = {};                               // whatever settings were kept
        record->generation = generation;
        record->Settings = 1;
        record->Reverb = 255;
    }
    std::vector<float> in(480 * 8);
    for (std::size_t i = 0; i < in.size(); ++i)
        in[i] = 0.1F * std::sin(0.05F * static_cast<float>(i));
    std::vector<float> out(480 * 8);
    std::vector<float> expected(480 * 8);

    effect.process(in.data(), out.data(), 480);
    measure(480);
    effect.process(in.data(), out.data(), 480);

    std::vector<float> silence(480 * 8);
    reference->process(in.data(), 480, expected.data(), 480);
    reference->process(silence.data(), 480, silence.data(), 480);
    reference->process(silence.data(), 480, silence.data(), 480);
    reference->process(in.data(), 480, expected.data(), 480);
    EXPECT_EQ(out, expected);
}

} // namespace
} // namespace quorel
