// SPDX-License-Identifier: MIT
// An audio graph without a server: in place of the client library's streams and filters there are these, whose callbacks are
// called as the library calls them, by whoever asks for a cycle. A program has one graph; its parts go by the streams' names.
#pragma once

#include <cstdint>
#include <functional>
#include <pipewire/stream.h>
#include <spa/node/io.h>
#include <spa/param/latency-utils.h>
#include <string>
#include <vector>

namespace quorel {

// The error with which each of these is refused; 0: it is not.
struct GraphRefusals {
    int stream = 0;
    int connection = 0;
    int node = 0;
    int nodeConnection = 0;
};

class Graph {
public:
    static constexpr std::uint32_t longest = 2048; // frames of a cycle

    // The clock is there, and all streams that were made run.
    void start();

    // One cycle: what takes frames gets noise, each taking stream's callback is called and all that it calls, and each filter's.
    // Allocates nothing.
    void cycle(std::uint32_t frames);

    // The clock goes on by so many frames in which no callback was called.
    void lose(std::uint32_t frames) { position.clock.position += frames; }

    // The largest sample that a stream of this name gave in the last cycle, or that it took.
    float peakOf(const char* stream) const;

    // Frames that it has given in the last cycle.
    std::uint32_t givenBy(const char* stream) const;

    spa_io_position position{};

    // ---- what a server may do ----

    inline static GraphRefusals refusals;

    inline static std::function<void()> audioThread; // what it does before it lets another thread in; none: nothing

    // What the streams are told of their time, with the call's result.
    inline static pw_time time{};
    inline static int timeResult = -1;

    static pw_core* core();
    static bool has(const char* stream);
    static spa_buffer& bufferOf(const char* stream);         // its rows, of which fewer may be said to be there
    static void withhold(const char* stream, bool withheld); // no buffer is free for it
    static bool returned(const char* stream);                // its buffer, by the program
    static void process(const char* stream);                 // calls its callback alone
    static void tellArea(const char* stream, std::uint32_t id, void* area, std::uint32_t bytes);
    static void tell(const char* stream, std::uint32_t id, const spa_pod* param);

    // ---- what the program did ----

    inline static int triggers = 0;                                              // of streams, by others' callbacks
    static const std::vector<spa_latency_info>& latenciesOf(const char* stream); // that it told, the last one last
    static const std::vector<float>& volumesOf(const char* stream);
    static const std::vector<std::string>& links(); // each link's ends, "node port node port"
};

} // namespace quorel
