// SPDX-License-Identifier: MIT
// BlockAdapter stands between calls of any length and an effect that wants blocks of one length.
//
// Frames come in as rows, are gathered to interleaved blocks, and leave as rows behind `delay` frames of silence, in order,
// each once. With the delay D, f frames in the block that is being gathered and w frames waiting to leave, after each call
//
//   w = D - f
//
// so calls of n frames to blocks of B need D >= B - g + (f mod g) with g the greatest common divisor of n and B: then f never
// passes D at the end of a call. Where n is a multiple of B and f is 0, no delay is needed.
#pragma once

#include "core/rt_alloc.h"

#include <algorithm>
#include <cstdint>
#include <numeric>
#include <stdexcept>

namespace quorel {

class BlockAdapter {
public:
    // channels: samples of an incoming frame. slots: samples of a frame that the effect writes, of which the first `kept`
    // leave. block: frames. delay: frames, below `block`.
    BlockAdapter(std::uint32_t channels, std::uint32_t slots, std::uint32_t kept, std::uint32_t block, std::uint32_t delay);

    // Takes n frames of each row of `in` and gives n frames in each row of `out`. run(float* in, float* out) puts one block of
    // interleaved samples through the effect and must not throw. Calls of a length that needs more delay than there is add
    // the missing silence in front of what has not been processed.
    template <typename Run>
    void process(const float* const* in, float* const* out, std::uint32_t n, Run&& run);

    // The last call: what `process` would give, at once and without more delay. The block that lacks frames is filled up with
    // silence.
    template <typename Run>
    void finish(const float* const* in, float* const* out, std::uint32_t n, Run&& run);

    // Frames of delay that calls of n frames need from now on.
    std::uint32_t needed(std::uint32_t n) const noexcept;

    std::uint32_t block() const noexcept { return block_; }
    std::uint32_t delay() const noexcept { return delay_; }

private:
    void take(const float* const* rows, std::uint32_t from, std::uint32_t n);
    void give(float* const* rows, std::uint32_t from, std::uint32_t n);
    template <typename Run>
    void runBlock(Run&& run);
    void addSilence(std::uint32_t n);

    std::uint32_t channels;
    std::uint32_t slots;
    std::uint32_t kept;
    std::uint32_t block_;
    std::uint32_t delay_;
    std::uint32_t length = 0;  // frames of the last call
    std::uint32_t filled = 0;  // frames in `in`
    std::uint32_t first = 0;   // the frame of `ready` that leaves next
    std::uint32_t waiting = 0; // frames in `ready`
    RtPointer<float> gathered; // interleaved, the block that is being gathered
    RtPointer<float> made;     // interleaved, what the effect made of the last one
    RtPointer<float> ready;    // `kept` rings of two blocks: what has not left yet
};

// ---------------------------------------------------------------------------------------------------------------------

inline BlockAdapter::BlockAdapter(std::uint32_t channels, std::uint32_t slots, std::uint32_t kept, std::uint32_t block,
                                  std::uint32_t delay)
    : channels(channels),
      slots(slots),
      kept(kept),
      block_(block),
      delay_(delay),
      waiting(delay),
      gathered(zeroedRow<float>(std::uint64_t{block} * channels)),
      made(zeroedRow<float>(std::uint64_t{block} * slots)),
      ready(zeroedRow<float>(std::uint64_t{2} * block * kept))
{
    if (delay >= block)
        throw std::invalid_argument("BlockAdapter: delay too long");
}

inline std::uint32_t BlockAdapter::needed(std::uint32_t n) const noexcept
{
    const std::uint32_t step = std::gcd(n, block_);
    return block_ - step + filled % step;
}

template <typename Run>
void BlockAdapter::process(const float* const* in, float* const* out, std::uint32_t n, Run&& run)
{
    if (n != length) {
        length = n;
        if (const std::uint32_t least = needed(n); n != 0 && least > delay_)
            addSilence(least - delay_);
    }
    for (std::uint32_t done = 0; done < n;) {
        const std::uint32_t m = std::min(n - done, block_ - filled);
        take(in, done, m);
        if (filled == block_)
            runBlock(run);
        give(out, done, m);
        done += m;
    }
}

template <typename Run>
void BlockAdapter::finish(const float* const* in, float* const* out, std::uint32_t n, Run&& run)
{
    for (std::uint32_t done = 0; done < n;) {
        const std::uint32_t m = std::min(n - done, block_ - filled);
        take(in, done, m);
        if (filled == block_ || waiting < m)
            runBlock(run);
        give(out, done, m);
        done += m;
    }
}

// Interleaves frames behind those of the block that is being gathered.
inline void BlockAdapter::take(const float* const* rows, std::uint32_t from, std::uint32_t n)
{
    float* to = gathered.get() + std::size_t{filled} * channels;
    for (std::uint32_t c = 0; c < channels; ++c) {
        const float* x = rows[c] + from;
        for (std::uint32_t i = 0; i < n; ++i)
            to[std::size_t{i} * channels + c] = x[i];
    }
    filled += n;
}

// The block as it is, with silence where it lacks frames.
template <typename Run>
void BlockAdapter::runBlock(Run&& run)
{
    float* x = gathered.get();
    const float* y = made.get();
    std::fill(x + std::size_t{filled} * channels, x + std::size_t{block_} * channels, 0.0F);
    run(x, made.get());
    filled = 0;

    const std::uint32_t size = 2 * block_;
    for (std::uint32_t c = 0; c < kept; ++c) {
        float* ring = ready.get() + std::size_t{c} * size;
        std::uint32_t at = (first + waiting) % size;
        for (std::uint32_t i = 0; i < block_; ++i) {
            ring[at] = y[std::size_t{i} * slots + c];
            at = at + 1 == size ? 0 : at + 1;
        }
    }
    waiting += block_;
}

inline void BlockAdapter::give(float* const* rows, std::uint32_t from, std::uint32_t n)
{
    const std::uint32_t size = 2 * block_;
    const std::uint32_t before = std::min(n, size - first); // frames up to the rings' end
    for (std::uint32_t c = 0; c < kept; ++c) {
        const float* ring = ready.get() + std::size_t{c} * size;
        std::copy_n(ring + first, before, rows[c] + from);
        std::copy_n(ring, n - before, rows[c] + from + before);
    }
    first = (first + n) % size;
    waiting -= n;
}

inline void BlockAdapter::addSilence(std::uint32_t n)
{
    const std::uint32_t size = 2 * block_;
    for (std::uint32_t c = 0; c < kept; ++c) {
        float* ring = ready.get() + std::size_t{c} * size;
        for (std::uint32_t i = 0; i < n; ++i)
            ring[(first + waiting + i) % size] = 0.0F;
    }
    waiting += n;
    delay_ += n;
}

} // namespace quorel
