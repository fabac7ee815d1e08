// SPDX-License-Identifier: MIT
// An audio graph without a server: in place of the client library's streams and filters there are these, whose callbacks are
// called as the library calls them, by whoever asks for a cycle.
#pragma once

#include <cstdint>
#include <spa/node/io.h>

namespace quorel {

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
};

} // namespace quorel
