// SPDX-License-Identifier: MIT
#include "live/stream_pair.h"

#include "live/flush_to_zero.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <ctime>
#include <limits>
#include <spa/param/audio/format-utils.h>
#include <spa/param/props.h>
#include <stdexcept>
#include <unistd.h>

namespace quorel {

namespace {

constexpr std::uint32_t longestCall = 8192;               // frames, the largest quantum that the server can be set to
constexpr float inaudible = 1e-5F;                        // -100 dB
constexpr std::uint32_t longestQuiet = 3600 * effectRate; // frames that are counted

std::uint64_t now() noexcept
{
    timespec time{};
    clock_gettime(CLOCK_MONOTONIC, &time);
    return static_cast<std::uint64_t>(time.tv_sec) * 1'000'000'000 + static_cast<std::uint64_t>(time.tv_nsec);
}

spa_audio_info_raw formatOf(const StreamKind& kind, bool taking)
{
    constexpr std::uint32_t seven[] = {SPA_AUDIO_CHANNEL_FL, SPA_AUDIO_CHANNEL_FR, SPA_AUDIO_CHANNEL_FC, SPA_AUDIO_CHANNEL_LFE,
                                       SPA_AUDIO_CHANNEL_RL, SPA_AUDIO_CHANNEL_RR, SPA_AUDIO_CHANNEL_SL, SPA_AUDIO_CHANNEL_SR};
    spa_audio_info_raw format{};
    format.format = SPA_AUDIO_FORMAT_F32P;
    format.rate = effectRate;
    format.channels = taking ? kind.channels : kind.outputs();
    if (kind.microphone)
        format.position[0] = SPA_AUDIO_CHANNEL_MONO;
    else
        std::copy_n(seven, format.channels, format.position);
    return format;
}

float largest(const float* x, std::uint32_t n) noexcept
{
    float peak = 0.0F;
    for (std::uint32_t i = 0; i < n; ++i)
        peak = std::max(peak, std::abs(x[i]));
    return peak;
}

// Nothing where the parameter is another one, or is taken back.
std::optional<spa_latency_info> latencyIn(std::uint32_t id, const spa_pod* param)
{
    spa_latency_info info{};
    if (id != SPA_PARAM_Latency || param == nullptr || spa_latency_parse(param, &info) < 0)
        return std::nullopt;
    return info;
}

} // namespace

StreamPair::StreamPair(pw_core* core, const StreamKind& kind, const std::string& target, LiveEffect& effect, StreamStatus& status,
                       std::function<void()> stateChanged)
    : core(core),
      kind(kind),
      effect(effect),
      status(status),
      stateChanged(std::move(stateChanged)),
      audioLoop(pw_context_get_data_loop(pw_core_get_context(core))),
      behindTake(SPA_LATENCY_INFO(SPA_DIRECTION_OUTPUT)),
      behindGive(SPA_LATENCY_INFO(SPA_DIRECTION_INPUT)),
      in(kind.channels),
      out(kind.outputs()),
      silence(longestCall)
{
    takeEvents.version = PW_VERSION_STREAM_EVENTS;
    takeEvents.process = onTake;
    takeEvents.io_changed = onTakeIo;
    takeEvents.state_changed = onTakeState;
    takeEvents.param_changed = onTakeParam;
    giveEvents.version = PW_VERSION_STREAM_EVENTS;
    giveEvents.process = onGive;
    giveEvents.param_changed = onGiveParam;

    take = make(true, target);
    give = make(false, target);
    pw_stream_add_listener(take.get(), &takeHook, &takeEvents, this);
    pw_stream_add_listener(give.get(), &giveHook, &giveEvents, this);
    connect(give.get(), false); // first: it must be there when it is triggered
    connect(take.get(), true);
    if (!kind.microphone)
        makeHolder();
}

// The audio thread leaves the streams alone before they go.
StreamPair::~StreamPair()
{
    closing = true;
    passAudioThread();
}

// Waits until the audio thread has been between two calls: it has seen what was written before.
void StreamPair::passAudioThread() const
{
    pw_data_loop_invoke(
        audioLoop, [](spa_loop*, bool, std::uint32_t, const void*, std::size_t, void*) { return 0; }, 0, nullptr, 0, true,
        nullptr);
}

// The link group keeps the session manager from linking the pair's two ends to each other.
StreamPair::Stream StreamPair::make(bool taking, const std::string& target)
{
    const bool device = taking != kind.microphone; // the end that applications see
    const std::string base = kind.microphone ? "quorel.microphone" : "quorel.speaker";
    const std::string text = kind.microphone ? "QUOREL microphone" : "QUOREL headphones";
    const std::string name = device ? base : base + (taking ? ".input" : ".output");
    const std::string group = base + "." + std::to_string(getpid());
    pw_properties* properties =
        pw_properties_new(PW_KEY_MEDIA_TYPE, "Audio", PW_KEY_NODE_NAME, name.c_str(), PW_KEY_NODE_GROUP, group.c_str(),
                          PW_KEY_NODE_LINK_GROUP, group.c_str(), PW_KEY_NODE_VIRTUAL, "true", nullptr);
    if (device) {
        pw_properties_set(properties, PW_KEY_NODE_DESCRIPTION, text.c_str());
        pw_properties_set(properties, PW_KEY_MEDIA_CLASS, kind.microphone ? "Audio/Source" : "Audio/Sink");
    } else {
        pw_properties_set(properties, PW_KEY_NODE_DESCRIPTION, (text + " (to the hardware)").c_str());
        pw_properties_set(properties, PW_KEY_NODE_PASSIVE, "true");
        pw_properties_set(properties, PW_KEY_STREAM_DONT_REMIX, "true");
        pw_properties_set(properties, "state.restore-props", "false"); // no stored volume behind the effect
        pw_properties_set(properties, "state.restore-target", "false");
        if (!target.empty())
            pw_properties_set(properties, PW_KEY_TARGET_OBJECT, target.c_str());
    }
    Stream stream(pw_stream_new(core, name.c_str(), properties));
    if (!stream)
        throw std::runtime_error(std::string("the audio server refuses a stream: ") + std::strerror(errno));
    return stream;
}

void StreamPair::connect(pw_stream* stream, bool taking)
{
    std::uint8_t buffer[2048];
    spa_pod_builder builder = SPA_POD_BUILDER_INIT(buffer, sizeof buffer);
    spa_audio_info_raw format = formatOf(kind, taking);
    const spa_pod* param = spa_format_audio_raw_build(&builder, SPA_PARAM_EnumFormat, &format);
    const int flags = PW_STREAM_FLAG_AUTOCONNECT | PW_STREAM_FLAG_MAP_BUFFERS | PW_STREAM_FLAG_RT_PROCESS |
                      (taking ? PW_STREAM_FLAG_NONE : PW_STREAM_FLAG_TRIGGER);
    const int result = pw_stream_connect(stream, taking ? PW_DIRECTION_INPUT : PW_DIRECTION_OUTPUT, PW_ID_ANY,
                                         static_cast<pw_stream_flags>(flags), &param, 1);
    if (result < 0)
        throw std::runtime_error(std::string("the audio server refuses a stream: ") + std::strerror(-result));
}

void StreamPair::onTake(void* data)
{
    auto& pair = *static_cast<StreamPair*>(data);
    if (!pair.closing)
        pw_stream_trigger_process(pair.give.get());
}

void StreamPair::onGive(void* data)
{
    auto& pair = *static_cast<StreamPair*>(data);
    if (!pair.closing)
        pair.run();
}

// The audio thread.
void StreamPair::run() noexcept
{
    const std::uint64_t start = now();
    flushToZero();
    pw_buffer* from = pw_stream_dequeue_buffer(take.get());
    pw_buffer* to = pw_stream_dequeue_buffer(give.get());
    const spa_io_position* clock = position.load(std::memory_order_relaxed);
    if (to != nullptr) // nothing, until it is written: the buffer holds an earlier call's sound
        for (std::uint32_t c = 0; c < to->buffer->n_datas; ++c)
            to->buffer->datas[c].chunk->size = 0;
    if (from != nullptr && to != nullptr && clock != nullptr) {
        std::uint32_t n = longestCall;
        for (std::uint32_t c = 0; c < from->buffer->n_datas; ++c)
            n = std::min(n, static_cast<std::uint32_t>(from->buffer->datas[c].chunk->size / sizeof(float)));
        for (std::uint32_t c = 0; c < to->buffer->n_datas; ++c)
            n = std::min(n, static_cast<std::uint32_t>(to->buffer->datas[c].maxsize / sizeof(float)));

        for (std::size_t c = 0; c < in.size(); ++c) {
            const bool there = c < from->buffer->n_datas && from->buffer->datas[c].data != nullptr;
            const spa_data* row = there ? &from->buffer->datas[c] : nullptr;
            in[c] = there ? SPA_PTROFF(row->data, row->chunk->offset, const float) : silence.data();
        }
        bool whole = to->buffer->n_datas >= out.size();
        for (std::size_t c = 0; c < out.size() && whole; ++c) {
            out[c] = static_cast<float*>(to->buffer->datas[c].data);
            whole = out[c] != nullptr;
        }
        if (whole && n != 0) {
            follow(*clock);
            effect.process(in.data(), out.data(), n, clock->clock.rate.denom != effectRate);
            status.firstTick.store(clock->clock.position + n - status.frames.load(std::memory_order_relaxed),
                                   std::memory_order_relaxed);
            float peak = 0.0F;
            for (float* row : out)
                peak = std::max(peak, largest(row, n));
            quietFrames.store(peak >= inaudible ? 0 : std::min(longestQuiet, quietFrames.load(std::memory_order_relaxed) + n),
                              std::memory_order_relaxed);
            for (std::size_t c = 0; c < out.size(); ++c) {
                spa_chunk& chunk = *to->buffer->datas[c].chunk;
                chunk.offset = 0;
                chunk.stride = sizeof(float);
                chunk.size = static_cast<std::uint32_t>(n * sizeof(float));
            }
        }
        const std::uint64_t spent = now() - start;
        const std::uint64_t period = std::uint64_t{n} * 1'000'000'000 / effectRate;
        status.busy.fetch_add(spent, std::memory_order_relaxed);
        status.available.fetch_add(period, std::memory_order_relaxed);
        const float share = period != 0 ? static_cast<float>(spent) / static_cast<float>(period) : 0.0F;
        if (share > status.worst.load(std::memory_order_relaxed))
            status.worst.store(share, std::memory_order_relaxed);
    }
    if (from != nullptr)
        pw_stream_queue_buffer(take.get(), from);
    if (to != nullptr)
        pw_stream_queue_buffer(give.get(), to);
}

// The graph's clock goes on by what was processed; where it has gone further, frames were lost.
void StreamPair::follow(const spa_io_position& graph) noexcept
{
    const spa_io_clock& clock = graph.clock;
    const bool fresh = restarted.exchange(false, std::memory_order_relaxed) || clock.id != clockId;
    if (!fresh && clock.position > nextTick) {
        status.gaps.fetch_add(1, std::memory_order_relaxed);
        status.gapFrames.fetch_add(clock.position - nextTick, std::memory_order_relaxed);
    }
    clockId = clock.id;
    nextTick = clock.position + clock.duration;
    status.rate.store(clock.rate.denom, std::memory_order_relaxed);
    status.drift.store(clock.rate_diff, std::memory_order_relaxed);
    status.quantum.store(static_cast<std::uint32_t>(clock.duration), std::memory_order_relaxed);
    status.calls.fetch_add(1, std::memory_order_relaxed);
}

// The old clock's memory goes when this is left.
void StreamPair::onTakeIo(void* data, std::uint32_t id, void* area, std::uint32_t size)
{
    auto& pair = *static_cast<StreamPair*>(data);
    if (id != SPA_IO_Position)
        return;
    pair.position = size >= sizeof(spa_io_position) ? static_cast<spa_io_position*>(area) : nullptr;
    pair.passAudioThread();
}

void StreamPair::onTakeState(void* data, pw_stream_state, pw_stream_state state, const char*)
{
    auto& pair = *static_cast<StreamPair*>(data);
    pair.runs = state == PW_STREAM_STATE_STREAMING;
    pair.restarted = true;
    pair.quietFrames = 0; // nothing is known yet
    if (pair.runs && !pair.leveled)
        pair.level();
    if (!pair.closing)
        pair.stateChanged();
}

// What lies behind one end of the pair is told at the other, with what the effect's blocks add.
void StreamPair::tell(pw_stream* stream, const spa_latency_info& behind) const
{
    spa_latency_info info = behind;
    info.min_rate += toldDelay;
    info.max_rate += toldDelay;
    std::uint8_t buffer[1024];
    spa_pod_builder builder = SPA_POD_BUILDER_INIT(buffer, sizeof buffer);
    const spa_pod* param = spa_latency_build(&builder, SPA_PARAM_Latency, &info);
    pw_stream_update_params(stream, &param, 1);
}

void StreamPair::tellLatency()
{
    const std::uint32_t delay = status.delay;
    if (delay == toldDelay)
        return;
    toldDelay = delay;
    tell(give.get(), behindTake);
    tell(take.get(), behindGive);
}

void StreamPair::onTakeParam(void* data, std::uint32_t id, const spa_pod* param)
{
    auto& pair = *static_cast<StreamPair*>(data);
    if (const auto info = latencyIn(id, param)) {
        pair.behindTake = *info;
        pair.tell(pair.give.get(), *info);
    }
}

void StreamPair::onGiveParam(void* data, std::uint32_t id, const spa_pod* param)
{
    auto& pair = *static_cast<StreamPair*>(data);
    if (const auto info = latencyIn(id, param)) {
        pair.behindGive = *info;
        pair.tell(pair.take.get(), *info);
    }
}

// Session managers that take "state.restore-props" for a text have given the stream to the hardware the volume of its last run by
// now. What is changed from here on is its user's.
void StreamPair::level()
{
    leveled = true;
    pw_stream* hardware = kind.microphone ? take.get() : give.get();
    std::vector<float> volumes(kind.outputs(), 1.0F);
    float mute = 0;
    pw_stream_set_control(hardware, SPA_PROP_channelVolumes, static_cast<std::uint32_t>(volumes.size()), volumes.data(),
                          SPA_PROP_mute, 1, &mute, 0);
}

std::uint32_t StreamPair::deviceNode() const
{
    return pw_stream_get_node_id(kind.microphone ? give.get() : take.get());
}

std::uint32_t StreamPair::hardwareNode() const
{
    return pw_stream_get_node_id(kind.microphone ? take.get() : give.get());
}

// No stream, so that neither the session manager nor a mixer takes any notice of it.
void StreamPair::makeHolder()
{
    holder.reset(pw_filter_new(core, "quorel.speaker.hold",
                               pw_properties_new(PW_KEY_NODE_NAME, "quorel.speaker.hold", PW_KEY_NODE_VIRTUAL, "true", nullptr)));
    if (!holder)
        throw std::runtime_error(std::string("the audio server refuses a node: ") + std::strerror(errno));
    silentPort = pw_filter_add_port(
        holder.get(), PW_DIRECTION_OUTPUT, PW_FILTER_PORT_FLAG_MAP_BUFFERS, sizeof(int),
        pw_properties_new(PW_KEY_FORMAT_DSP, "32 bit float mono audio", PW_KEY_PORT_NAME, "silence", nullptr), nullptr, 0);
    holderEvents.version = PW_VERSION_FILTER_EVENTS;
    holderEvents.process = [](void* data, spa_io_position* position) {
        const auto n = static_cast<std::uint32_t>(position->clock.duration);
        if (auto* to = static_cast<float*>(pw_filter_get_dsp_buffer(static_cast<StreamPair*>(data)->silentPort, n)))
            std::fill_n(to, n, 0.0F);
    };
    pw_filter_add_listener(holder.get(), &holderHook, &holderEvents, this);
    if (pw_filter_connect(holder.get(), PW_FILTER_FLAG_RT_PROCESS, nullptr, 0) < 0)
        throw std::runtime_error("the audio server refuses a node");
}

void StreamPair::hold(bool wanted)
{
    if (!holder || wanted == (holdLink != nullptr))
        return;
    if (!wanted) {
        holdLink.reset();
        return;
    }
    const std::string from = std::to_string(pw_filter_get_node_id(holder.get()));
    const std::string to = std::to_string(deviceNode());
    const spa_dict_item items[] = {
        SPA_DICT_ITEM_INIT(PW_KEY_LINK_OUTPUT_NODE, from.c_str()), SPA_DICT_ITEM_INIT(PW_KEY_LINK_OUTPUT_PORT, "silence"),
        SPA_DICT_ITEM_INIT(PW_KEY_LINK_INPUT_NODE, to.c_str()), SPA_DICT_ITEM_INIT(PW_KEY_LINK_INPUT_PORT, "playback_FL")};
    const spa_dict properties = SPA_DICT_INIT_ARRAY(items);
    holdLink.reset(static_cast<pw_proxy*>(
        pw_core_create_object(core, "link-factory", PW_TYPE_INTERFACE_Link, PW_VERSION_LINK, &properties, 0)));
}

double StreamPair::serverLatency() const
{
    pw_time time{};
    pw_stream* stream = kind.microphone ? take.get() : give.get();
    if (pw_stream_get_time_n(stream, &time, sizeof time) != 0 || time.rate.denom == 0)
        return 0;
    return 1000.0 * static_cast<double>(time.delay) * time.rate.num / time.rate.denom;
}

} // namespace quorel
