// SPDX-License-Identifier: MIT
#include "tests/live/session/graph_client.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <pipewire/filter.h>
#include <pipewire/pipewire.h>
#include <spa/param/audio/format-utils.h>
#include <stdexcept>
#include <thread>

namespace quorel {

struct GraphClient::Node {
    pw_context* context = nullptr;
    pw_core* core = nullptr;
    pw_filter* filter = nullptr;
    spa_hook listener{};
    pw_filter_events events{};
    std::vector<void*> ports;
};

// A silent stream to the null sink that drives the graph. Between sounds it lets a cycle begin every millisecond.
struct GraphClient::Pacemaker {
    Pacemaker(pw_thread_loop* loop, const std::atomic<bool>& hurry, const std::atomic<std::uint32_t>& quantum,
              const std::atomic<double>& drift);
    ~Pacemaker();

    void beat();

    pw_stream* stream = nullptr;
    pw_stream_events events{};
    const std::atomic<bool>& hurry;
    const std::atomic<std::uint32_t>& quantum;
    const std::atomic<double>& drift;
    std::atomic<spa_io_position*> position = nullptr;
    std::atomic<bool> driving = false;
    std::atomic<std::uint64_t> done = 0;
    std::atomic<std::uint64_t> lost = 0; // cycles that did not end
    std::atomic<bool> held = false;      // no cycle begins
    std::atomic<bool> stopped = false;
    std::thread thread;
};

namespace {

constexpr const char* playerName = "test-player";
constexpr const char* recorderName = "test-recorder";
constexpr const char* group = "test"; // nodes of one group have one driver

// With links that come and go a cycle's end may be lost. No cycle takes so long on the busiest machine.
constexpr auto lostCycle = std::chrono::seconds(2);

} // namespace

GraphClient::Pacemaker::Pacemaker(pw_thread_loop* loop, const std::atomic<bool>& hurry, const std::atomic<std::uint32_t>& quantum,
                                  const std::atomic<double>& drift)
    : hurry(hurry), quantum(quantum), drift(drift)
{
    events.version = PW_VERSION_STREAM_EVENTS;
    events.io_changed = [](void* data, std::uint32_t id, void* area, std::uint32_t) {
        if (id == SPA_IO_Position)
            static_cast<Pacemaker*>(data)->position = static_cast<spa_io_position*>(area);
    };
    events.state_changed = [](void* data, pw_stream_state, pw_stream_state state, const char*) {
        static_cast<Pacemaker*>(data)->driving = state == PW_STREAM_STATE_STREAMING;
    };
    events.trigger_done = [](void* data) { ++static_cast<Pacemaker*>(data)->done; };
    events.process = [](void* data) {
        auto& pacemaker = *static_cast<Pacemaker*>(data);
        pw_buffer* buffer = pw_stream_dequeue_buffer(pacemaker.stream);
        const spa_io_position* clock = pacemaker.position;
        if (buffer == nullptr || clock == nullptr)
            return;
        for (std::uint32_t c = 0; c < buffer->buffer->n_datas; ++c) {
            spa_data& row = buffer->buffer->datas[c];
            const auto bytes = std::min(row.maxsize, static_cast<std::uint32_t>(clock->clock.duration * sizeof(float)));
            std::memset(row.data, 0, bytes);
            row.chunk->offset = 0;
            row.chunk->stride = sizeof(float);
            row.chunk->size = bytes;
        }
        pw_stream_queue_buffer(pacemaker.stream, buffer);
    };
    stream = pw_stream_new_simple(pw_thread_loop_get_loop(loop), "test-pacemaker",
                                  pw_properties_new(PW_KEY_MEDIA_TYPE, "Audio", PW_KEY_MEDIA_CATEGORY, "Playback",
                                                    PW_KEY_NODE_NAME, "test-pacemaker", PW_KEY_TARGET_OBJECT, "speakers",
                                                    PW_KEY_NODE_GROUP, group, PW_KEY_PRIORITY_DRIVER, "1000000", nullptr),
                                  &events, this);
    std::uint8_t buffer[1024];
    spa_pod_builder builder = SPA_POD_BUILDER_INIT(buffer, sizeof buffer);
    spa_audio_info_raw format{};
    format.format = SPA_AUDIO_FORMAT_F32P;
    format.rate = 48000;
    format.channels = 2;
    format.position[0] = SPA_AUDIO_CHANNEL_FL;
    format.position[1] = SPA_AUDIO_CHANNEL_FR;
    const spa_pod* param = spa_format_audio_raw_build(&builder, SPA_PARAM_EnumFormat, &format);
    const int flags = PW_STREAM_FLAG_AUTOCONNECT | PW_STREAM_FLAG_MAP_BUFFERS | PW_STREAM_FLAG_RT_PROCESS | PW_STREAM_FLAG_DRIVER;
    if (stream == nullptr ||
        pw_stream_connect(stream, PW_DIRECTION_OUTPUT, PW_ID_ANY, static_cast<pw_stream_flags>(flags), &param, 1) < 0)
        throw std::runtime_error("the audio server refuses the test's clock");
    thread = std::thread([this] { beat(); });
}

GraphClient::Pacemaker::~Pacemaker()
{
    stopped = true;
    thread.join();
    pw_stream_destroy(stream);
}

void GraphClient::Pacemaker::beat()
{
    using Clock = std::chrono::steady_clock;
    std::uint64_t awaited = 0; // cycles that are done when the next one may begin
    Clock::time_point begun;
    while (!stopped) {
        std::this_thread::sleep_for(std::chrono::microseconds(hurry ? 20 : 1000));
        spa_io_position* clock = position;
        if (!driving || clock == nullptr) {
            awaited = 0;
        } else if (held) {
            continue;
        } else if (done >= awaited || Clock::now() - begun > lostCycle) {
            begun = Clock::now();
            if (done < awaited)
                ++lost;
            awaited = done + 1;
            clock->clock.position += clock->clock.duration;
            clock->clock.duration = quantum;
            clock->clock.rate_diff = drift;
            pw_stream_trigger_process(stream);
        }
    }
}

GraphClient::GraphClient(const std::vector<std::string>& outputs, const std::vector<std::string>& inputs, Clock clock)
    : loop((pw_init(nullptr, nullptr), pw_thread_loop_new("test", nullptr))),
      player(std::make_unique<Node>()),
      recorder(std::make_unique<Node>()),
      outputNames(outputs),
      inputNames(inputs),
      recording(inputs.size())
{
    // In real time a client is as late as its own thread is.
    const char* settings = clock == Clock::ofTheDevice ? "client-rt.conf" : "client.conf";
    const auto make = [&](Node& node, const char* name, pw_direction direction, const std::vector<std::string>& names,
                          void (*process)(void*, spa_io_position*)) {
        node.context = pw_context_new(pw_thread_loop_get_loop(loop), pw_properties_new(PW_KEY_CONFIG_NAME, settings, nullptr), 0);
        node.core = node.context == nullptr ? nullptr : pw_context_connect(node.context, nullptr, 0);
        if (node.core == nullptr)
            throw std::runtime_error("no audio server for the test's client");
        node.filter =
            pw_filter_new(node.core, name,
                          pw_properties_new(PW_KEY_MEDIA_TYPE, "Audio", PW_KEY_MEDIA_CATEGORY, "Filter", PW_KEY_MEDIA_ROLE, "DSP",
                                            PW_KEY_NODE_NAME, name, PW_KEY_NODE_GROUP, group, nullptr));
        node.events.version = PW_VERSION_FILTER_EVENTS;
        node.events.process = process;
        pw_filter_add_listener(node.filter, &node.listener, &node.events, this);
        for (const std::string& port : names)
            node.ports.push_back(pw_filter_add_port(
                node.filter, direction, PW_FILTER_PORT_FLAG_MAP_BUFFERS, sizeof(int),
                pw_properties_new(PW_KEY_FORMAT_DSP, "32 bit float mono audio", PW_KEY_PORT_NAME, port.c_str(), nullptr), nullptr,
                0));
        if (pw_filter_connect(node.filter, PW_FILTER_FLAG_RT_PROCESS, nullptr, 0) < 0)
            throw std::runtime_error("the audio server refuses the test's client");
    };
    make(*player, playerName, PW_DIRECTION_OUTPUT, outputs, onPlay);
    make(*recorder, recorderName, PW_DIRECTION_INPUT, inputs, onRecord);
    if (clock == Clock::own)
        pacemaker = std::make_unique<Pacemaker>(loop, armed, quantum, drift);
    pw_thread_loop_start(loop);
}

GraphClient::~GraphClient()
{
    pw_thread_loop_stop(loop);
    pacemaker.reset();
    for (Node* node : {player.get(), recorder.get()}) {
        pw_filter_destroy(node->filter);
        pw_context_destroy(node->context); // and its connection
    }
    pw_thread_loop_destroy(loop);
}

// A port appears a little after its node: tried until it works. Meanwhile the clock stands still: where a node takes long to start
// (a plug-in does in an unoptimised build), the server may take it into a running cycle in a way from which no sound comes any more.
void GraphClient::link(const std::vector<std::string>& to, const std::vector<std::string>& from)
{
    const auto one = [](const std::string& out, const std::string& in) {
        const std::string line = "pw-link '" + out + "' '" + in + "' 2>/dev/null";
        for (int attempt = 0; attempt < 500; ++attempt) {
            if (std::system(line.c_str()) == 0)
                return;
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
        throw std::runtime_error("no link from " + out + " to " + in);
    };
    if (pacemaker)
        pacemaker->held = true;
    for (std::size_t k = 0; k < to.size(); ++k)
        one(std::string(playerName) + ":" + outputNames[k], to[k]);
    for (std::size_t k = 0; k < from.size(); ++k)
        one(from[k], std::string(recorderName) + ":" + inputNames[k]);
    if (!pacemaker)
        return;
    // In the server's words. A link between nodes that nobody plays to stays paused.
    const char* unsettled = "pw-dump | grep -qE '\"state\": \"(creating|init|negotiating|allocating)\"'";
    for (int attempt = 0; attempt < 500 && std::system(unsettled) == 0; ++attempt)
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    pacemaker->held = false;
}

bool GraphClient::play(const Channels& what, std::size_t frames)
{
    {
        const std::lock_guard begin(playing);
        sound = &what;
        for (auto& row : recording)
            row.assign(frames, 0.0F);
        played = 0;
        taken = 0;
        armed = true;
    }
    const auto latest = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (taken < frames && std::chrono::steady_clock::now() < latest)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    const std::lock_guard end(playing); // no audio thread is at it
    armed = false;
    return taken >= frames;
}

std::uint64_t GraphClient::lostCycles() const
{
    return pacemaker->lost;
}

void GraphClient::onPlay(void* data, spa_io_position* position)
{
    auto& client = *static_cast<GraphClient*>(data);
    const std::lock_guard busy(client.playing);
    const auto n = static_cast<std::uint32_t>(position->clock.duration);
    const bool sounding = client.armed;
    const std::size_t at = client.played;
    for (std::size_t c = 0; c < client.player->ports.size(); ++c) {
        auto* to = static_cast<float*>(pw_filter_get_dsp_buffer(client.player->ports[c], n));
        if (to == nullptr)
            continue;
        std::fill_n(to, n, 0.0F);
        if (!sounding || at >= client.sound->front().size())
            continue;
        const auto& row = (*client.sound)[c];
        std::copy_n(row.begin() + static_cast<std::ptrdiff_t>(at), std::min<std::size_t>(n, row.size() - at), to);
    }
    if (!sounding)
        return;
    if (at == 0)
        client.playTick = position->clock.position;
    client.played = at + n;
}

void GraphClient::onRecord(void* data, spa_io_position* position)
{
    auto& client = *static_cast<GraphClient*>(data);
    const std::lock_guard busy(client.playing);
    const auto n = static_cast<std::uint32_t>(position->clock.duration);
    std::vector<const float*> rows(client.recorder->ports.size());
    for (std::size_t c = 0; c < rows.size(); ++c)
        rows[c] = static_cast<const float*>(pw_filter_get_dsp_buffer(client.recorder->ports[c], n));
    if (!client.armed || client.recording.empty())
        return;
    const std::size_t at = client.taken;
    if (at == 0)
        client.recordTick = position->clock.position;
    const std::size_t room = std::min<std::size_t>(n, client.recording.front().size() - at);
    for (std::size_t c = 0; c < rows.size(); ++c)
        if (rows[c] != nullptr)
            std::copy_n(rows[c], room, client.recording[c].begin() + static_cast<std::ptrdiff_t>(at));
    client.taken = at + room;
}

} // namespace quorel
