// SPDX-License-Identifier: MIT
// PathChange lets a running stream go over to another block length. The audio thread asks for a new effect stream and plays
// on; another thread builds it and hands it over; no thread ever waits.
//
//   quantum changes      old sound fades out over that call; its stream is handed back; a new one is asked for
//   until it is there    silence
//   it is there          the new sound fades in over 10 ms, its room empty
//
// The render effect's blocks must not differ in length, so this is the only way from one length to another. A quantum that the
// block in force divides changes nothing.
#pragma once

#include "live/effect_stream.h"

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

namespace quorel {

class PathChange {
public:
    static constexpr std::uint32_t fadeIn = 480; // frames

    using Plan = BlockPlan (*)(std::uint32_t quantum, bool varying);

    // wake: called on the audio thread when there is work for `serve`. It must not wait.
    PathChange(Plan plan, StreamStatus& status, void (*wake)(void*), void* waker);
    ~PathChange();
    PathChange(const PathChange&) = delete;
    PathChange& operator=(const PathChange&) = delete;

    // While neither `process` nor `serve` runs: the stream to begin with, without a fade. What was asked for is forgotten.
    void begin(std::unique_ptr<EffectStream> stream);

    // The audio thread: n frames. varying: calls may differ in length.
    void process(const float* const* in, float* const* out, std::uint32_t n, bool varying);

    // The other thread: releases what was handed back, and builds what was asked for. What `build` throws leaves here, and
    // the request stands for the next call.
    void serve(const std::function<std::unique_ptr<EffectStream>(BlockPlan)>& build);

private:
    bool keeps(std::uint32_t n, bool varying) const noexcept;
    void ask(std::uint32_t n, bool varying) noexcept;
    void handBack() noexcept;
    void fadeOut(float* const* out, std::uint32_t n) const noexcept;
    void fadeNewIn(float* const* out, std::uint32_t n) noexcept;

    Plan plan;
    StreamStatus& status;
    void (*wake)(void*);
    void* waker;

    std::unique_ptr<EffectStream> current; // the audio thread's own while it runs
    std::uint32_t silent = 0;              // frames until the new sound begins
    std::uint32_t faded = fadeIn;          // frames of it that have been faded in
    std::uint64_t asked = 0;               // the request that stands, as in `request`

    std::atomic<EffectStream*> arrived = nullptr; // from the other thread
    std::atomic<EffectStream*> retired = nullptr; // to it
    std::atomic<std::uint64_t> request = 0;       // to it: block in the upper 32 bits, delay in the lower ones; 0: none
};

} // namespace quorel
