// SPDX-License-Identifier: MIT
#include "tests/live/graph/graph.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <pipewire/filter.h>
#include <pipewire/pipewire.h>
#include <spa/param/props.h>
#include <string>
#include <utility>
#include <vector>

namespace {

constexpr std::size_t mostRows = 8;

struct Port {
    std::array<float, quorel::Graph::longest> samples{};
};

std::vector<pw_stream*> streams;
std::vector<pw_filter*> filters;
std::vector<std::string> ends; // of each link

// Whether it is refused, with the library's error then.
bool refused(int error)
{
    errno = error;
    return error != 0;
}

} // namespace

struct pw_core {
    spa_interface interface;
};

struct pw_proxy {
    std::string ends;
};

struct pw_stream {
    std::string name;
    bool taking = false;
    const pw_stream_events* events = nullptr;
    void* data = nullptr;
    bool queued = false; // its buffer is the graph's
    bool withheld = false;
    std::vector<spa_latency_info> latencies;
    std::vector<float> volumes;
    std::array<std::array<float, quorel::Graph::longest>, mostRows> rows{};
    std::array<spa_chunk, mostRows> chunks{};
    std::array<spa_data, mostRows> datas{};
    spa_buffer buffer{};
    pw_buffer held{};
};

struct pw_filter {
    const pw_filter_events* events = nullptr;
    void* data = nullptr;
    Port port;
};

extern "C" {

pw_context* pw_core_get_context(pw_core*)
{
    return nullptr;
}

pw_data_loop* pw_context_get_data_loop(pw_context*)
{
    return nullptr;
}

// The callbacks are called on the thread that asks for a cycle: this one, so that nobody is in one now.
int pw_data_loop_invoke(pw_data_loop*, spa_invoke_func_t function, std::uint32_t sequence, const void* data, std::size_t size,
                        bool, void* user)
{
    if (quorel::Graph::audioThread)
        quorel::Graph::audioThread();
    return function(nullptr, false, sequence, data, size, user);
}

pw_stream* pw_stream_new(pw_core*, const char* name, pw_properties* properties)
{
    pw_properties_free(properties);
    if (refused(quorel::Graph::refusals.stream))
        return nullptr;
    auto* stream = new pw_stream;
    stream->name = name;
    streams.push_back(stream);
    return stream;
}

void pw_stream_destroy(pw_stream* stream)
{
    if (stream->events != nullptr && stream->events->state_changed != nullptr)
        stream->events->state_changed(stream->data, PW_STREAM_STATE_STREAMING, PW_STREAM_STATE_UNCONNECTED, nullptr);
    std::erase(streams, stream);
    delete stream;
}

void pw_stream_add_listener(pw_stream* stream, spa_hook*, const pw_stream_events* events, void* data)
{
    stream->events = events;
    stream->data = data;
}

int pw_stream_connect(pw_stream* stream, pw_direction direction, std::uint32_t, pw_stream_flags, const spa_pod**, std::uint32_t)
{
    if (refused(quorel::Graph::refusals.connection))
        return -errno;
    stream->taking = direction == PW_DIRECTION_INPUT;
    for (std::size_t row = 0; row < mostRows; ++row) {
        stream->datas[row].data = stream->rows[row].data();
        stream->datas[row].maxsize = sizeof stream->rows[row];
        stream->datas[row].chunk = &stream->chunks[row];
    }
    stream->buffer.n_datas = mostRows;
    stream->buffer.datas = stream->datas.data();
    stream->held.buffer = &stream->buffer;
    stream->queued = true;
    return 0;
}

pw_buffer* pw_stream_dequeue_buffer(pw_stream* stream)
{
    return !stream->withheld && std::exchange(stream->queued, false) ? &stream->held : nullptr;
}

int pw_stream_queue_buffer(pw_stream* stream, pw_buffer*)
{
    stream->queued = true;
    return 0;
}

int pw_stream_trigger_process(pw_stream* stream)
{
    ++quorel::Graph::triggers;
    stream->events->process(stream->data);
    return 0;
}

std::uint32_t pw_stream_get_node_id(pw_stream*)
{
    return SPA_ID_INVALID;
}

int pw_stream_get_time_n(pw_stream*, pw_time* time, std::size_t)
{
    *time = quorel::Graph::time;
    return quorel::Graph::timeResult;
}

int pw_stream_set_control(pw_stream* stream, std::uint32_t id, std::uint32_t count, float* values, ...)
{
    if (id == SPA_PROP_channelVolumes)
        stream->volumes.insert(stream->volumes.end(), values, values + count);
    return 0;
}

int pw_stream_update_params(pw_stream* stream, const spa_pod** params, std::uint32_t count)
{
    for (std::uint32_t i = 0; i < count; ++i)
        if (spa_latency_info info{}; spa_latency_parse(params[i], &info) >= 0)
            stream->latencies.push_back(info);
    return 0;
}

pw_filter* pw_filter_new(pw_core*, const char*, pw_properties* properties)
{
    pw_properties_free(properties);
    if (refused(quorel::Graph::refusals.node))
        return nullptr;
    filters.push_back(new pw_filter);
    return filters.back();
}

void pw_filter_destroy(pw_filter* filter)
{
    std::erase(filters, filter);
    delete filter;
}

void* pw_filter_add_port(pw_filter* filter, pw_direction, pw_filter_port_flags, std::size_t, pw_properties* properties,
                         const spa_pod**, std::uint32_t)
{
    pw_properties_free(properties);
    return &filter->port;
}

void pw_filter_add_listener(pw_filter* filter, spa_hook*, const pw_filter_events* events, void* data)
{
    filter->events = events;
    filter->data = data;
}

int pw_filter_connect(pw_filter*, pw_filter_flags, const spa_pod**, std::uint32_t)
{
    return refused(quorel::Graph::refusals.nodeConnection) ? -errno : 0;
}

void* pw_filter_get_dsp_buffer(void* port, std::uint32_t)
{
    return static_cast<Port*>(port)->samples.data();
}

std::uint32_t pw_filter_get_node_id(pw_filter*)
{
    return SPA_ID_INVALID;
}

void pw_proxy_destroy(pw_proxy* link)
{
    std::erase(ends, link->ends);
    delete link;
}

static void* createLink(void*, const char*, const char*, std::uint32_t, const spa_dict* properties, std::size_t)
{
    std::string link;
    for (const char* key : {PW_KEY_LINK_OUTPUT_NODE, PW_KEY_LINK_OUTPUT_PORT, PW_KEY_LINK_INPUT_NODE, PW_KEY_LINK_INPUT_PORT})
        link.append(link.empty() ? "" : " ").append(spa_dict_lookup(properties, key));
    ends.push_back(link);
    return new pw_proxy{link};
}

} // extern "C"

namespace quorel {

namespace {

auto found(const char* name)
{
    return std::find_if(streams.begin(), streams.end(), [name](const pw_stream* stream) { return stream->name == name; });
}

pw_stream& named(const char* name)
{
    return **found(name);
}

} // namespace

pw_core* Graph::core()
{
    static const pw_core_methods methods = [] {
        pw_core_methods made{};
        made.version = PW_VERSION_CORE_METHODS;
        made.create_object = createLink;
        return made;
    }();
    static pw_core core{SPA_INTERFACE_INIT(PW_TYPE_INTERFACE_Core, PW_VERSION_CORE, &methods, nullptr)};
    return &core;
}

bool Graph::has(const char* stream)
{
    return found(stream) != streams.end();
}

spa_buffer& Graph::bufferOf(const char* stream)
{
    return named(stream).buffer;
}

void Graph::withhold(const char* stream, bool withheld)
{
    named(stream).withheld = withheld;
}

bool Graph::returned(const char* stream)
{
    return named(stream).queued;
}

void Graph::process(const char* stream)
{
    named(stream).events->process(named(stream).data);
}

void Graph::tellArea(const char* stream, std::uint32_t id, void* area, std::uint32_t bytes)
{
    named(stream).events->io_changed(named(stream).data, id, area, bytes);
}

void Graph::tell(const char* stream, std::uint32_t id, const spa_pod* param)
{
    named(stream).events->param_changed(named(stream).data, id, param);
}

const std::vector<spa_latency_info>& Graph::latenciesOf(const char* stream)
{
    return named(stream).latencies;
}

const std::vector<float>& Graph::volumesOf(const char* stream)
{
    return named(stream).volumes;
}

const std::vector<std::string>& Graph::links()
{
    return ends;
}

void Graph::start()
{
    position.clock.rate = {1, 48000};
    position.clock.rate_diff = 1.0;
    for (pw_stream* stream : streams)
        if (stream->taking) {
            stream->events->io_changed(stream->data, SPA_IO_Position, &position, sizeof position);
            stream->events->state_changed(stream->data, PW_STREAM_STATE_PAUSED, PW_STREAM_STATE_STREAMING, nullptr);
        }
}

void Graph::cycle(std::uint32_t frames)
{
    position.clock.position += position.clock.duration;
    position.clock.duration = frames;
    std::uint32_t state = 1;
    for (pw_stream* stream : streams) {
        if (!stream->taking)
            continue;
        for (std::size_t row = 0; row < mostRows; ++row) {
            for (std::uint32_t i = 0; i < frames; ++i) {
                state = state * 1664525U + 1013904223U;
                stream->rows[row][i] = static_cast<float>(static_cast<std::int32_t>(state)) * 0x1p-34F;
            }
            stream->chunks[row] = {0, static_cast<std::uint32_t>(frames * sizeof(float)), sizeof(float), 0};
        }
        stream->events->process(stream->data);
    }
    for (pw_filter* filter : filters)
        filter->events->process(filter->data, &position);
}

float Graph::peakOf(const char* stream) const
{
    float peak = 0;
    for (std::uint32_t i = 0; i < givenBy(stream); ++i)
        peak = std::max(peak, std::abs(named(stream).rows[0][i]));
    return peak;
}

std::uint32_t Graph::givenBy(const char* stream) const
{
    return static_cast<std::uint32_t>(named(stream).chunks[0].size / sizeof(float));
}

} // namespace quorel
