// SPDX-License-Identifier: MIT
// A pair of streams in a graph that does what servers may do: refuses, gives fewer rows, lacks buffers, tells of latencies.
#include "live/stream_pair.h"
#include "tests/live/graph/graph.h"
#include "tests/support/failure.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <limits>
#include <optional>
#include <stdexcept>
#include <vector>

namespace quorel {
namespace {

using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;

const char* const device = "quorel.speaker";
const char* const hardware = "quorel.speaker.output";

// Keeps what it is given, and gives a half.
struct Recorder final : LiveEffect {
    void process(const float* const* in, float* const* out, std::uint32_t n, bool rateVaries) override
    {
        ++calls;
        varying = rateVaries;
        rows.clear();
        for (std::uint32_t c = 0; c < channels; ++c)
            rows.emplace_back(in[c], in[c] + n);
        for (std::uint32_t c = 0; c < outputs; ++c)
            std::fill_n(out[c], n, given);
    }

    std::uint32_t channels = 8;
    std::uint32_t outputs = 2;
    float given = 0.5F;
    int calls = 0;
    bool varying = false;
    std::vector<std::vector<float>> rows;
};

class StreamPairTest : public testing::Test {
protected:
    void open(const StreamKind& kind = {})
    {
        effect.channels = kind.channels;
        effect.outputs = kind.outputs();
        pair.emplace(Graph::core(), kind, "", effect, status, [this] { ++changes; });
        graph.start();
    }

    void TearDown() override
    {
        Graph::refusals = {};
        pair.reset();
        Graph::audioThread = nullptr;
        Graph::timeResult = -1;
    }

    std::string refusal()
    {
        return failureText<std::runtime_error>([this] { open(); });
    }

    Graph graph;
    Recorder effect;
    StreamStatus status;
    int changes = 0;
    std::optional<StreamPair> pair;
};

TEST_F(StreamPairTest, SaysWhyTheServerRefuses)
{
    Graph::refusals.stream = EMFILE;
    EXPECT_EQ(refusal(), "the audio server refuses a stream: Too many open files");
    Graph::refusals = {.connection = EINVAL};
    EXPECT_EQ(refusal(), "the audio server refuses a stream: Invalid argument");
    Graph::refusals = {.node = ENOMEM};
    EXPECT_EQ(refusal(), "the audio server refuses a node: Cannot allocate memory");
    Graph::refusals = {.nodeConnection = ENOMEM};
    EXPECT_EQ(refusal(), "the audio server refuses a node");
    EXPECT_FALSE(Graph::has(device)); // nothing is left of what was made first
    EXPECT_FALSE(Graph::has(hardware));
}

TEST_F(StreamPairTest, TakesRowsThatAreNotThereForSilence)
{
    open();
    graph.cycle(100);
    ASSERT_EQ(effect.calls, 1);
    for (const auto& row : effect.rows)
        EXPECT_THAT(row, testing::Contains(testing::Ne(0.0F)));

    Graph::bufferOf(device).n_datas = 7;
    void* second = std::exchange(Graph::bufferOf(device).datas[1].data, nullptr);
    graph.cycle(100);
    ASSERT_EQ(effect.calls, 2);
    for (std::size_t c = 0; c < 8; ++c)
        if (c == 1 || c == 7)
            EXPECT_THAT(effect.rows[c], Each(0.0F)) << c;
        else
            EXPECT_THAT(effect.rows[c], testing::Contains(testing::Ne(0.0F))) << c;
    Graph::bufferOf(device).datas[1].data = second;
}

// A row begins where its chunk does, and the shortest row of either buffer is the call's length.
TEST_F(StreamPairTest, TakesWhatTheBuffersHold)
{
    open();
    graph.cycle(100);
    spa_data* rows = Graph::bufferOf(device).datas;
    rows[3].chunk->offset = 10 * sizeof(float);
    rows[5].chunk->size = 60 * sizeof(float);
    const float eleventh = static_cast<const float*>(rows[3].data)[10];
    Graph::process(device);
    EXPECT_EQ(effect.rows[0].size(), 60U);
    EXPECT_EQ(effect.rows[3][0], eleventh);
    EXPECT_EQ(graph.givenBy(hardware), 60U);
    EXPECT_EQ(Graph::bufferOf(hardware).datas[1].chunk->size, 60 * sizeof(float));

    Graph::bufferOf(hardware).datas[1].maxsize = 40 * sizeof(float);
    Graph::process(device);
    EXPECT_EQ(effect.rows[0].size(), 40U);
    EXPECT_EQ(graph.givenBy(hardware), 40U);
}

// What it does not write it gives as empty: the buffer holds an earlier call's sound.
TEST_F(StreamPairTest, GivesNothingWhereItCannotWrite)
{
    open();
    graph.cycle(100);
    const auto givesNothing = [this](std::uint32_t frames = 100) {
        const int before = effect.calls;
        graph.cycle(frames);
        EXPECT_EQ(effect.calls, before);
        EXPECT_EQ(graph.givenBy(hardware), 0U);
        EXPECT_TRUE(Graph::returned(hardware));
        EXPECT_TRUE(Graph::returned(device));
    };
    Graph::bufferOf(hardware).n_datas = 1;
    givesNothing();
    Graph::bufferOf(hardware).n_datas = 2;
    void* row = std::exchange(Graph::bufferOf(hardware).datas[1].data, nullptr);
    givesNothing();
    Graph::bufferOf(hardware).datas[1].data = row;
    givesNothing(0);
    Graph::withhold(device, true);
    givesNothing();
    Graph::withhold(device, false);
    Graph::tellArea(device, SPA_IO_Position, nullptr, 0); // the clock is gone
    givesNothing();
    Graph::tellArea(device, SPA_IO_Position, &graph.position, sizeof graph.position - 1);
    givesNothing();
    Graph::tellArea(device, SPA_IO_Position, &graph.position, sizeof graph.position);
    Graph::tellArea(device, SPA_IO_Clock, nullptr, 0); // another area
    graph.cycle(100);
    EXPECT_EQ(graph.givenBy(hardware), 100U);

    const int before = effect.calls;
    Graph::withhold(hardware, true);
    graph.cycle(100);
    EXPECT_EQ(effect.calls, before);
    EXPECT_TRUE(Graph::returned(device));
}

TEST_F(StreamPairTest, TellsTheEffectWhetherTheServerResamples)
{
    open();
    graph.cycle(100);
    EXPECT_FALSE(effect.varying);
    graph.position.clock.rate.denom = 44100;
    graph.cycle(100);
    EXPECT_TRUE(effect.varying);
    EXPECT_EQ(status.rate, 44100U);
}

// -100 dB is 1e-5 of full scale.
TEST_F(StreamPairTest, CountsTheFramesThatNobodyHears)
{
    open();
    effect.given = 0.99e-5F;
    graph.cycle(100);
    graph.cycle(150);
    EXPECT_EQ(pair->quietFor(), 250U);
    effect.given = -1.01e-5F;
    graph.cycle(100);
    EXPECT_EQ(pair->quietFor(), 0U);
    effect.given = 0;
    graph.cycle(100);
    EXPECT_EQ(pair->quietFor(), 100U);
    graph.start(); // the graph has stood still: what sounded meanwhile is not known
    EXPECT_EQ(pair->quietFor(), 0U);
}

TEST_F(StreamPairTest, LeavesTheStreamsAloneOnceItCloses)
{
    open();
    graph.cycle(100);
    const int before = changes;
    const int triggers = Graph::triggers;
    Graph::audioThread = [this] { // both callbacks may be on their way
        graph.cycle(100);
        Graph::process(hardware);
    };
    pair.reset();
    EXPECT_EQ(effect.calls, 1);
    EXPECT_EQ(Graph::triggers, triggers);
    EXPECT_EQ(changes, before);
}

// What is stored of the stream's volume has been restored by then; later it is the user's.
TEST_F(StreamPairTest, GivesTheHardwaresStreamItsFullVolumeOnce)
{
    open();
    EXPECT_THAT(Graph::volumesOf(hardware), ElementsAre(1.0F, 1.0F));
    EXPECT_THAT(Graph::volumesOf(device), IsEmpty());
    graph.start();
    EXPECT_THAT(Graph::volumesOf(hardware), ElementsAre(1.0F, 1.0F));
    open({true, 1, 0x4});
    EXPECT_THAT(Graph::volumesOf("quorel.microphone.input"), ElementsAre(1.0F));
    EXPECT_THAT(Graph::volumesOf("quorel.microphone"), IsEmpty());
}

// ---- latency --------------------------------------------------------------------------------------------------------

struct LatencyParam {
    explicit LatencyParam(std::int32_t frames)
    {
        spa_latency_info info{};
        info.direction = SPA_DIRECTION_OUTPUT;
        info.min_rate = info.max_rate = static_cast<decltype(info.min_rate)>(frames);
        spa_pod_builder builder{};
        spa_pod_builder_init(&builder, buffer, sizeof buffer);
        pod = spa_latency_build(&builder, SPA_PARAM_Latency, &info);
    }
    std::uint8_t buffer[1024];
    const spa_pod* pod;
};

TEST_F(StreamPairTest, TellsAtEachEndWhatLiesBehindTheOther)
{
    open();
    const auto last = [](const char* stream) { return Graph::latenciesOf(stream).back(); };
    Graph::tell(device, SPA_PARAM_Latency, LatencyParam(100).pod);
    ASSERT_EQ(Graph::latenciesOf(hardware).size(), 1U);
    EXPECT_EQ(last(hardware).min_rate, 100);
    Graph::tell(hardware, SPA_PARAM_Latency, LatencyParam(300).pod);
    ASSERT_EQ(Graph::latenciesOf(device).size(), 1U);
    EXPECT_EQ(last(device).max_rate, 300);

    pair->tellLatency(); // the effect adds nothing, as before
    EXPECT_EQ(Graph::latenciesOf(hardware).size(), 1U);
    status.delay = 256;
    pair->tellLatency();
    EXPECT_EQ(last(hardware).min_rate, 356);
    EXPECT_EQ(last(hardware).max_rate, 356);
    EXPECT_EQ(last(device).min_rate, 556);
    pair->tellLatency();
    EXPECT_EQ(Graph::latenciesOf(hardware).size(), 2U);
    Graph::tell(device, SPA_PARAM_Latency, LatencyParam(10).pod);
    EXPECT_EQ(last(hardware).min_rate, 266);
}

TEST_F(StreamPairTest, TakesNoNoticeOfOtherParameters)
{
    open();
    std::uint8_t buffer[64];
    spa_pod_builder builder{};
    spa_pod_builder_init(&builder, buffer, sizeof buffer);
    spa_pod_builder_int(&builder, 100);
    for (const char* stream : {device, hardware}) {
        Graph::tell(stream, SPA_PARAM_Format, LatencyParam(100).pod);
        Graph::tell(stream, SPA_PARAM_Latency, nullptr);
        Graph::tell(stream, SPA_PARAM_Latency, reinterpret_cast<const spa_pod*>(buffer));
    }
    EXPECT_THAT(Graph::latenciesOf(device), IsEmpty());
    EXPECT_THAT(Graph::latenciesOf(hardware), IsEmpty());
}

// 480 of 48000 frames per second are 10 ms.
TEST_F(StreamPairTest, TellsTheServersLatency)
{
    open();
    Graph::time.delay = 480;
    Graph::time.rate = {1, 48000};
    EXPECT_EQ(pair->serverLatency(), 0); // the server tells nothing
    Graph::timeResult = 0;
    EXPECT_DOUBLE_EQ(pair->serverLatency(), 10);
    Graph::time.rate = {1, 0};
    EXPECT_EQ(pair->serverLatency(), 0);
}

// ---- holding the graph ----------------------------------------------------------------------------------------------

TEST_F(StreamPairTest, HoldsTheGraphByALinkOfItsOwn)
{
    open();
    pair->hold(false);
    EXPECT_THAT(Graph::links(), IsEmpty());
    pair->hold(true);
    const std::string node = std::to_string(SPA_ID_INVALID);
    EXPECT_THAT(Graph::links(), ElementsAre(node + " silence " + node + " playback_FL"));
    pair->hold(true);
    EXPECT_EQ(Graph::links().size(), 1U);
    pair->hold(false);
    EXPECT_THAT(Graph::links(), IsEmpty());
    pair->hold(true);
    pair.reset();
    EXPECT_THAT(Graph::links(), IsEmpty());

    open({true, 1, 0x4}); // nobody needs a microphone that nobody takes from
    pair->hold(true);
    EXPECT_THAT(Graph::links(), IsEmpty());
}

} // namespace
} // namespace quorel
