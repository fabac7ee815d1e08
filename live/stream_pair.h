// SPDX-License-Identifier: MIT
// StreamPair is one side of the live host at the audio server: a device that applications see, and the stream between it and
// the hardware, with an effect in between.
//
//   speaker:     applications -> "quorel.speaker" (a sink)      -> effect -> "quorel.speaker.output"  -> hardware
//   microphone:  hardware -> "quorel.microphone.input" -> effect -> "quorel.microphone" (a source)    -> applications
//
// Both streams run in one graph: the one that takes frames triggers the one that gives them, in the same cycle, so that the
// pair itself adds no frame. Both ask for 48000 Hz, and the server resamples where the graph has another rate.
#pragma once

#include "live/path_change.h"
#include "live/stream_status.h"

#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <pipewire/filter.h>
#include <pipewire/pipewire.h>
#include <spa/node/io.h>
#include <spa/param/latency-utils.h>
#include <string>
#include <vector>

namespace quorel {

// What takes n frames of each row and gives as many. The audio thread calls it.
class LiveEffect {
public:
    virtual ~LiveEffect() = default;
    virtual void process(const float* const* in, float* const* out, std::uint32_t n, bool varying) = 0;
};

class StreamPair {
public:
    // target: the node to connect to; empty: the default device. The effect and the status outlive the pair.
    // Throws std::runtime_error when the server refuses the streams.
    // stateChanged: on the main loop's thread, whenever `streaming` may have changed.
    StreamPair(pw_core* core, const StreamKind& kind, const std::string& target, LiveEffect& effect, StreamStatus& status,
               std::function<void()> stateChanged);
    ~StreamPair();
    StreamPair(const StreamPair&) = delete;
    StreamPair& operator=(const StreamPair&) = delete;

    // Ids at the server; SPA_ID_INVALID while they have none.
    std::uint32_t deviceNode() const;   // what applications see
    std::uint32_t hardwareNode() const; // what is linked to the hardware

    // Whether the graph runs through the pair.
    bool streaming() const noexcept { return runs; }

    // Keeps the graph running, or lets it stop when no application needs it: a node of the pair's own plays silence into the
    // device meanwhile.
    void hold(bool wanted);

    // Tells the graph the latency behind each end anew if the effect has got another delay.
    void tellLatency();

    // Frames since the output was last above -100 dB, or since nothing has been known of it.
    std::uint32_t quietFor() const noexcept { return quietFrames; }

    // From here to the hardware's end, or from it to here, as the server tells it; in ms.
    double serverLatency() const;

private:
    struct Destroy {
        void operator()(pw_stream* stream) const noexcept { pw_stream_destroy(stream); }
        void operator()(pw_filter* filter) const noexcept { pw_filter_destroy(filter); }
        void operator()(pw_proxy* proxy) const noexcept { pw_proxy_destroy(proxy); }
    };
    using Stream = std::unique_ptr<pw_stream, Destroy>;

    Stream make(bool taking, const std::string& target);
    void connect(pw_stream* stream, bool taking);
    void makeHolder();
    void passAudioThread() const;
    void run() noexcept;
    void follow(const spa_io_position& graph) noexcept;
    void level();
    void tell(pw_stream* stream, const spa_latency_info& behind) const;

    static void onTake(void* data);
    static void onGive(void* data);
    static void onTakeIo(void* data, std::uint32_t id, void* area, std::uint32_t size);
    static void onTakeState(void* data, pw_stream_state before, pw_stream_state now, const char* error);
    static void onTakeParam(void* data, std::uint32_t id, const spa_pod* param);
    static void onGiveParam(void* data, std::uint32_t id, const spa_pod* param);

    pw_core* core;
    StreamKind kind;
    LiveEffect& effect;
    StreamStatus& status;
    std::function<void()> stateChanged;
    pw_data_loop* audioLoop;
    std::atomic<bool> closing = false; // the audio thread keeps away from the streams
    bool runs = false;
    bool leveled = false;                             // the stream to the hardware has its full volume
    std::atomic<bool> restarted = true;               // the graph has stood still: its clock may have jumped
    std::atomic<spa_io_position*> position = nullptr; // the graph's clock
    std::atomic<std::uint32_t> quietFrames = 0;       // since the output was last above -100 dB
    std::uint64_t nextTick = 0;                       // the clock at the next call, if no frame is lost
    std::uint32_t clockId = 0;
    std::uint32_t toldDelay = 0; // frames of the effect's, as the graph has been told
    spa_latency_info behindTake; // none, as long as the graph tells of none
    spa_latency_info behindGive;
    std::vector<const float*> in; // the rows of a call
    std::vector<float*> out;
    std::vector<float> silence; // in a row's place that the server did not fill
    pw_stream_events takeEvents{};
    pw_stream_events giveEvents{};
    spa_hook takeHook{};
    spa_hook giveHook{};
    Stream take; // gets frames
    Stream give; // gives them on
    void* silentPort = nullptr;
    pw_filter_events holderEvents{};
    spa_hook holderHook{};
    std::unique_ptr<pw_filter, Destroy> holder;  // the speaker side's
    std::unique_ptr<pw_proxy, Destroy> holdLink; // its link to the device, while the graph is held
};

} // namespace quorel
