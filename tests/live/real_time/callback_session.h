// SPDX-License-Identifier: MIT
// Both sides of the live host as the client library calls them, every effect on, for the tests that watch the audio thread.
#pragma once

#include "live/stream_pair.h"
#include "tests/live/graph/graph.h"
#include "tests/live/real_time/live_session.h"

namespace quorel {

class CallbackSession {
public:
    CallbackSession()
        : speaker(nullptr, StreamKind{}, "", render, live.status, [] {}),
          microphone(nullptr, StreamKind{true, 1, 0x4}, "", capture, captureStatus, [] {})
    {
        graph.start();
    }

    // Cycles of so many frames, with frames lost ahead of one of them.
    void run(std::uint32_t quantum, std::uint32_t cycles = 8)
    {
        for (std::uint32_t i = 0; i < cycles; ++i) {
            if (i == 5)
                graph.lose(quantum);
            graph.cycle(quantum);
        }
    }

    struct Render final : LiveEffect {
        explicit Render(LiveSession& live) : live(live) {}
        void process(const float* const* in, float* const* out, std::uint32_t n, bool varying) override
        {
            live.render(in, out, n, varying);
        }
        LiveSession& live;
    };
    struct Capture final : LiveEffect {
        explicit Capture(LiveSession& live) : live(live) {}
        void process(const float* const* in, float* const* out, std::uint32_t n, bool) override { live.capture(in, out, n); }
        LiveSession& live;
    };

    LiveSession live;
    StreamStatus captureStatus;
    Render render{live};
    Capture capture{live};
    Graph graph;
    StreamPair speaker;
    StreamPair microphone;
};

} // namespace quorel
