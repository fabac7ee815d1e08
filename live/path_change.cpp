// SPDX-License-Identifier: MIT
#include "live/path_change.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <utility>

namespace quorel {

namespace {

constexpr std::uint32_t outputs = 2; // rows; the render effect's ears

// From 0 to 1 over half a cosine, exact at both ends.
float rising(std::uint32_t frame, std::uint32_t length)
{
    return 0.5F - 0.5F * std::cos(std::numbers::pi_v<float> * static_cast<float>(frame) / static_cast<float>(length));
}

} // namespace

PathChange::PathChange(Plan plan, StreamStatus& status, void (*wake)(void*), void* waker)
    : plan(plan), status(status), wake(wake), waker(waker)
{
}

PathChange::~PathChange()
{
    delete arrived.load();
    delete retired.load();
}

void PathChange::begin(std::unique_ptr<EffectStream> stream)
{
    request = 0;
    delete arrived.exchange(nullptr);
    delete retired.exchange(nullptr);
    asked = 0;
    silent = 0;
    faded = fadeIn;
    current = std::move(stream);
    status.block = current->block();
    status.delay = current->delay();
}

void PathChange::process(const float* const* in, float* const* out, std::uint32_t n, bool varying)
{
    if (EffectStream* fresh = arrived.exchange(nullptr, std::memory_order_acquire); fresh != nullptr) {
        current.reset(fresh); // it was asked for because there is none
        asked = 0;
        silent = fresh->delay();
        faded = 0;
        status.block.store(fresh->block(), std::memory_order_relaxed);
        status.delay.store(fresh->delay(), std::memory_order_relaxed);
        status.frames.store(0, std::memory_order_relaxed);
    }

    if (current == nullptr) {
        ask(n, varying);
        for (std::uint32_t row = 0; row < outputs; ++row)
            std::fill_n(out[row], n, 0.0F);
        status.lostFrames.fetch_add(n, std::memory_order_relaxed);
        return;
    }
    if (keeps(n, varying)) {
        current->process(in, out, n);
        fadeNewIn(out, n);
        status.frames.fetch_add(n, std::memory_order_relaxed);
        return;
    }
    current->finish(in, out, n);
    fadeNewIn(out, n);
    fadeOut(out, n);
    handBack();
    ask(n, varying);
    status.changes.fetch_add(1, std::memory_order_relaxed);
}

// A multiple of the block in force, or what would be cut into such blocks anyway.
bool PathChange::keeps(std::uint32_t n, bool varying) const noexcept
{
    return current->serves(n, varying) && (n % current->block() == 0 || plan(n, varying).block == current->block());
}

// One request stands at a time: if the quantum has changed again when its stream arrives, that one makes way for another.
void PathChange::ask(std::uint32_t n, bool varying) noexcept
{
    if (asked != 0)
        return;
    const BlockPlan wanted = plan(n, varying);
    asked = std::uint64_t{wanted.block} << 32 | wanted.delay;
    request.store(asked, std::memory_order_release);
    wake(waker);
}

// The place is free: `serve` empties it before it builds the stream that takes the last one's place.
void PathChange::handBack() noexcept
{
    retired.store(current.release(), std::memory_order_release);
}

void PathChange::fadeOut(float* const* out, std::uint32_t n) const noexcept
{
    for (std::uint32_t i = 0; i < n; ++i) {
        const float share = 1.0F - rising(i + 1, n);
        for (std::uint32_t row = 0; row < outputs; ++row)
            out[row][i] *= share;
    }
}

void PathChange::fadeNewIn(float* const* out, std::uint32_t n) noexcept
{
    if (faded == fadeIn)
        return;
    const std::uint32_t from = std::min(silent, n);
    silent -= from;
    for (std::uint32_t i = from; i < n && faded < fadeIn; ++i) {
        const float share = rising(faded, fadeIn);
        ++faded;
        for (std::uint32_t row = 0; row < outputs; ++row)
            out[row][i] *= share;
    }
}

// The request is taken first: what was handed back before it is seen then.
void PathChange::serve(const std::function<std::unique_ptr<EffectStream>(BlockPlan)>& build)
{
    const std::uint64_t wanted = request.exchange(0, std::memory_order_acquire);
    delete retired.exchange(nullptr, std::memory_order_acquire);
    if (wanted == 0)
        return;
    const BlockPlan blocks{static_cast<std::uint32_t>(wanted >> 32), static_cast<std::uint32_t>(wanted)};
    try {
        arrived.store(build(blocks).release(), std::memory_order_release);
    } catch (...) {
        request.store(wanted, std::memory_order_release);
        throw;
    }
}

} // namespace quorel
